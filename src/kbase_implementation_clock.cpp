/**
 * @file kbase_implementation_clock.cpp
 * @brief Clock, failure flags and the security-switch log, all of which the board keeps.
 */
#include "kbase_implementation.h"

namespace {

int ReadFlag(KBaseImplementation& board, Command command, unsigned char* flag) {
    if (flag == nullptr) return Fail(USB_ERR_NULL_POINTER);

    Reply reply;
    if (!board.Exchange(command, reply)) return 0;

    *flag = reply.Byte(0);
    return 1;
}

int ReadFlagPair(KBaseImplementation& board, Command command, unsigned char* flags0,
                 unsigned char* flags1) {
    if (flags0 == nullptr || flags1 == nullptr) return Fail(USB_ERR_NULL_POINTER);

    Reply reply;
    if (!board.Exchange(command, reply)) return 0;

    *flags0 = reply.Byte(0);
    *flags1 = reply.Byte(1);
    return 1;
}

}  // namespace

int KBaseImplementation::ReadClockValue(Command command, unsigned long* time) {
    if (time == nullptr) return Fail(USB_ERR_NULL_POINTER);

    Reply reply;
    if (!Exchange(command, reply)) return 0;

    *time = reply.LowFirst32(0);
    return 1;
}

int KBaseImplementation::SetClock(unsigned long time) {
    return Exchange(commands::kSetClock, Payload().LowFirst32(time));
}

int KBaseImplementation::GetClock(unsigned long* time) {
    return ReadClockValue(commands::kGetClock, time);
}

int KBaseImplementation::ReadAndResetRTCFailure(unsigned char* flag) {
    return ReadFlag(*this, commands::kRtcFailure, flag);
}

int KBaseImplementation::ReadAndResetBatteryFailFlag(unsigned char* flag) {
    return ReadFlag(*this, commands::kBatteryFailFlag, flag);
}

int KBaseImplementation::StartSecuritySwitchRead() {
    return Exchange(commands::kStartSwitchRead);
}

int KBaseImplementation::NextSecuritySwitchRead(unsigned long* time, unsigned char* switches) {
    if (time == nullptr || switches == nullptr) return Fail(USB_ERR_NULL_POINTER);

    Reply reply;
    if (!Exchange(commands::kNextSwitchRead, reply)) return 0;

    *time = reply.LowFirst32(0);
    *switches = reply.Byte(4);
    return 1;
}

int KBaseImplementation::ClearSecuritySwitches() {
    return Exchange(commands::kClearSwitches);
}

int KBaseImplementation::ReadAndResetSecuritySwitchFlags(unsigned char* flags0,
                                                         unsigned char* flags1) {
    return ReadFlagPair(*this, commands::kSwitchFlags, flags0, flags1);
}

int KBaseImplementation::CachedReadAndResetSecuritySwitchFlags(unsigned char* flags0,
                                                               unsigned char* flags1) {
    return ReadFlagPair(*this, commands::kCachedSwitchFlags, flags0, flags1);
}
