/**
 * @file k40_implementation.cpp
 * @brief The K40 board: its transfer record and its request forms.
 */
#include "k40_implementation.h"

#include <sys/ioctl.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::size_t kRecordDataSize = 512;
constexpr unsigned long kLongestPayload = kRecordDataSize - 1;  // byte 0 is the command
constexpr std::uint32_t kLongestReply = 64;                     // echo and status included
constexpr std::uint32_t kReplyHeader = 2;

struct K40TransferRecord {
    // All but what a reply can reach stays as it is: the driver sends writeLength bytes.
    K40TransferRecord() {  // NOLINT(cppcoreguidelines-pro-type-member-init)
        std::memset(data, 0, kLongestReply);
    }

    std::uint32_t writeChannel;
    std::uint32_t readChannel;
    std::uint32_t writeLength;
    std::uint32_t readLength;  // longest reply accepted; the driver stores the length that came
    unsigned char data[kRecordDataSize];  // command, payload; the reply is written over it
};

static_assert(sizeof(K40TransferRecord) == 528);
static_assert(offsetof(K40TransferRecord, writeChannel) == 0);
static_assert(offsetof(K40TransferRecord, readChannel) == 4);
static_assert(offsetof(K40TransferRecord, writeLength) == 8);
static_assert(offsetof(K40TransferRecord, readLength) == 12);
static_assert(offsetof(K40TransferRecord, data) == 16);

constexpr unsigned long kTransferRequest = _IOWR(0x81, 0, K40TransferRecord);
static_assert(kTransferRequest == 0xC2108100);

}  // namespace

int K40Implementation::PerformUSBIO(unsigned char command, int channel, unsigned char* in,
                                    unsigned long inLen, unsigned char* out,
                                    unsigned long* outLen) {
    if (outLen == nullptr || (in == nullptr && inLen > 0)) return Fail(USB_ERR_NULL_POINTER);
    if (inLen > kLongestPayload) return Fail(USB_ERR_DATA_TOO_LONG);

    K40TransferRecord record;
    record.writeChannel = static_cast<std::uint32_t>(channel);
    record.readChannel = record.writeChannel;
    record.writeLength = static_cast<std::uint32_t>(inLen) + 1;
    record.readLength = kLongestReply;
    record.data[0] = command;
    if (inLen > 0) std::memcpy(record.data + 1, in, inLen);

    // An exchange that a signal interrupted is not repeated: the board may have acted on it.
    if (ioctl(deviceHandle, kTransferRequest, &record) != 0) {
        return FailExchange(Failure::Kind::kDriver, USB_ERR_TRANSFER_FAILED, command, channel,
                            errno);
    }
    const std::uint32_t length = record.readLength - kReplyHeader;  // wraps when shorter
    if (length > kLongestReply - kReplyHeader) {
        return FailExchange(Failure::Kind::kReplyLength, USB_ERR_DATA_TOO_LONG, command, channel);
    }
    if (record.data[0] != command) {
        return FailExchange(Failure::Kind::kOtherEcho, USB_ERR_TRANSFER_FAILED, command, channel);
    }
    const auto status = static_cast<std::int8_t>(record.data[1]);
    if (status != 0) return FailExchange(Failure::Kind::kStatus, status, command, channel);

    *outLen = length;
    if (out != nullptr) std::memcpy(out, record.data + kReplyHeader, length);
    return 1;
}

int K40Implementation::GetBoardType(unsigned char* type) {
    return AnswerBoardType(BoardType::kK40, type);
}

int K40Implementation::ConfigurePulsedInput(_usbInputBitId input, unsigned char pulseParameter,
                                            ActiveState activeState) {
    if (!Exchange(commands::kConfigurePulsedInput,
                  Payload().Byte(input).Byte(pulseParameter).Byte(activeState))) {
        return 0;
    }
    MarkPulsedInput(input);
    return 1;
}

int K40Implementation::ReleaseParallelHopperCoins(
    _usbInputBitId input, unsigned char pulseParameter, ActiveState activeState,
    _usbOutputBitId releaseOutput, unsigned short coinCount, unsigned char releaseParameter) {
    return Exchange(commands::kReleaseHopperCoins, Payload()
                                                       .Byte(input)
                                                       .Byte(pulseParameter)
                                                       .Byte(activeState)
                                                       .Byte(releaseOutput)
                                                       .HighFirst(coinCount)
                                                       .Byte(releaseParameter));
}
