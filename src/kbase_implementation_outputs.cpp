/**
 * @file kbase_implementation_outputs.cpp
 * @brief Driving the outputs: shared copies of both patterns, brightness and pulses.
 *
 * The copies hold what was last asked for, whether or not the board accepted it.
 */
#include "kbase_implementation.h"
#include "kbase_shared_implementation.h"

namespace {

using OutputHandle = Shared<usbOutput[kDeviceCount]>;
using OutputCopies = SharedProxy<usbOutput[kDeviceCount]>;

void ApplyMasks(usbOutput& copy, const usbOutput& on, const usbOutput& off) {
    for (unsigned i = 0; i < kOutputByteCount; ++i) {
        copy.bytes[i] = static_cast<unsigned char>((copy.bytes[i] | on.bytes[i]) & ~off.bytes[i]);
    }
}

/**
 * Each output alone, and none. Made beforehand: with nothing on its own stack SetOutputBit ends in
 * a jump, and saves a return, which is slow after a system call. Never changed.
 */
struct OutputMasks {
    constexpr OutputMasks() {
        for (unsigned n = 0; n < kOutputCount; ++n) {
            single[n].bytes[n / 8] = static_cast<unsigned char>(1U << n % 8);
        }
    }
    usbOutput none{};
    usbOutput single[kOutputCount]{};
};
constinit OutputMasks masks;

/** The lock of both patterns: "on" before "off", here and everywhere. */
class BothOutputCopies {
public:
    BothOutputCopies() : use_(SharedUse::Begin()) {
        if (use_.granted) Take();
    }
    BothOutputCopies(const BothOutputCopies&) = delete;
    BothOutputCopies& operator=(const BothOutputCopies&) = delete;
    ~BothOutputCopies() {
        GiveBack();
        SharedUse::End(use_);
    }

    [[nodiscard]] usbOutput* On(int deviceNo) const {
        return off_.IsNone() ? nullptr : SharedOutOnCopy.Find(deviceNo);
    }
    [[nodiscard]] usbOutput* Off(int deviceNo) const {
        return off_.IsNone() ? nullptr : SharedOutOffCopy.Find(deviceNo);
    }
    /** Which of the two cannot be had. */
    [[nodiscard]] const SharedObject& Missing() const {
        return on_.IsNone() ? SharedOutOnCopy : SharedOutOffCopy;
    }

private:
    /** Found on two sets, because the first one's has been removed, both are taken anew. */
    void Take() {
        do {
            GiveBack();
            on_ = SharedOutOnCopy.Take();
            if (on_.IsNone()) return;
            off_ = SharedOutOffCopy.Take();
        } while (!off_.IsNone() && off_ != on_);
    }
    void GiveBack() {
        if (!off_.IsNone()) SharedOutOffCopy.GiveBack(off_);
        if (!on_.IsNone()) SharedOutOnCopy.GiveBack(on_);
        off_ = on_ = {};
    }

    SharedUse::Ticket use_;
    OnSet on_;
    OnSet off_;
};

bool IsPeriodBit(_usbOutputId outputByte, int bit, unsigned int value) {
    if (outputByte >= kOutputByteCount || bit < 0 || bit > 7) return false;
    if (outputByte == kOutputByteCount - 1 && bit >= kLastOutputByteBits) return false;
    return value <= 1;
}

int ReplacePeriodOutputs(KBaseImplementation& board, OutputHandle& handle, usbOutput& pattern,
                         Command command) {
    OutputCopies copies(handle);
    usbOutput* copy = copies.Find(board.GetDeviceNo());
    if (copy == nullptr) return FailWithout(handle);

    *copy = pattern;
    return board.SetPeriodOutputs(pattern, command.code);
}

int ChangePeriodOutputBit(KBaseImplementation& board, OutputHandle& handle, _usbOutputId outputByte,
                          int bit, unsigned int value, Command command) {
    OutputCopies copies(handle);
    if (!IsPeriodBit(outputByte, bit, value)) return Fail(USB_ERR_OUT_OF_RANGE);
    usbOutput* copy = copies.Find(board.GetDeviceNo());
    if (copy == nullptr) return FailWithout(handle);

    const auto mask = static_cast<unsigned char>(1U << static_cast<unsigned>(bit));
    unsigned char& byte = copy->bytes[outputByte];
    byte = static_cast<unsigned char>(value == 1 ? byte | mask : byte & ~mask);
    return board.SetPeriodOutputs(*copy, command.code);
}

}  // namespace

int KBaseImplementation::ModifyOutputs(usbOutput* off, usbOutput* on) {
    // Both locks last until return, exchange included: the board sees the changes in the order
    // in which the locks were granted.
    const BothOutputCopies copies;
    if (on == nullptr || off == nullptr) return Fail(USB_ERR_NULL_POINTER);
    usbOutput* onCopy = copies.On(GetDeviceNo());
    usbOutput* offCopy = copies.Off(GetDeviceNo());
    if (onCopy == nullptr || offCopy == nullptr) return FailWithout(copies.Missing());

    // Each mask is read once: both copies and the board get the same.
    const usbOutput onMask = *on;
    const usbOutput offMask = *off;
    ApplyMasks(*onCopy, onMask, offMask);
    ApplyMasks(*offCopy, onMask, offMask);
    return Exchange(commands::kModifyOutputs, Payload().Bytes(onMask.bytes).Bytes(offMask.bytes));
}

int KBaseImplementation::SetOutputs(unsigned char* outputs) {
    if (outputs == nullptr) return Fail(USB_ERR_NULL_POINTER);

    usbOutput on;
    usbOutput off;
    for (unsigned i = 0; i < kOutputByteCount; ++i) {
        on.bytes[i] = outputs[i];
        off.bytes[i] = static_cast<unsigned char>(~on.bytes[i]);
    }
    return ModifyOutputs(&off, &on);
}

int KBaseImplementation::SetOutputBit(_usbOutputBitId outputBit, unsigned int value) {
    if (outputBit >= kOutputCount || value > 1) return Fail(USB_ERR_OUT_OF_RANGE);

    usbOutput* chosen = &masks.single[outputBit];
    return value == 1 ? ModifyOutputs(&masks.none, chosen) : ModifyOutputs(chosen, &masks.none);
}

int KBaseImplementation::SetPeriodOutputs(usbOutput& pattern, unsigned char command) {
    return Exchange({command, Channel::kDigitalIo}, Payload().Bytes(pattern.bytes));
}

int KBaseImplementation::SetOnPeriodOutputs(usbOutput pattern) {
    return ReplacePeriodOutputs(*this, SharedOutOnCopy, pattern, commands::kSetOnPeriod);
}

int KBaseImplementation::SetOffPeriodOutputs(usbOutput pattern) {
    return ReplacePeriodOutputs(*this, SharedOutOffCopy, pattern, commands::kSetOffPeriod);
}

int KBaseImplementation::SetOnPeriodOutputBit(_usbOutputId outputByte, int bit,
                                              unsigned int value) {
    return ChangePeriodOutputBit(*this, SharedOutOnCopy, outputByte, bit, value,
                                 commands::kSetOnPeriod);
}

int KBaseImplementation::SetOffPeriodOutputBit(_usbOutputId outputByte, int bit,
                                               unsigned int value) {
    return ChangePeriodOutputBit(*this, SharedOutOffCopy, outputByte, bit, value,
                                 commands::kSetOffPeriod);
}

int KBaseImplementation::SetOutputBrightness(unsigned char level) {
    if (level > kHighestBrightness) return Fail(USB_ERR_OUT_OF_RANGE);
    return Exchange(commands::kSetBrightness, Payload().Byte(level));
}

int KBaseImplementation::PulseOutput(unsigned char output, unsigned char pulseValue) {
    if (output >= kPulsedOutputCount) return Fail(USB_ERR_OUT_OF_RANGE);
    return Exchange(commands::kPulseOutput, Payload().Byte(pulseValue).Byte(output));
}

int KBaseImplementation::PulseOffOutput(unsigned char output, unsigned char pulseValue) {
    if (output >= kPulsedOutputCount) return Fail(USB_ERR_OUT_OF_RANGE);
    return Exchange(commands::kPulseOffOutput, Payload().Byte(pulseValue).Byte(output));
}

int KBaseImplementation::PulseOutputResult(unsigned char* result0, unsigned int* result1,
                                           unsigned int* result2) {
    if (result0 == nullptr || result1 == nullptr || result2 == nullptr) {
        return Fail(USB_ERR_NULL_POINTER);
    }

    Reply reply;
    if (!Exchange(commands::kPulseOutputResult, reply)) return 0;

    *result0 = reply.Byte(0);
    *result1 = reply.Byte(1);
    *result2 = reply.Byte(2);
    return 1;
}
