// The board's SPI port, and the simulated device behind it.
// What it does where boards may differ: docs/simulator.md, "SPI".
#ifndef MARVANE_SIMULATOR_BOARD_SPI_H
#define MARVANE_SIMULATOR_BOARD_SPI_H

#include <deque>
#include <utility>

#include "terms/answer.h"

namespace simulator {

constexpr std::size_t kSpiLimit = 20;  // bytes out, and bytes back
constexpr unsigned kSpiBitLimit = 8 * kSpiLimit;

class BoardSpi {
public:
    Answer Enable(ByteView payload);
    Answer Disable(ByteView payload);
    Answer Send(ByteView payload);

    /// The device answers one transfer with this, after those queued before. It stays queued when
    /// the board is unplugged.
    void QueueReply(std::vector<std::uint8_t> reply) { queued.push_back(std::move(reply)); }
    void ClearQueue() { queued.clear(); }

    bool IsEnabled() const { return enabled; }
    std::size_t QueuedReplies() const { return queued.size(); }
    /// Of the latest transfer; 0 before the first.
    std::uint8_t Control() const { return control; }
    /// SEC frames since power-up, by their checksums.
    unsigned RightFrames() const { return rightFrames; }
    unsigned WrongFrames() const { return wrongFrames; }

    void PowerUp();

private:
    std::vector<std::uint8_t> ReplyOfDevice(ByteView sent, std::size_t replySize);

    bool enabled = false;
    std::uint8_t control = 0;
    std::deque<std::vector<std::uint8_t>> queued;
    unsigned rightFrames = 0, wrongFrames = 0;
};

}  // namespace simulator

#endif
