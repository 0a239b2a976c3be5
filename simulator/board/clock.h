// What the board's PIC does with its battery: the clock, the two failure flags, and the log of the
// security switches.
// What it does where boards may differ: docs/simulator.md, "Clock and security switches".
#ifndef MARVANE_SIMULATOR_BOARD_CLOCK_H
#define MARVANE_SIMULATOR_BOARD_CLOCK_H

#include <utility>

#include "terms/answer.h"
#include "terms/time.h"

namespace simulator {

constexpr unsigned kSecuritySwitchCount = 8;
constexpr std::size_t kSecurityLogLimit = 256;

struct SecurityEvent {
    std::uint32_t clock = 0;
    std::uint8_t switchByte = 0;

    bool operator==(const SecurityEvent&) const = default;
};

/// Bit n is about switch n.
struct SwitchFlags {
    std::uint8_t opened = 0, closed = 0;

    bool operator==(const SwitchFlags&) const = default;
};

/// What the PIC's battery keeps.
struct ClockContents {
    std::uint32_t offset = 0;  // what the clock is ahead of the time since 1970, in seconds
    bool clockFailed = false;
    bool batteryFailed = false;
    std::uint32_t clockAtBatteryFailure = 0;
    std::uint8_t openSwitches = 0;  // bit n is switch n
    SwitchFlags flags, cachedFlags;
    std::vector<SecurityEvent> log;  // the oldest first

    bool operator==(const ClockContents&) const = default;
};

class BoardClock {
public:
    explicit BoardClock(TimeSource boardTime) : time(std::move(boardTime)) {}

    Answer SetClock(ByteView payload);
    Answer ReadClock(ByteView payload);
    Answer TakeClockFailure(ByteView payload);
    Answer TakeBatteryFailure(ByteView payload);
    Answer ReadClockAtBatteryFailure(ByteView payload);
    Answer BeginLogPass(ByteView payload);
    Answer ReadNextLogEntry(ByteView payload);
    Answer ClearLog(ByteView payload);
    Answer TakeSwitchFlags(ByteView payload);
    Answer TakeCachedSwitchFlags(ByteView payload);

    /// Opens or closes a security switch, and logs it if that changes anything. Numbers beyond the
    /// last are ignored.
    void SetSwitch(unsigned number, bool open);
    void FailClock();
    void FailBattery();

    std::uint32_t Value() const;
    bool IsSwitchOpen(unsigned number) const;
    const ClockContents& Contents() const { return kept; }
    /// False, and nothing changed, when the log is longer than any that this unit writes.
    bool Restore(ClockContents contents);

    void PowerUp() { nextLogEntry = 0; }

private:
    std::uint32_t Seconds() const;
    void Log(SecurityEvent event);

    TimeSource time;
    ClockContents kept;
    std::size_t nextLogEntry = 0;  // of the pass over the log
};

}  // namespace simulator

#endif
