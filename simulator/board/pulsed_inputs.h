// Pulses that the board finds on its inputs, and one counter of them for each input.
// What it does where boards may differ: docs/simulator.md, "Pulsed inputs".
#ifndef MARVANE_SIMULATOR_BOARD_PULSED_INPUTS_H
#define MARVANE_SIMULATOR_BOARD_PULSED_INPUTS_H

#include <array>
#include <optional>

#include "board/inputs.h"
#include "board/pulse_detector.h"
#include "terms/answer.h"

namespace simulator {

/// Status and count, as the board reports them for an input.
using InputStatus = std::array<std::uint8_t, 2>;

class BoardPulsedInputs {
public:
    Answer Configure(ByteView payload, const BoardInputs& inputs);
    Answer BeginOrEndCheck(ByteView payload, const BoardInputs& inputs);
    Answer ResetCounter(ByteView payload);
    Answer DecrementCounter(ByteView payload);
    Answer ReadCounter(ByteView payload);

    // Of inputs 0 to 32.
    /// Nothing before the input was configured.
    const std::optional<PulseSettings>& Settings(unsigned input) const;
    bool IsChecking(unsigned input) const { return pulsedInputs[input].check.has_value(); }
    std::uint8_t Counter(unsigned input) const { return pulsedInputs[input].counter; }
    /// Of the check that was begun since anything else was begun on the input; else nothing.
    std::optional<InputStatus> Status(unsigned input) const;
    /// Something else was begun on the input.
    void GiveUpStatus(unsigned input) { pulsedInputs[input].hasStatus = false; }

    bool IsIdle(const BoardInputs& inputs) const;
    void Tick(const BoardInputs& inputs);
    void PowerDown() { pulsedInputs = {}; }

private:
    struct PulsedInput {
        std::optional<PulseSettings> settings;
        std::optional<PulseDetector> check;  // while one runs
        std::uint8_t counter = 0;
        bool pulseSeen = false;
        bool hasStatus = false;
    };
    // Inputs from 24 on are configured and never checked.
    template <class Act>
    Answer OnConfigured(std::uint8_t input, Act act);

    std::array<PulsedInput, kInputCount> pulsedInputs;
};

}  // namespace simulator

#endif
