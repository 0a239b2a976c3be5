/**
 * @file shared_use.cpp
 * @brief The end: waiting for operations that still run.
 */
#include "shared_use.h"

#include <chrono>
#include <thread>

namespace {

constexpr auto kLongestWaitForOperations = std::chrono::seconds(1);
constexpr auto kLookAgainAfter = std::chrono::milliseconds(1);

}  // namespace

constinit std::atomic<SharedUse::State> SharedUse::state_ = SharedUse::State{0, 0, Phase::kOpen};

void SharedUse::Enter(Phase phase) {
    State now = state_.load();
    while (!state_.compare_exchange_weak(now, now.In(phase))) {
    }
}

SharedUse::Ticket SharedUse::Refuse() {
    std::this_thread::sleep_for(kLookAgainAfter);
    return {false, 0};
}

void SharedUse::Finish() {
    Enter(Phase::kDraining);
    const auto deadline = std::chrono::steady_clock::now() + kLongestWaitForOperations;
    while (state_.load().operations != 0) {
        if (std::chrono::steady_clock::now() >= deadline) return Enter(Phase::kAbandoned);
        std::this_thread::sleep_for(kLookAgainAfter);
    }
}

void SharedUse::ForgetOperationsInChild(int forks) {
    state_.store({0, static_cast<std::uint16_t>(forks), state_.load().phase});
}
