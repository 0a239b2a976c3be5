// How the board has a parallel hopper pay coins: it drives the hopper's output and counts.
// What it does where boards may differ: docs/simulator.md, "Hoppers".
#ifndef MARVANE_SIMULATOR_BOARD_RELEASES_H
#define MARVANE_SIMULATOR_BOARD_RELEASES_H

#include <array>
#include <optional>

#include "board/outputs.h"
#include "board/pulse_detector.h"
#include "board/pulsed_inputs.h"
#include "terms/answer.h"

namespace simulator {

enum class ReleaseStatus : std::uint8_t { kIdle = 0, kPaying = 1, kPaid = 2, kFailed = 3 };

struct Release {
    ReleaseStatus status = ReleaseStatus::kIdle;
    std::uint8_t output;
    unsigned wanted;
    unsigned paid = 0;
    std::chrono::milliseconds rest;  // after each coin
    PulseDetector detector;
    std::chrono::milliseconds restLeft{0};
    std::chrono::milliseconds waited{0};  // for the next coin, the output being driven
};

class BoardReleases {
public:
    Answer Begin(ByteView payload, const BoardInputs& inputs, BoardOutputs& outputs);
    Answer Stop(ByteView payload, BoardOutputs& outputs);

    // Of inputs 0 to 32.
    /// The latest one on the input since power-up, if there was any.
    const std::optional<Release>& On(unsigned input) const { return releases[input]; }
    bool IsDriving(unsigned input) const;
    InputStatus Status(unsigned input) const;

    bool IsIdle(const BoardInputs& inputs) const;
    void Tick(const BoardInputs& inputs, BoardOutputs& outputs);
    void PowerDown() { releases = {}; }

private:
    bool IsTaken(std::uint8_t input, std::uint8_t output) const;

    std::array<std::optional<Release>, kInputCount> releases;
};

}  // namespace simulator

#endif
