/**
 * @file kbase_implementation_reels.cpp
 * @brief Reels: the board turns them; the library checks what it is told and knows which it has.
 */
#include "kbase_implementation.h"

namespace {

/** The setting is a signed byte, whatever type carries it. */
int CheckSpinSetting(unsigned char spinSetting) {
    const auto setting = static_cast<signed char>(spinSetting);
    if (setting < kLowestSpinSetting || setting > kHighestSpinSetting) {
        return Fail(USB_ERR_OUT_OF_RANGE);
    }
    return 1;
}

int SendRamp(KBaseImplementation& board, Command command, unsigned char reel,
             const usbRampTable& table) {
    if (reel >= kReelCount) return Fail(USB_ERR_BAD_REEL);
    if (table.length > kRampStepCount) return Fail(USB_ERR_OUT_OF_RANGE);
    return board.Exchange(command,
                          Payload().Byte(reel).Byte(table.length).Bytes(table.steps, table.length));
}

}  // namespace

int KBaseImplementation::CheckReel(unsigned char reel) const {
    if (reel >= kReelCount || reelConfigured[reel].load(std::memory_order_relaxed) != 1) {
        return Fail(USB_ERR_NOT_CONFIGURED);
    }
    return 1;
}

int KBaseImplementation::ConfigureReelsEx(unsigned char reelCount, unsigned short configWord,
                                          unsigned char configByte) {
    if (reelCount > kReelCount) return Fail(USB_ERR_OUT_OF_RANGE);
    if (!Exchange(commands::kConfigureReels,
                  Payload().Byte(reelCount).HighFirst(configWord).Byte(configByte))) {
        return 0;
    }
    for (unsigned reel = 0; reel < reelCount; ++reel) {
        reelConfigured[reel].store(1, std::memory_order_relaxed);
    }
    return 1;
}

int KBaseImplementation::SpinReels(unsigned char reel, unsigned char spinSetting,
                                   unsigned short spinValue) {
    return CheckSpinSetting(spinSetting) && CheckReel(reel) &&
           Exchange(commands::kSpinReel,
                    Payload().Byte(reel).Byte(spinSetting).HighFirst(spinValue));
}

int KBaseImplementation::SpinRampUp(unsigned char reel, usbRampTable table) {
    return SendRamp(*this, commands::kRampUp, reel, table);
}

int KBaseImplementation::SpinRampDown(unsigned char reel, usbRampTable table) {
    return SendRamp(*this, commands::kRampDown, reel, table);
}

int KBaseImplementation::SetDutyCycle(unsigned char duty1, unsigned char duty2,
                                      unsigned char duty3) {
    return Exchange(commands::kSetDutyCycle, Payload().Byte(duty1).Byte(duty2).Byte(duty3));
}

int KBaseImplementation::ReelSynchroniseEnable(unsigned char enable) {
    return Exchange(commands::kReelSynchronise, Payload().Byte(enable));
}

int KBaseImplementation::GetReelStatusEx(ReelStatusEx* status) {
    if (status == nullptr) return Fail(USB_ERR_NULL_POINTER);

    Reply reply;
    if (!Exchange(commands::kReelStatus, reply)) return 0;

    constexpr unsigned kBytesPerReel = 6;
    for (unsigned reel = 0; reel < kReelCount; ++reel) {
        const unsigned begin = reel * kBytesPerReel;
        status->word1[reel] = reply.HighFirst(begin);
        status->word2[reel] = reply.HighFirst(begin + 2);
        status->byte1[reel] = reply.Byte(begin + 4);
        status->byte2[reel] = reply.Byte(begin + 5);
    }
    return 1;
}

int KBaseImplementation::GetReelStatus(usbReelStatus* status) {
    if (status == nullptr) return Fail(USB_ERR_NULL_POINTER);

    ReelStatusEx wide;
    if (!GetReelStatusEx(&wide)) return 0;

    for (unsigned reel = 0; reel < kReelCount; ++reel) {
        status->word1[reel] = static_cast<unsigned char>(wide.word1[reel]);
        status->word2[reel] = static_cast<unsigned char>(wide.word2[reel]);
        status->byte1[reel] = wide.byte1[reel];
        status->byte2[reel] = wide.byte2[reel];
    }
    return 1;
}
