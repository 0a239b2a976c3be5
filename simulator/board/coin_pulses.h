// The pulses that the cabinet gives on inputs: coins that pass a coin mechanism or leave a hopper.
//
// A pulse takes the input to the other level for the first half of its period.
#ifndef MARVANE_SIMULATOR_BOARD_COIN_PULSES_H
#define MARVANE_SIMULATOR_BOARD_COIN_PULSES_H

#include <array>
#include <chrono>
#include <deque>

#include "board/inputs.h"

namespace simulator {

class CoinPulses {
public:
    /// Pulses that come one after the other, behind those of the same input that are still to come.
    /// Numbers beyond the last input are ignored; a period is at least 2 ms.
    void Add(unsigned input, unsigned count, std::chrono::milliseconds period);

    /// Those of an input that have not ended; 0 beyond the last.
    unsigned Pending(unsigned input) const;
    bool IsIdle() const;

    /// A millisecond passes.
    void Tick(BoardInputs& inputs);

private:
    struct Train {
        unsigned left;
        std::chrono::milliseconds period;
        std::chrono::milliseconds passed{0};  // of the pulse that is under way
    };
    std::array<std::deque<Train>, kInputCount> trains;
};

}  // namespace simulator

#endif
