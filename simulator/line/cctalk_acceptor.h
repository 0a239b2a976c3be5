// A ccTalk coin acceptor on a simulated board's serial port.
// What it does where real acceptors may differ: docs/simulator.md, "The ccTalk acceptor".
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
