// Measures pulses millisecond by millisecond.
#include "board/pulse_detector.h"

#include <algorithm>
#include <utility>

#include "terms/time.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kExtendedUnit{10};
// From here on it makes no difference how long a pulse lasts.
constexpr milliseconds kLongestMeasured = 255 * kExtendedUnit + kTick;

}  // namespace

bool PulseDetector::Tick(bool level) {
    const bool wasActive = std::exchange(active, IsActive(level));
    if (!active) {
        const auto ended = std::exchange(length, std::nullopt);
        return ended && Counts(*ended);
    }
    if (!wasActive) {
        length = kTick;
    } else if (length) {
        length = std::min(*length + kTick, kLongestMeasured);
    }
    return false;
}

bool PulseDetector::IsSettled(bool level) const {
    return IsActive(level) == active && (!length || *length == kLongestMeasured);
}

bool PulseDetector::Counts(milliseconds pulse) const {
    if (pulse < milliseconds(settings.pulseParameter)) return false;
    return settings.extendedPulseParameter == 0 ||
           pulse <= settings.extendedPulseParameter * kExtendedUnit;
}

}  // namespace simulator
