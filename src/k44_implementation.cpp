/**
 * @file k44_implementation.cpp
 * @brief The K44 board: its memory limit, and its refusals of what only the K50 can.
 */
#include "k44_implementation.h"

#include "k44_shared_implementation.h"

int K44_Implementation::PerformUSBIO(unsigned char command, int channel, unsigned char* in,
                                     unsigned long inLen, unsigned char* out,
                                     unsigned long* outLen) {
    return k44_shared::PerformUSBIO(*this, command, channel, in, inLen, out, outLen);
}

int K44_Implementation::GetBoardType(unsigned char* type) {
    return AnswerBoardType(BoardType::kK44, type);
}

int K44_Implementation::WriteSRAM(unsigned long address, unsigned char* data, unsigned int length) {
    return CheckMemoryRange(kK44MemoryLimit, USB_ERR_OUT_OF_RANGE, address, data, length) &&
           WriteMemory(
               k44_shared::WriteAccess(boardSpeed, hiCodeLoaded.load(std::memory_order_relaxed)),
               address, data, length);
}

int K44_Implementation::ReadSRAM(unsigned long address, unsigned char* data, unsigned long length) {
    return CheckMemoryRange(kK44MemoryLimit, USB_ERR_OUT_OF_RANGE, address, data, length) &&
           ReadMemory(k44_shared::ReadAccess(boardSpeed), address, data, length);
}

int K44_Implementation::ReadAndResetRTCFailure(unsigned char* /*flag*/) {
    return Fail(USB_ERR_NOT_SUPPORTED_K44);
}

int K44_Implementation::ReadClockAtBatteryFailure(unsigned long* /*time*/) {
    return Fail(USB_ERR_NOT_SUPPORTED_K44);
}
