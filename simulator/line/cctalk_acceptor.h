// A ccTalk coin acceptor on a simulated board's serial port.
//
// What follows is the simulator's own choice, real acceptors may differ:
// - It hears address 2, and 0, which is everybody; it answers as 2. A frame is destination, number
//   of data bytes, source, header, data and a check that brings the sum of all bytes to 0 modulo
//   256. What it does not answer, it is silent about: other addresses, wrong checks, unknown
//   headers, another number of data bytes than the header takes. Nothing of what it hears comes
//   back as an echo.
// - 50 ms without a word drop an unfinished frame.
// - It answers 254 (simple poll), 246, 245, 244 (who it is), 242 (serial number, 3 bytes, low
//   first), 231 and 230 (set and tell the inhibit mask, 2 bytes, low first: bit n - 1 lets coin n
//   in), 228 and 227 (set and tell the master inhibit: bit 0 lets coins in), 229 (event counter,
//   then the last five events as coin and sorter path, latest first) and 1 (reset).
// - At power-up and after a reset the mask lets no coin in, the master all, and no event is known.
//   The event counter then goes from 0 to 1, and from 255 to 1.
#ifndef MARVANE_SIMULATOR_LINE_CCTALK_ACCEPTOR_H
#define MARVANE_SIMULATOR_LINE_CCTALK_ACCEPTOR_H

#include <array>
#include <span>

#include "line/serial_frame.h"

namespace simulator {

constexpr unsigned kAcceptorCoinCount = 16;  // numbered from 1

class CctalkAcceptor {
public:
    /// What a reset brings back to its beginning.
    struct State {
        std::uint16_t mask = 0;
        std::uint8_t master = 1;
        std::uint8_t eventCounter = 0;
        std::array<std::uint8_t, 5> lastCoins{};  // latest first, 0 for none
    };

    /// What it answers at once to what the board sent.
    SerialWords Hear(std::span<const SerialWord> words);
    /// A millisecond passes. It says nothing by itself.
    SerialWords Tick();
    bool IsIdle() const { return collector.IsEmpty(); }

    /// True when the coin is taken, an event then; false when it comes back, as all do that it
    /// does not know.
    bool Insert(unsigned coin);
    /// Muted it takes coins, but neither hears nor answers what comes over the line.
    void Mute(bool on);

    const State& Now() const { return state; }
    bool IsMuted() const { return muted; }
    unsigned AcceptedCoins() const { return accepted; }
    unsigned ReturnedCoins() const { return returned; }
    /// Frames with a wrong check, whoever they were for.
    unsigned WrongFrames() const { return wrongFrames; }

private:
    SerialWords AnswerTo(const SerialFrame& frame);

    State state;
    SerialFrameCollector collector{1, 5};
    bool muted = false;
    unsigned accepted = 0, returned = 0, wrongFrames = 0;
};

}  // namespace simulator

#endif
