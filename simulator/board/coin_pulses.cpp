// Moves the inputs as the pulses go by.
#include "board/coin_pulses.h"

#include <algorithm>

#include "terms/time.h"

namespace simulator {

void CoinPulses::Add(unsigned input, unsigned count, std::chrono::milliseconds period) {
    if (input >= kInputCount || count == 0) return;
    trains[input].push_back({count, std::max(period, 2 * kTick)});
}

unsigned CoinPulses::Pending(unsigned input) const {
    if (input >= kInputCount) return 0;
    unsigned sum = 0;
    for (const Train& train : trains[input])
        sum += train.left;
    return sum;
}

bool CoinPulses::IsIdle() const {
    return std::ranges::all_of(trains, [](const auto& queue) { return queue.empty(); });
}

void CoinPulses::Tick(BoardInputs& inputs) {
    for (unsigned input = 0; input < kInputCount; ++input) {
        auto& queue = trains[input];
        if (queue.empty()) continue;
        Train& train = queue.front();
        if (train.passed.count() == 0 || train.passed == train.period / 2) {
            inputs.Set(input, !inputs.Level(input));
        }
        train.passed += kTick;
        if (train.passed < train.period) continue;
        train.passed = {};
        if (--train.left == 0) queue.pop_front();
    }
}

}  // namespace simulator
