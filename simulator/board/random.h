// The board's hardware random-number generator.
// What it does where boards may differ: docs/simulator.md, "Random numbers".
#ifndef MARVANE_SIMULATOR_BOARD_RANDOM_H
#define MARVANE_SIMULATOR_BOARD_RANDOM_H

#include <functional>
#include <utility>

#include "terms/answer.h"

namespace simulator {

using RandomSource = std::function<std::uint16_t()>;

/// The same numbers in each run, for tests; a front end takes them from the operating system.
RandomSource SeededRandom(unsigned seed);

class BoardRandom {
public:
    explicit BoardRandom(RandomSource randomSource) : source(std::move(randomSource)) {}

    Answer Enable(ByteView payload);
    Answer Disable(ByteView payload);
    Answer Read(ByteView payload);

    bool IsEnabled() const { return enabled; }
    /// Of the latest Enable; 0 before the first.
    std::uint32_t Argument() const { return argument; }

    void PowerUp();

private:
    RandomSource source;
    bool enabled = false;
    std::uint32_t argument = 0;
};

}  // namespace simulator

#endif
