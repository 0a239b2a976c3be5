/**
 * @file lamps.cpp
 * @brief Each lamp is one output, which the board switches in both halves of the blinking period.
 */
#include "lamps.h"

#include "board_error.h"

void Lamps::AllOff() {
    states.fill(LampState::kOff);
    // No other output: it may be another program's.
    usbOutput none = {};
    usbOutput ours = {};
    for (const LampWiring& lamp : kLamps)
        ours.bytes[lamp.output / 8] |= static_cast<unsigned char>(1U << lamp.output % 8);
    Require(board.ModifyOutputs(&ours, &none), "switching the lamps off");
}

void Lamps::Set(Lamp lamp, LampState state) {
    const auto number = static_cast<std::size_t>(lamp);
    if (states[number] == state) return;
    states[number] = state;

    const _usbOutputBitId output = kLamps[number].output;
    if (state != LampState::kBlinking) {
        Require(board.SetOutputBit(output, state == LampState::kOn ? 1 : 0), "switching a lamp");
        return;
    }
    const auto byte = static_cast<_usbOutputId>(output / 8);
    const int bit = static_cast<int>(output % 8);
    Require(board.SetOffPeriodOutputBit(byte, bit, 0), "letting a lamp blink");
    Require(board.SetOnPeriodOutputBit(byte, bit, 1), "letting a lamp blink");
}

std::string Lamps::Describe() const {
    std::string text;
    for (std::size_t number = 0; number < kLampCount; ++number) {
        if (states[number] == LampState::kOff) continue;
        text += std::string(kLamps[number].name) +
                (states[number] == LampState::kOn ? " on, " : " blinking, ");
    }
    return text + (text.empty() ? "all off" : "all others off");
}
