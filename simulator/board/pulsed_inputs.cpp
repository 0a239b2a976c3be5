// Counts the pulses of the inputs that are checked.
#include "board/pulsed_inputs.h"

namespace simulator {
namespace {

constexpr std::uint8_t kIdle = 0;
constexpr std::uint8_t kPulseSeen = 4;

}  // namespace

Answer BoardPulsedInputs::Configure(ByteView payload, const BoardInputs& inputs) {
    const std::uint8_t number = payload[0];
    if (number >= kInputCount) return Refuse(status::kOutOfRange);

    PulsedInput& input = pulsedInputs[number];
    const PulseSettings settings{
        .pulseParameter = payload[1],
        .activeState = payload[2],
        .extendedPulseParameter = payload.size() > 3 ? payload[3] : std::uint8_t{0},
    };
    if (input.settings == settings) return {};
    input.settings = settings;
    if (input.check) input.check.emplace(settings, inputs.Level(number));
    return {};
}

template <class Act>
Answer BoardPulsedInputs::OnConfigured(std::uint8_t input, Act act) {
    if (input >= kCountedInputCount) return Refuse(status::kOutOfRange);
    if (!pulsedInputs[input].settings) return Refuse(status::kNotConfigured);
    return act(pulsedInputs[input]);
}

Answer BoardPulsedInputs::BeginOrEndCheck(ByteView payload, const BoardInputs& inputs) {
    if (payload[1] > 1) return Refuse(status::kOutOfRange);
    return OnConfigured(payload[0], [&](PulsedInput& input) -> Answer {
        if (payload[1] == 0) {
            input.check.reset();
            return {};
        }
        if (!input.check) input.check.emplace(*input.settings, inputs.Level(payload[0]));
        input.pulseSeen = false;
        input.hasStatus = true;
        return {};
    });
}

Answer BoardPulsedInputs::ResetCounter(ByteView payload) {
    return OnConfigured(payload[0], [](PulsedInput& input) -> Answer {
        input.counter = 0;
        return {};
    });
}

Answer BoardPulsedInputs::DecrementCounter(ByteView payload) {
    return OnConfigured(payload[0], [](PulsedInput& input) -> Answer {
        if (input.counter > 0) --input.counter;
        return {};
    });
}

Answer BoardPulsedInputs::ReadCounter(ByteView payload) {
    return OnConfigured(payload[0], [](PulsedInput& input) -> Answer {
        return {status::kAccepted, {input.counter}};
    });
}

const std::optional<PulseSettings>& BoardPulsedInputs::Settings(unsigned input) const {
    return pulsedInputs[input].settings;
}

std::optional<InputStatus> BoardPulsedInputs::Status(unsigned input) const {
    const PulsedInput& pulsed = pulsedInputs[input];
    if (!pulsed.hasStatus) return std::nullopt;
    const bool reportsPulse = pulsed.pulseSeen && pulsed.counter > 0;
    return InputStatus{reportsPulse ? kPulseSeen : kIdle, pulsed.counter};
}

bool BoardPulsedInputs::IsIdle(const BoardInputs& inputs) const {
    for (unsigned n = 0; n < kInputCount; ++n) {
        const auto& check = pulsedInputs[n].check;
        if (check && !check->IsSettled(inputs.Level(n))) return false;
    }
    return true;
}

void BoardPulsedInputs::Tick(const BoardInputs& inputs) {
    for (unsigned n = 0; n < kInputCount; ++n) {
        PulsedInput& input = pulsedInputs[n];
        if (!input.check || !input.check->Tick(inputs.Level(n))) continue;
        input.pulseSeen = true;
        if (input.counter < 255) ++input.counter;
    }
}

}  // namespace simulator
