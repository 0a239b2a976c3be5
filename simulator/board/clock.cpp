// The commands of the clock and the security switches, and the cabinet's doors and batteries.
#include "board/clock.h"

#include <utility>

#include "terms/byte_order.h"

namespace simulator {
namespace {

constexpr std::uint8_t kOpened = 0x80;  // in a switch byte

Answer ClockAnswer(std::uint32_t value) {
    Answer answer;
    AppendLowFirst(answer.reply, value);
    return answer;
}

Answer TakeFlag(bool& flag) {
    const bool failed = std::exchange(flag, false);
    return {status::kAccepted, {static_cast<std::uint8_t>(failed ? 1 : 0)}};
}

Answer TakeFlags(SwitchFlags& flags) {
    const auto [opened, closed] = std::exchange(flags, {});
    return {status::kAccepted, {opened, closed}};
}

void Raise(SwitchFlags& flags, std::uint8_t mask, bool open) {
    (open ? flags.opened : flags.closed) |= mask;
}

}  // namespace

std::uint32_t BoardClock::Seconds() const {
    const auto sinceStart = std::chrono::floor<std::chrono::seconds>(time()).time_since_epoch();
    return static_cast<std::uint32_t>(sinceStart.count());
}

std::uint32_t BoardClock::Value() const {
    return Seconds() + kept.offset;
}

Answer BoardClock::SetClock(ByteView payload) {
    kept.offset = LowFirst(payload) - Seconds();
    return {};
}

Answer BoardClock::ReadClock(ByteView) {
    return ClockAnswer(Value());
}

Answer BoardClock::TakeClockFailure(ByteView) {
    return TakeFlag(kept.clockFailed);
}

Answer BoardClock::TakeBatteryFailure(ByteView) {
    return TakeFlag(kept.batteryFailed);
}

Answer BoardClock::ReadClockAtBatteryFailure(ByteView) {
    return ClockAnswer(kept.clockAtBatteryFailure);
}

Answer BoardClock::BeginLogPass(ByteView) {
    nextLogEntry = 0;
    return {};
}

Answer BoardClock::ReadNextLogEntry(ByteView) {
    SecurityEvent entry;
    if (nextLogEntry < kept.log.size()) entry = kept.log[nextLogEntry++];
    Answer answer = ClockAnswer(entry.clock);
    answer.reply.push_back(entry.switchByte);
    return answer;
}

Answer BoardClock::ClearLog(ByteView) {
    kept.log.clear();
    nextLogEntry = 0;
    return {};
}

Answer BoardClock::TakeSwitchFlags(ByteView) {
    return TakeFlags(kept.flags);
}

Answer BoardClock::TakeCachedSwitchFlags(ByteView) {
    return TakeFlags(kept.cachedFlags);
}

void BoardClock::SetSwitch(unsigned number, bool open) {
    if (number >= kSecuritySwitchCount || IsSwitchOpen(number) == open) return;

    const auto mask = static_cast<std::uint8_t>(1u << number);
    kept.openSwitches ^= mask;
    Raise(kept.flags, mask, open);
    Raise(kept.cachedFlags, mask, open);
    Log({Value(), static_cast<std::uint8_t>((number + 1) | (open ? kOpened : 0))});
}

void BoardClock::Log(SecurityEvent event) {
    kept.log.push_back(event);
    if (kept.log.size() <= kSecurityLogLimit) return;
    // A pass under way goes on where it was.
    kept.log.erase(kept.log.begin());
    if (nextLogEntry > 0) --nextLogEntry;
}

void BoardClock::FailClock() {
    kept.clockFailed = true;
    kept.offset = 0 - Seconds();
}

void BoardClock::FailBattery() {
    kept.batteryFailed = true;
    kept.clockAtBatteryFailure = Value();
}

bool BoardClock::IsSwitchOpen(unsigned number) const {
    return number < kSecuritySwitchCount && (kept.openSwitches >> number & 1) != 0;
}

bool BoardClock::Restore(ClockContents contents) {
    if (contents.log.size() > kSecurityLogLimit) return false;
    kept = std::move(contents);
    nextLogEntry = 0;
    return true;
}

}  // namespace simulator
