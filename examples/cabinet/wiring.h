/**
 * @file wiring.h
 * @brief What is connected to which input and output of this machine, and what its board's
 *   firmware makes of the bytes that the library carries.
 *
 * The first thing to change for another machine.
 */
#ifndef WIRING_H
#define WIRING_H

#include "marvaneusb.h"

// Inputs
constexpr _usbInputBitId kCoinInput = USB_INPUT_3;    // the coin mechanism's pulse for each coin
constexpr _usbInputBitId kStartButton = USB_INPUT_5;  // 1 while it is pressed
constexpr _usbInputBitId kHopperInput = USB_INPUT_8;  // the hopper's pulse for each coin paid

// Outputs
constexpr _usbOutputBitId kHopperOutput = USB_OUTPUT_30;  // the hopper's motor

enum class Lamp { kStart, kReel1, kReel2, kReel3, kWin, kAttendant };
constexpr unsigned kLampCount = 6;

struct LampWiring {
    const char* name;
    _usbOutputBitId output;
};
constexpr LampWiring kLamps[kLampCount] = {
    {"start", USB_OUTPUT_12},  {"reel 1", USB_OUTPUT_20}, {"reel 2", USB_OUTPUT_21},
    {"reel 3", USB_OUTPUT_22}, {"win", USB_OUTPUT_16},    {"attendant", USB_OUTPUT_37},
};

// The library gives these bytes no meaning. Here they mean what the simulated boards make of them;
// what a real board makes of them, its firmware decides.
constexpr unsigned char kShortestPulseMs = 5;  // of a coin; shorter ones are noise
constexpr ActiveState kPulseIsHigh = USB_ACTIVE_STATE_1;
constexpr unsigned char kPayWithoutPause = 0;
constexpr ReleaseHopperCoinsStatus kHopperIsIdle = USB_HOPPER_STATUS_0;
constexpr ReleaseHopperCoinsStatus kHopperPays = USB_HOPPER_STATUS_1;
constexpr ReleaseHopperCoinsStatus kHopperHasPaid = USB_HOPPER_STATUS_2;
constexpr unsigned kMostCoinsOfRelease = 200;  // the count of coins paid is one byte

constexpr unsigned kReelCount = 3;
constexpr unsigned short kStepsOfTurn = 200;    // configWord
constexpr unsigned char kMsOfStep = 2;          // configByte
constexpr unsigned char kSpinStepsForward = 1;  // spinSetting; spinValue counts the steps
constexpr usbRampTable kRampUp = {10, {20, 15, 12, 10, 8, 7, 6, 5, 4, 3}};  // ms of each step
constexpr usbRampTable kRampDown = {10, {3, 4, 5, 6, 7, 8, 10, 12, 15, 20}};

#endif  // WIRING_H
