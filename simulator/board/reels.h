// The three reels of a board, and how it turns them, step by step.
// What it does where boards may differ: docs/simulator.md, "Reels".
#ifndef MARVANE_SIMULATOR_BOARD_REELS_H
#define MARVANE_SIMULATOR_BOARD_REELS_H

#include <array>
#include <optional>

#include "terms/answer.h"
#include "terms/time.h"

namespace simulator {

constexpr unsigned kReelCount = 3;
constexpr std::size_t kLongestRamp = 60;

enum class Ramp : std::uint8_t { kNone = 0, kUp = 1, kDown = 2 };

struct Spin {
    bool forward = true;
    std::optional<unsigned> steps;  // on and on without
};

/// A stepper motor and the board's driver of it.
class Reel {
public:
    void Configure(unsigned stepsOfTurn, unsigned msOfStep);
    void SetRampUp(ByteView ms) { rampUp.assign(ms.begin(), ms.end()); }
    void SetRampDown(ByteView ms) { rampDown.assign(ms.begin(), ms.end()); }
    void Begin(Spin spin);
    void Stop();
    /// The hand of somebody; the position is below Steps().
    void Place(unsigned newPosition) { position = newPosition; }

    bool IsConfigured() const { return configured; }
    unsigned Steps() const { return steps; }
    unsigned StepMs() const { return stepMs; }
    unsigned Position() const { return position; }
    bool IsTurning() const { return motion.has_value(); }
    /// Nothing while it turns on and on.
    std::optional<unsigned> StepsLeft() const;
    /// That the step under way is part of.
    Ramp Ramping() const;

    void Advance(std::chrono::milliseconds time);
    void PowerDown();

private:
    struct Motion {
        Spin left;
        std::size_t stepsDone = 0;  // at most kLongestRamp
        std::chrono::milliseconds inStep{0};
    };
    std::chrono::milliseconds LengthOfStep() const;
    void TakeStep();

    bool configured = false;
    unsigned steps = 200, stepMs = 5;
    unsigned position = 0;
    std::vector<std::uint8_t> rampUp, rampDown;
    std::optional<Motion> motion;
};

class BoardReels {
public:
    Answer Configure(ByteView payload);
    Answer BeginSpin(ByteView payload);
    Answer SetRampUp(ByteView payload);
    Answer SetRampDown(ByteView payload);
    Answer SetDutyCycle(ByteView payload);
    Answer Synchronise(ByteView payload);
    Answer Report(ByteView payload);

    // Of reels 0 to 2.
    const Reel& At(unsigned reel) const { return reels[reel]; }
    void Place(unsigned reel, unsigned position) { reels[reel].Place(position); }
    const std::optional<Spin>& Waiting(unsigned reel) const { return waiting[reel]; }
    bool IsSynchronised() const { return synchronised; }
    const std::array<std::uint8_t, kReelCount>& DutyCycle() const { return dutyCycle; }

    /// At once, however long: what reels do concerns nothing else.
    void Advance(std::chrono::milliseconds time);
    void PowerDown();

private:
    bool AllAreTold() const;
    void BeginWaiting();

    std::array<Reel, kReelCount> reels;
    std::array<std::optional<Spin>, kReelCount> waiting;  // told while synchronised
    bool synchronised = false;
    std::array<std::uint8_t, kReelCount> dutyCycle{};
};

}  // namespace simulator

#endif
