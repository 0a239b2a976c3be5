// Drops coins one by one.
#include "board/hoppers.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kCoinPeriod{40};  // the pulse takes half of it

}  // namespace

const Hopper* BoardHoppers::Find(unsigned input) const {
    return input < kInputCount && hoppers[input] ? &*hoppers[input] : nullptr;
}

Hopper& BoardHoppers::At(unsigned input) {
    if (!hoppers[input]) hoppers[input].emplace();
    return *hoppers[input];
}

void BoardHoppers::Tick(const BoardReleases& releases, CoinPulses& pulses) {
    for (unsigned n = 0; n < kInputCount; ++n) {
        if (!hoppers[n]) continue;
        Hopper& hopper = *hoppers[n];
        if (!releases.IsDriving(n) || hopper.jammed || hopper.coins == 0) {
            hopper.run = {};
            continue;
        }
        hopper.run += kTick;
        if (hopper.run < milliseconds(1000 / hopper.rate)) continue;
        hopper.run = {};
        --hopper.coins;
        ++hopper.dropped;
        pulses.Add(n, 1, kCoinPeriod);
    }
}

}  // namespace simulator
