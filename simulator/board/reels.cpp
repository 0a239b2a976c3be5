// The reels' commands, and their steps as time passes.
#include "board/reels.h"

#include <algorithm>
#include <utility>

#include "terms/byte_order.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr unsigned kUsualSteps = 200;
constexpr unsigned kUsualStepMs = 5;
constexpr std::size_t kRampHeader = 2;  // reel, number of steps
constexpr unsigned kOnAndOn = 0xFFFF;

// Nothing for the setting that stops a reel.
std::optional<Spin> SpinOf(std::int8_t setting, unsigned value) {
    if (setting == 0) return std::nullopt;
    const bool ends = setting == 1 || setting == -1;
    return Spin{.forward = setting > 0, .steps = ends ? std::optional(value) : std::nullopt};
}

int CheckRamp(ByteView payload) {
    if (payload.size() != kRampHeader + payload[1]) return status::kMalformedPayload;
    return payload[0] < kReelCount ? status::kAccepted : status::kOutOfRange;
}

}  // namespace

void Reel::Configure(unsigned stepsOfTurn, unsigned msOfStep) {
    configured = true;
    steps = stepsOfTurn == 0 ? kUsualSteps : stepsOfTurn;
    stepMs = msOfStep == 0 ? kUsualStepMs : msOfStep;
    position %= steps;
}

void Reel::Begin(Spin spin) {
    if (spin.steps == 0U) {
        motion.reset();
    } else if (motion && motion->left.forward == spin.forward) {
        motion->left = spin;
    } else {
        motion = Motion{.left = spin};
    }
}

void Reel::Stop() {
    if (!motion) return;
    const auto onRamp = static_cast<unsigned>(rampDown.size());
    if (onRamp == 0) {
        motion.reset();
    } else {
        motion->left.steps = std::min(motion->left.steps.value_or(onRamp), onRamp);
    }
}

std::optional<unsigned> Reel::StepsLeft() const {
    return motion ? motion->left.steps : 0;
}

Ramp Reel::Ramping() const {
    if (!motion) return Ramp::kNone;
    if (motion->left.steps && *motion->left.steps <= rampDown.size()) return Ramp::kDown;
    return motion->stepsDone < rampUp.size() ? Ramp::kUp : Ramp::kNone;
}

milliseconds Reel::LengthOfStep() const {
    unsigned ms = stepMs;
    switch (Ramping()) {
        case Ramp::kNone:
            break;
        case Ramp::kUp:
            ms = rampUp[motion->stepsDone];
            break;
        case Ramp::kDown:
            ms = rampDown[rampDown.size() - *motion->left.steps];
            break;
    }
    return std::max(kTick, milliseconds(ms));
}

// What is told in the middle of a step may make it shorter than it has lasted already.
void Reel::Advance(milliseconds time) {
    while (motion && time.count() > 0) {
        const milliseconds untilStep = std::max(kTick, LengthOfStep() - motion->inStep);
        if (time < untilStep) {
            motion->inStep += time;
            return;
        }
        time -= untilStep;
        TakeStep();
    }
}

void Reel::TakeStep() {
    position = (position + (motion->left.forward ? 1 : steps - 1)) % steps;
    motion->inStep = {};
    motion->stepsDone = std::min(motion->stepsDone + 1, kLongestRamp);
    if (motion->left.steps && --*motion->left.steps == 0) motion.reset();
}

void Reel::PowerDown() {
    const unsigned kept = position;
    *this = {};
    position = kept;
}

Answer BoardReels::Configure(ByteView payload) {
    const std::size_t count = payload[0];
    if (count > kReelCount) return Refuse(status::kOutOfRange);
    for (std::size_t i = 0; i < count; ++i)
        reels[i].Configure(HighFirst(payload.subspan(1, 2)), payload[3]);
    return {};
}

Answer BoardReels::BeginSpin(ByteView payload) {
    const std::uint8_t number = payload[0];
    const auto setting = static_cast<std::int8_t>(payload[1]);
    if (number >= kReelCount || setting < -2 || setting > 2) return Refuse(status::kOutOfRange);
    Reel& reel = reels[number];
    if (!reel.IsConfigured()) return Refuse(status::kNotConfigured);

    waiting[number] = SpinOf(setting, HighFirst(payload.subspan(2, 2)));
    if (!waiting[number]) {
        reel.Stop();
    } else if (!synchronised || AllAreTold()) {
        BeginWaiting();
    }
    return {};
}

bool BoardReels::AllAreTold() const {
    for (unsigned n = 0; n < kReelCount; ++n) {
        if (reels[n].IsConfigured() && !waiting[n]) return false;
    }
    return true;
}

void BoardReels::BeginWaiting() {
    for (unsigned n = 0; n < kReelCount; ++n) {
        if (const auto spin = std::exchange(waiting[n], std::nullopt)) reels[n].Begin(*spin);
    }
}

Answer BoardReels::SetRampUp(ByteView payload) {
    if (const int refusal = CheckRamp(payload)) return Refuse(refusal);
    reels[payload[0]].SetRampUp(payload.subspan(kRampHeader));
    return {};
}

Answer BoardReels::SetRampDown(ByteView payload) {
    if (const int refusal = CheckRamp(payload)) return Refuse(refusal);
    reels[payload[0]].SetRampDown(payload.subspan(kRampHeader));
    return {};
}

Answer BoardReels::SetDutyCycle(ByteView payload) {
    std::ranges::copy(payload, dutyCycle.begin());
    return {};
}

Answer BoardReels::Synchronise(ByteView payload) {
    synchronised = payload[0] != 0;
    if (!synchronised) BeginWaiting();
    return {};
}

Answer BoardReels::Report(ByteView) {
    Answer answer;
    const auto append = [&](unsigned word) {
        answer.reply.push_back(static_cast<std::uint8_t>(word >> 8));
        answer.reply.push_back(static_cast<std::uint8_t>(word));
    };
    for (unsigned n = 0; n < kReelCount; ++n) {
        const Reel& reel = reels[n];
        const bool waits = !reel.IsTurning() && waiting[n];
        append(reel.Position());
        append((waits ? waiting[n]->steps : reel.StepsLeft()).value_or(kOnAndOn));
        answer.reply.push_back(reel.IsTurning() ? 1 : 0);
        answer.reply.push_back(static_cast<std::uint8_t>(reel.Ramping()));
    }
    return answer;
}

void BoardReels::Advance(milliseconds time) {
    for (Reel& reel : reels)
        reel.Advance(time);
}

void BoardReels::PowerDown() {
    for (Reel& reel : reels)
        reel.PowerDown();
    waiting = {};
    synchronised = false;
    dutyCycle = {};
}

}  // namespace simulator
