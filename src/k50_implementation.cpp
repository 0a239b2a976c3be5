/**
 * @file k50_implementation.cpp
 * @brief The K50 board: the only model that keeps the clock at a battery failure.
 */
#include "k50_implementation.h"

#include "k44_shared_implementation.h"

int K50_Implementation::PerformUSBIO(unsigned char command, int channel, unsigned char* in,
                                     unsigned long inLen, unsigned char* out,
                                     unsigned long* outLen) {
    return k44_shared::PerformUSBIO(*this, command, channel, in, inLen, out, outLen);
}

int K50_Implementation::GetBoardType(unsigned char* type) {
    return AnswerBoardType(BoardType::kK50, type);
}

int K50_Implementation::ReadClockAtBatteryFailure(unsigned long* time) {
    return ReadClockValue(commands::kClockAtBatteryFail, time);
}
