// The recording's commands, and its samples as time passes.
#include "board/recording.h"

#include <algorithm>

#include "terms/byte_order.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kAreaLimit = 475134;  // of a K44's application memory, and of all recordings
constexpr unsigned kShortestPeriodMs = 10;
constexpr unsigned kLongestPeriodMs = 15000;

bool IsSlot(std::uint8_t slot) {
    return slot < kCountedInputCount || slot == kEmptySlot;
}

// Nothing when there is no such place.
std::optional<std::size_t> AddressOf(unsigned page, std::size_t offset) {
    if (page == 0 || offset >= kPageSize) return std::nullopt;
    return (page - 1) * kPageSize + offset;
}

std::uint8_t SampleOf(const std::array<std::uint8_t, 4>& slots, const BoardInputs& inputs) {
    unsigned sample = 0;
    for (std::size_t i = 0; i < slots.size(); ++i) {
        if (inputs.Level(slots[i])) sample |= 1U << i;  // low beyond the last, as in an empty slot
    }
    return static_cast<std::uint8_t>(sample);
}

}  // namespace

Answer BoardRecording::Configure(ByteView payload) {
    const ByteView slots = payload.first(4);
    const auto address = AddressOf(payload[4], HighFirst(payload.subspan(5, 2)));
    const std::size_t length = HighFirst(payload.subspan(7, 2));
    if (!std::ranges::all_of(slots, IsSlot) ||
        std::ranges::count(slots, kEmptySlot) == std::ssize(slots) || !address ||
        *address + length > kAreaLimit) {
        return Refuse(status::kOutOfRange);
    }
    current = Recording{.address = *address, .length = length};
    std::ranges::copy(slots, current->slots.begin());
    return {};
}

Answer BoardRecording::Start(ByteView payload) {
    const unsigned periodMs = HighFirst(payload);
    if (periodMs < kShortestPeriodMs || periodMs > kLongestPeriodMs) {
        return Refuse(status::kOutOfRange);
    }
    if (!current) return Refuse(status::kNotConfigured);
    current->state = current->length == 0 ? RecordingState::kFull : RecordingState::kRecording;
    current->period = milliseconds(periodMs);
    current->sinceSample = {};
    current->samples = 0;
    return {};
}

Answer BoardRecording::Report(ByteView) {
    const Recording recording = current.value_or(Recording{});
    const std::size_t room = recording.length - recording.samples;
    const auto byte = [](std::size_t number) { return static_cast<std::uint8_t>(number); };
    return {status::kAccepted,
            {static_cast<std::uint8_t>(recording.state), byte(recording.samples >> 8),
             byte(recording.samples), byte(room >> 8), byte(room)}};
}

void BoardRecording::Tick(const BoardInputs& inputs, BoardMemory& memory) {
    if (IsIdle()) return;
    current->sinceSample += kTick;
    if (current->sinceSample < current->period) return;
    current->sinceSample = {};
    memory.StoreForApplication(current->address + current->samples,
                               SampleOf(current->slots, inputs));
    ++current->samples;
    if (current->samples == current->length) current->state = RecordingState::kFull;
}

}  // namespace simulator
