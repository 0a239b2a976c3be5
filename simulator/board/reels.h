// The three reels of a board, and how it turns them, step by step.
//
// What follows is the simulator's own choice, boards may differ:
// - configWord: steps of a revolution (0: 200). configByte: ms that a step takes at full speed (0:
//   5). A configuration of n reels is about reels 0 to n - 1; the others keep theirs. It stops
//   nothing; a position that a reel then has no more is taken modulo its steps.
// - Spin setting 1 or -1: spinValue steps forward or backward, then the reel stops. 2 or -2: on and
//   on. 0: down the ramp and stop; without a ramp at once. A new spin of a turning reel in its
//   direction replaces what is left, without a new ramp; in the other direction it begins afresh.
//   No steps at all stop the reel at once.
// - An entry of a ramp is the time of one step in ms (0: 1). The first n steps of a spin are the
//   ramp up's, the last n before the stop the ramp down's, which wins where the two meet; all
//   others take full speed. What is told in the middle of a step goes for this step already. Ramps
//   may be told before the reel is configured.
// - While the reels are synchronised (any value but 0), spins wait until each configured reel has
//   been told one, then all begin. Switching it off begins those that wait; a stop forgets one.
// - Status: word 1 is the position, 0 to steps - 1, word 2 the steps that are left, of a spin that
//   waits also (0xFFFF: on and on), byte 1 is 1 while the reel turns, byte 2 is 1 on the ramp up
//   and 2 on the ramp down.
// - Duty cycles change nothing. A reel stays where it is without power, everything else is lost.
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
    void SetRampUp(Payload ms) { rampUp.assign(ms.begin(), ms.end()); }
    void SetRampDown(Payload ms) { rampDown.assign(ms.begin(), ms.end()); }
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
    Answer Configure(Payload payload);
    Answer BeginSpin(Payload payload);
    Answer SetRampUp(Payload payload);
    Answer SetRampDown(Payload payload);
    Answer SetDutyCycle(Payload payload);
    Answer Synchronise(Payload payload);
    Answer Report(Payload payload);

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
