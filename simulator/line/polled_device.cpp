// The device's frames and its queue of events.
#include "line/polled_device.h"

#include <functional>
#include <numeric>
#include <utility>

namespace simulator {
namespace {

constexpr std::uint8_t kStx = 2;

std::uint8_t CheckOf(std::span<const std::uint8_t> bytes) {
    return std::accumulate(bytes.begin(), bytes.end(), std::uint8_t{0}, std::bit_xor<>());
}

bool IsRight(std::span<const std::uint8_t> frame) {
    return CheckOf(frame) == 0;  // the last byte is that of all before
}

void AppendFrame(SerialWords& words, std::span<const std::uint8_t> data) {
    SerialFrame frame{kStx, static_cast<std::uint8_t>(data.size())};
    frame.insert(frame.end(), data.begin(), data.end());
    frame.push_back(CheckOf(frame));
    words.insert(words.end(), frame.begin(), frame.end());
}

}  // namespace

SerialWords PolledDevice::Hear(std::span<const SerialWord> words) {
    if (muted) return {};
    SerialWords answers;
    for (const SerialWord word : words) {
        if (collector.IsEmpty() && word != kStx) continue;
        const auto frame = collector.Take(word);
        if (!frame) continue;
        if (!IsRight(*frame)) {
            ++wrongFrames;
            continue;
        }
        ++rightFrames;
        AppendFrame(answers, NextEvent());
    }
    return answers;
}

SerialWords PolledDevice::Tick() {
    if (collector.Tick()) ++wrongFrames;
    return {};
}

std::vector<std::uint8_t> PolledDevice::NextEvent() {
    if (events.empty()) return {};
    std::vector<std::uint8_t> event = std::move(events.front());
    events.pop_front();
    return event;
}

void PolledDevice::Queue(std::span<const std::uint8_t> event) {
    if (event.empty() || event.size() > kPolledEventLimit) return;
    if (events.size() < kPolledQueueLimit) events.emplace_back(event.begin(), event.end());
}

void PolledDevice::Mute(bool on) {
    muted = on;
    collector.Clear();
}

}  // namespace simulator
