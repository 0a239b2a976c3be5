// The recording of up to four inputs into the board's battery-backed memory.
//
// What follows is the simulator's own choice, boards may differ:
// - A sample is one byte: bit i is the level of slot i's input, 0 for an empty slot. The start
//   parameter (10 to 15000) is the time in ms before the first sample and between two.
// - The page that the area begins in counts as application memory does: from 13 on it lies three
//   pages higher, clear of the program, and so do the pages that an area runs on into. A recording
//   reads back at the address for which it was configured.
// - Status 0: not started since it was configured, 1: recording, 2: the area is full. The values
// are
//   the samples taken and those that still fit.
// - A configuration stops a recording, a start begins again at the area's first byte. Both are
//   forgotten without power; the samples are not.
#ifndef MARVANE_SIMULATOR_BOARD_RECORDING_H
#define MARVANE_SIMULATOR_BOARD_RECORDING_H

#include <array>
#include <optional>

#include "board/inputs.h"
#include "board/memory.h"
#include "terms/answer.h"
#include "terms/time.h"

namespace simulator {

constexpr std::uint8_t kEmptySlot = 255;

enum class RecordingState : std::uint8_t { kNotStarted = 0, kRecording = 1, kFull = 2 };

struct Recording {
    std::array<std::uint8_t, 4> slots{};  // inputs, or kEmptySlot
    std::size_t address = 0;              // as applications count
    std::size_t length = 0;
    RecordingState state = RecordingState::kNotStarted;
    std::chrono::milliseconds period{0};
    std::chrono::milliseconds sinceSample{0};
    std::size_t samples = 0;
};

class BoardRecording {
public:
    Answer Configure(Payload payload);
    Answer Start(Payload payload);
    Answer Report(Payload payload);

    /// Nothing before one was configured.
    const std::optional<Recording>& Current() const { return current; }

    bool IsIdle() const { return !current || current->state != RecordingState::kRecording; }
    void Tick(const BoardInputs& inputs, BoardMemory& memory);
    void PowerDown() { current.reset(); }

private:
    std::optional<Recording> current;
};

}  // namespace simulator

#endif
