// The parallel hoppers in the cabinet, which drop coins while the board drives them.
// What it does where boards may differ: docs/simulator.md, "Hoppers".
#ifndef MARVANE_SIMULATOR_BOARD_HOPPERS_H
#define MARVANE_SIMULATOR_BOARD_HOPPERS_H

#include <array>
#include <optional>

#include "board/coin_pulses.h"
#include "board/releases.h"

namespace simulator {

constexpr unsigned kMostHopperCoins = 65535;
constexpr unsigned kMostHopperRate = 25;  // coins a second; one's pulse ends before the next begins

struct Hopper {
    unsigned coins = 500;
    unsigned rate = 10;
    bool jammed = false;
    unsigned dropped = 0;              // since the cabinet was built
    std::chrono::milliseconds run{0};  // since the output went on or the last coin fell
};

class BoardHoppers {
public:
    /// Only those that were paid from or touched; nothing for numbers beyond the last input.
    const Hopper* Find(unsigned input) const;
    /// Fits one where there is none yet; input is 0 to 32.
    Hopper& At(unsigned input);

    /// A release begins on input 0 to 32.
    void Begin(unsigned input) { At(input).run = {}; }
    void Tick(const BoardReleases& releases, CoinPulses& pulses);

private:
    std::array<std::optional<Hopper>, kInputCount> hoppers;
};

}  // namespace simulator

#endif
