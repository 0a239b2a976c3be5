/**
 * @file kbase_implementation_pulsed_inputs.cpp
 * @brief Pulse counters and parallel hoppers: the board counts and pays, the library asks it to.
 */
#include "kbase_implementation.h"

int KBaseImplementation::CheckPulsedInput(_usbInputBitId input) const {
    if (input >= kCountedInputCount) return Fail(USB_ERR_OUT_OF_RANGE);
    if (pulsedInputConfigured[input].load(std::memory_order_relaxed) != 1) {
        return Fail(USB_ERR_NOT_CONFIGURED);
    }
    return 1;
}

void KBaseImplementation::MarkPulsedInput(_usbInputBitId input) {
    if (input < kInputCount) pulsedInputConfigured[input].store(1, std::memory_order_relaxed);
}

int KBaseImplementation::ConfigurePulsedInput(_usbInputBitId input, unsigned char pulseParameter,
                                              ActiveState activeState) {
    return ConfigurePulsedInputEx(input, pulseParameter, 0, activeState);
}

int KBaseImplementation::ConfigurePulsedInputEx(_usbInputBitId input, unsigned char pulseParameter,
                                                unsigned char extendedPulseParameter,
                                                ActiveState activeState) {
    if (input >= kInputCount) return Fail(USB_ERR_OUT_OF_RANGE);
    if (!Exchange(commands::kConfigurePulsedInput, Payload()
                                                       .Byte(input)
                                                       .Byte(pulseParameter)
                                                       .Byte(activeState)
                                                       .Byte(extendedPulseParameter))) {
        return 0;
    }
    MarkPulsedInput(input);
    return 1;
}

int KBaseImplementation::BeginPulsedInputCheck(_usbInputBitId input) {
    return CheckPulsedInput(input) &&
           Exchange(commands::kPulsedInputCheck, Payload().Byte(input).Byte(1));
}

int KBaseImplementation::EndPulsedInputCheck(_usbInputBitId input) {
    return CheckPulsedInput(input) &&
           Exchange(commands::kPulsedInputCheck, Payload().Byte(input).Byte(0));
}

int KBaseImplementation::ResetPulsedInputCounter(_usbInputBitId input) {
    return CheckPulsedInput(input) && Exchange(commands::kResetCounter, Payload().Byte(input));
}

int KBaseImplementation::DecrementPulsedInputCounter(_usbInputBitId input) {
    return CheckPulsedInput(input) && Exchange(commands::kDecrementCounter, Payload().Byte(input));
}

int KBaseImplementation::ReadPulsedInputCounter(_usbInputBitId input, unsigned char* count) {
    if (count == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (!CheckPulsedInput(input)) return 0;

    Reply reply;
    if (!Exchange(commands::kReadCounter, Payload().Byte(input), reply)) return 0;

    *count = reply.Byte(0);
    return 1;
}

int KBaseImplementation::GetParallelHopperStatus(_usbInputBitId input,
                                                 ReleaseHopperCoinsStatus* status,
                                                 unsigned char* count) {
    if (count == nullptr || status == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (input >= kCountedInputCount) return Fail(USB_ERR_OUT_OF_RANGE);

    Reply reply;
    if (!Exchange(commands::kHopperStatus, Payload().Byte(input), reply)) return 0;

    *status = static_cast<ReleaseHopperCoinsStatus>(reply.Byte(0));
    *count = reply.Byte(1);
    return 1;
}

int KBaseImplementation::GetPulsedInputStatus(_usbInputBitId input, unsigned int* status,
                                              unsigned char* count) {
    if (status == nullptr) return Fail(USB_ERR_NULL_POINTER);

    // A failure leaves the start value, and so stores 0: no caller takes an old 1 for an answer.
    ReleaseHopperCoinsStatus hopperStatus = USB_HOPPER_STATUS_2;
    const int result = GetParallelHopperStatus(input, &hopperStatus, count);
    *status = hopperStatus == USB_HOPPER_STATUS_4 ? 1 : 0;
    return result;
}

int KBaseImplementation::ReleaseParallelHopperCoins(
    _usbInputBitId input, unsigned char pulseParameter, ActiveState activeState,
    _usbOutputBitId releaseOutput, unsigned short coinCount, unsigned char releaseParameter) {
    return ReleaseParallelHopperCoinsEx(input, pulseParameter, 0, activeState, releaseOutput,
                                        coinCount, releaseParameter);
}

int KBaseImplementation::ReleaseParallelHopperCoinsEx(
    _usbInputBitId input, unsigned char pulseParameter, unsigned char extendedPulseParameter,
    ActiveState activeState, _usbOutputBitId releaseOutput, unsigned short coinCount,
    unsigned char releaseParameter) {
    if (input >= kInputCount || releaseOutput >= kOutputCount) return Fail(USB_ERR_OUT_OF_RANGE);
    return Exchange(commands::kReleaseHopperCoins, Payload()
                                                       .Byte(input)
                                                       .Byte(pulseParameter)
                                                       .Byte(activeState)
                                                       .Byte(releaseOutput)
                                                       .HighFirst(coinCount)
                                                       .Byte(releaseParameter)
                                                       .Byte(extendedPulseParameter));
}

int KBaseImplementation::StopHopperCoinRelease(_usbInputBitId input) {
    if (input >= kInputCount) return Fail(USB_ERR_OUT_OF_RANGE);
    return Exchange(commands::kStopHopper, Payload().Byte(input));
}
