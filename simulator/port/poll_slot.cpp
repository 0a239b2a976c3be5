// Turns of messages, and the options by which replies are kept.
#include "port/poll_slot.h"

#include <numeric>
#include <utility>

#include "terms/time.h"

namespace simulator {
namespace {

using namespace poll_mode;

enum Option : std::uint8_t { kChangesOnly = 1, kLatestOnly = 2 };
constexpr std::uint8_t kCctalkVariant = 1;

}  // namespace

bool PollSlot::IsPolling() const {
    if (isStopped || settings.mode == kOff) return false;
    return !settings.first.empty() || (settings.mode == kInTurn && !settings.second.empty());
}

bool PollSlot::IsRight(const SerialFrame& reply) const {
    return settings.variant != kCctalkVariant ||
           std::accumulate(reply.begin(), reply.end(), 0u) % 256 == 0;
}

void PollSlot::Tick() {
    if (!IsPolling()) return;
    passed += kTick;
    if (passed >= settings.period) {
        passed = {};
        isDue = true;
    }
    if (hostTimeout.count() == 0) return;
    unread += kTick;
    if (unread < hostTimeout) return;
    isStopped = true;
    isDue = false;
}

void PollSlot::StartAgain() {
    isStopped = false;
    passed = {};
}

const SerialWords& PollSlot::NextMessage() {
    const bool isSecond = isSecondNext;
    isSecondNext = settings.mode == kInTurn && !isSecond;
    return isSecond ? settings.second : settings.first;
}

void PollSlot::Keep(SerialFrame reply) {
    const bool isSame = reply == lastReply;
    lastReply = reply;
    if (settings.option == kLatestOnly) {
        inbox.Replace(std::move(reply));
    } else if (settings.option != kChangesOnly || !isSame) {
        inbox.Add(std::move(reply));
    }
}

}  // namespace simulator
