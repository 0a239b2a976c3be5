// Counts the bytes of frames, and the silence within them.
#include "line/serial_frame.h"

#include <utility>

#include "terms/time.h"

namespace simulator {
namespace {

constexpr std::chrono::milliseconds kLongestSilence{50};

}  // namespace

std::optional<SerialFrame> SerialFrameCollector::Take(SerialWord word) {
    silence = {};
    frame.push_back(static_cast<std::uint8_t>(word));
    if (frame.size() <= lengthOffset) return std::nullopt;
    if (frame.size() < frame[lengthOffset] + lengthExtra) return std::nullopt;
    return std::exchange(frame, {});
}

bool SerialFrameCollector::Tick() {
    if (frame.empty()) return false;
    silence += kTick;
    if (silence < kLongestSilence) return false;
    frame.clear();
    return true;
}

}  // namespace simulator
