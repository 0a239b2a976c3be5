// The board's SPI port, and the simulated device behind it.
//
// What follows is the simulator's own choice, boards may differ:
// - The port is off at power-up and refuses transfers until it is switched on. The control byte is
//   kept for display and changes nothing.
// - A reply is as many whole bytes as hold the bits asked for; what the device has less is filled
//   up with zeroes, what it has more is cut.
// - The device answers with the oldest of the replies that the cabinet queued, if there is one;
//   else an SEC frame with an SEC frame; else with the bytes that it was sent.
// - Sent bytes are an SEC frame when their third one is the number of data bytes between the
//   headers and the checksum. One whose checksum is right is answered with a frame that fills the
//   reply: headers exchanged, the data sent, its own checksum. One with a wrong checksum is sent
//   back as it came and counted. A reply without room for a frame holds the beginning of one.
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
    Answer Enable(Payload payload);
    Answer Disable(Payload payload);
    Answer Send(Payload payload);

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
    std::vector<std::uint8_t> ReplyOfDevice(Payload sent, std::size_t replySize);

    bool enabled = false;
    std::uint8_t control = 0;
    std::deque<std::vector<std::uint8_t>> queued;
    unsigned rightFrames = 0, wrongFrames = 0;
};

}  // namespace simulator

#endif
