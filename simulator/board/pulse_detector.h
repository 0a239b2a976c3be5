// Finds pulses on one input, and tells by their length which of them count.
#ifndef MARVANE_SIMULATOR_BOARD_PULSE_DETECTOR_H
#define MARVANE_SIMULATOR_BOARD_PULSE_DETECTOR_H

#include <chrono>
#include <cstdint>
#include <optional>

namespace simulator {

struct PulseSettings {
    std::uint8_t pulseParameter = 0;
    std::uint8_t activeState = 0;
    std::uint8_t extendedPulseParameter = 0;

    bool operator==(const PulseSettings&) const = default;
};

class PulseDetector {
public:
    /// Begins to watch an input that has this level now.
    PulseDetector(PulseSettings pulseSettings, bool level)
        : settings(pulseSettings), active(IsActive(level)) {}

    /// A millisecond has passed; true when a pulse has ended that counts.
    bool Tick(bool level);

    bool IsInPulse() const { return length.has_value(); }
    /// Nothing is to be found as long as the input stays at this level.
    bool IsSettled(bool level) const;

private:
    bool IsActive(bool level) const { return level == (settings.activeState != 0); }
    bool Counts(std::chrono::milliseconds pulse) const;

    PulseSettings settings;
    bool active;                                      // when last looked at
    std::optional<std::chrono::milliseconds> length;  // of the pulse under way
};

}  // namespace simulator

#endif
