// The outputs' commands, and what is to be seen of each output.
#include "board/outputs.h"

namespace simulator {
namespace {

constexpr std::size_t kPatternBytes = 5;

// The two highest bits of the last byte stand for no output and are dropped.
OutputPattern PatternOf(ByteView bytes) {
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < kPatternBytes; ++i)
        bits |= std::uint64_t{bytes[i]} << (8 * i);
    return OutputPattern(bits);
}

}  // namespace

// An output in both masks ends up off.
Answer BoardOutputs::Modify(ByteView payload) {
    const OutputPattern on = PatternOf(payload.first(kPatternBytes));
    const OutputPattern off = PatternOf(payload.subspan(kPatternBytes));
    onPeriod = (onPeriod | on) & ~off;
    offPeriod = (offPeriod | on) & ~off;
    return {};
}

Answer BoardOutputs::SetOnPeriod(ByteView payload) {
    onPeriod = PatternOf(payload);
    return {};
}

Answer BoardOutputs::SetOffPeriod(ByteView payload) {
    offPeriod = PatternOf(payload);
    return {};
}

Answer BoardOutputs::SetBrightness(ByteView payload) {
    if (payload[0] > kFullBrightness) return Refuse(status::kOutOfRange);
    brightness = payload[0];
    return {};
}

Answer BoardOutputs::PulseOn(ByteView payload) {
    return BeginPulse(payload, true);
}

Answer BoardOutputs::PulseOff(ByteView payload) {
    return BeginPulse(payload, false);
}

Answer BoardOutputs::BeginPulse(ByteView payload, bool level) {
    const std::uint8_t value = payload[0];
    const std::uint8_t output = payload[1];
    if (output >= kPulsedOutputCount) return Refuse(status::kOutOfRange);

    Pulse& pulse = pulses[output];
    pulse.level = level;
    pulse.end = time() + value * kPulseUnit;
    ++(level ? pulse.onCount : pulse.offCount);
    lastPulsed = output;
    return {};
}

Answer BoardOutputs::ReportPulse(ByteView) {
    const auto result = [](PulseState state, std::uint8_t output, std::int64_t unitsLeft) {
        return Answer{
            status::kAccepted,
            {static_cast<std::uint8_t>(state), output, static_cast<std::uint8_t>(unitsLeft)}};
    };
    if (!lastPulsed) return result(PulseState::kNone, 0, 0);

    const auto left = pulses[*lastPulsed].end - time();
    if (left.count() <= 0) return result(PulseState::kEnded, *lastPulsed, 0);
    const auto unitsBegun = (left + kPulseUnit - std::chrono::milliseconds(1)) / kPulseUnit;
    return result(PulseState::kRunning, *lastPulsed, unitsBegun);
}

Lamp BoardOutputs::LampOf(unsigned output) const {
    if (output >= kOutputCount) return Lamp::kOff;
    if (driven[output]) return Lamp::kOn;
    if (IsPulsing(output)) return pulses[output].level ? Lamp::kOn : Lamp::kOff;
    if (onPeriod[output]) return offPeriod[output] ? Lamp::kOn : Lamp::kOnPeriod;
    return offPeriod[output] ? Lamp::kOffPeriod : Lamp::kOff;
}

bool BoardOutputs::IsPulsing(unsigned output) const {
    return output < kPulsedOutputCount && time() < pulses[output].end;
}

unsigned BoardOutputs::OnPulses(unsigned output) const {
    return output < kPulsedOutputCount ? pulses[output].onCount : 0;
}

unsigned BoardOutputs::OffPulses(unsigned output) const {
    return output < kPulsedOutputCount ? pulses[output].offCount : 0;
}

void BoardOutputs::PowerUp() {
    onPeriod.reset();
    offPeriod.reset();
    brightness = kFullBrightness;
    pulses.fill({});
    lastPulsed.reset();
}

}  // namespace simulator
