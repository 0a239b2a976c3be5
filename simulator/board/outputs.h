// The 38 outputs of a board: two patterns, the lamps' brightness, and pulses of single outputs.
// What it does where boards may differ: docs/simulator.md, "Outputs".
#ifndef MARVANE_SIMULATOR_BOARD_OUTPUTS_H
#define MARVANE_SIMULATOR_BOARD_OUTPUTS_H

#include <array>
#include <bitset>
#include <optional>
#include <utility>

#include "terms/answer.h"
#include "terms/time.h"

namespace simulator {

constexpr unsigned kOutputCount = 38;
constexpr unsigned kPulsedOutputCount = 32;
constexpr std::uint8_t kFullBrightness = 10;
constexpr std::chrono::milliseconds kPulseUnit{10};

/// Bit n is output n.
using OutputPattern = std::bitset<kOutputCount>;

enum class Lamp { kOff, kOnPeriod, kOffPeriod, kOn };

enum class PulseState : std::uint8_t { kNone = 0, kRunning = 1, kEnded = 2 };

class BoardOutputs {
public:
    explicit BoardOutputs(TimeSource boardTime) : time(std::move(boardTime)) {}

    Answer Modify(ByteView payload);
    Answer SetOnPeriod(ByteView payload);
    Answer SetOffPeriod(ByteView payload);
    Answer SetBrightness(ByteView payload);
    Answer PulseOn(ByteView payload);
    Answer PulseOff(ByteView payload);
    Answer ReportPulse(ByteView payload);

    /// What one sees of an output now, pulses and driving included; kOff for numbers beyond the
    /// last.
    Lamp LampOf(unsigned output) const;
    bool IsPulsing(unsigned output) const;
    /// By the board itself. Output 0 to 37.
    bool IsDriven(unsigned output) const { return driven[output]; }
    void Drive(unsigned output, bool on) { driven[output] = on; }
    /// Pulses of an output since power-up, those of value 0 included; 0 beyond the last.
    unsigned OnPulses(unsigned output) const;
    unsigned OffPulses(unsigned output) const;
    const OutputPattern& OnPeriod() const { return onPeriod; }
    const OutputPattern& OffPeriod() const { return offPeriod; }
    std::uint8_t Brightness() const { return brightness; }

    void PowerDown() { driven.reset(); }
    void PowerUp();

private:
    struct Pulse {
        bool level = false;
        Moment end = Moment::min();
        unsigned onCount = 0, offCount = 0;
    };
    Answer BeginPulse(ByteView payload, bool level);

    TimeSource time;
    OutputPattern onPeriod, offPeriod;
    OutputPattern driven;
    std::uint8_t brightness = kFullBrightness;
    std::array<Pulse, kPulsedOutputCount> pulses{};
    std::optional<std::uint8_t> lastPulsed;
};

}  // namespace simulator

#endif
