// The recording of up to four inputs into the board's battery-backed memory.
// What it does where boards may differ: docs/simulator.md, "Recordings".
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
    Answer Configure(ByteView payload);
    Answer Start(ByteView payload);
    Answer Report(ByteView payload);

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
