/**
 * @file kbase_shared_serial_impl_polls.cpp
 * @brief Messages that the board exchanges on a serial port by itself, ccTalk's among them.
 */
#include <cstring>

#include "kbase_implementation.h"

namespace {

constexpr unsigned kHighestIndex = 3;
constexpr unsigned kHighestMode = 3;
constexpr unsigned kHighestOption = 4;
constexpr int kLongestTimeMs = 2550;
constexpr int kTimeUnitMs = 10;
constexpr unsigned char kLongestTimeUnits = 255;
constexpr unsigned kLongestTimeoutMessage = 60;
constexpr double kLongestTimeoutSeconds = 7.65;
constexpr double kTimeoutUnitSeconds = 0.03;
constexpr double kLongestHostTimeoutSeconds = 25.5;
constexpr double kHostTimeoutUnitsPerSecond = 10.0;
// That more comes, with nothing in it: so often in a row no board means it.
constexpr unsigned long kMostEmptyReplies = 8;

/** Where a message tells its own length. */
struct Framing {
    unsigned char variant;
    unsigned char lengthOffset;
    unsigned char lengthExtra;
};

Framing FramingOf(const CCTalkConfig& /*config*/) {
    return {1, 1, 5};
}

Framing FramingOf(const RS232PollConfig& config) {
    return {config.Variant, config.LengthOffset, config.LengthExtra};
}

constexpr unsigned kMessageRoom = sizeof(CCTalkConfig::Message1);

/** Length of a message, which may be more than there is room for. */
unsigned MessageLength(const Framing& framing, const unsigned char (&message)[kMessageRoom]) {
    return 0U + message[framing.lengthOffset] + framing.lengthExtra;
}

template <class Config>
bool IsPollConfig(const Config& config) {
    const Framing framing = FramingOf(config);
    return framing.lengthOffset < kMessageRoom &&
           MessageLength(framing, config.Message2) <= kMessageRoom &&
           MessageLength(framing, config.Message1) <= kMessageRoom &&
           config.Index <= kHighestIndex && config.Option <= kHighestOption &&
           config.Mode <= kHighestMode;
}

unsigned char TimeUnits(int timeMs) {
    return timeMs > kLongestTimeMs ? kLongestTimeUnits
                                   : static_cast<unsigned char>(timeMs / kTimeUnitMs);
}

template <class Config>
Payload& AppendPoll(Payload& payload, const Config& config) {
    const Framing framing = FramingOf(config);
    const unsigned length1 = MessageLength(framing, config.Message1);
    const unsigned length2 = MessageLength(framing, config.Message2);
    payload.Byte(config.Index).Byte(config.Mode).Byte(config.Option);
    payload.Byte(framing.variant).Byte(framing.lengthOffset).Byte(framing.lengthExtra);
    payload.Byte(TimeUnits(config.TimeMs)).HighFirst(config.Word).Byte(config.Byte);
    payload.Byte(config.Param).Byte(length1).Byte(length2);
    return payload.Bytes(config.Message1, length1).Bytes(config.Message2, length2);
}

template <class Config>
int ConfigurePoll(KBaseImplementation& board, _usbSerialPort port, Config* config) {
    if (config == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (!board.CheckPort(port)) return 0;
    // The record is read once: what is checked is what is sent.
    const Config checked = *config;
    if (!IsPollConfig(checked)) return Fail(USB_ERR_OUT_OF_RANGE);

    if (checked.TimeMs > kLongestTimeMs) config->TimeMs = kLongestTimeMs;
    Payload payload;
    return board.ExchangeWithPort(port, serial_commands::kConfigurePoll,
                                  AppendPoll(payload, checked));
}

int SendPolledIndex(KBaseImplementation& board, _usbSerialPort port, unsigned char command,
                    unsigned char index) {
    if (index > kHighestIndex) return Fail(USB_ERR_OUT_OF_RANGE);
    return board.CheckPort(port) && board.ExchangeWithPort(port, command, Payload().Byte(index));
}

/** Where a polled message goes, and how many replies in a row may bring nothing of it. */
struct PolledRoom {
    unsigned char* buffer;
    unsigned long capacity;
    unsigned long emptyReplies;
};

int ReceivePolled(KBaseImplementation& board, _usbSerialPort port, unsigned char index,
                  const PolledRoom& room, unsigned long* length, unsigned int* status) {
    constexpr unsigned long kHeader = 2;  // status, more
    if (length == nullptr || room.buffer == nullptr || status == nullptr) {
        return Fail(USB_ERR_NULL_POINTER);
    }
    if (index > kHighestIndex) return Fail(USB_ERR_OUT_OF_RANGE);
    if (!board.CheckPort(port)) return 0;

    // Counted apart from *length, which the application can reach: no place depends on it.
    unsigned long done = 0;
    unsigned long emptyReplies = 0;  // in a row
    for (bool more = true; more;) {
        *length = done;
        CopiedReply reply = CopiedReply::OfAnyLength();
        Payload request;
        if (!board.ExchangeWithPort(port, serial_commands::kReceivePolled, request.Byte(index),
                                    reply)) {
            return 0;
        }
        if (reply.Length() > 0) *status = reply.Byte(0);
        if (reply.Length() < kHeader) return 1;
        const unsigned long data = reply.Length() - kHeader;
        if (data > room.capacity - done) return Fail(USB_ERR_DATA_TOO_LONG);
        std::memcpy(room.buffer + done, reply.Data() + kHeader, data);
        done += data;
        more = reply.Byte(1) != 0;
        emptyReplies = data == 0 ? emptyReplies + 1 : 0;
        if (more && emptyReplies >= room.emptyReplies) {
            return board.FailExchange(Failure::Kind::kEmptyReplies, USB_ERR_TRANSFER_FAILED,
                                      serial_commands::kReceivePolled,
                                      KBaseImplementation::ChannelOf(port));
        }
    }
    *length = done;
    return 1;
}

}  // namespace

int KBaseImplementation::ConfigureCCTalkPort(_usbSerialPort port, CCTalkConfig* config) {
    return ConfigurePoll(*this, port, config);
}

int KBaseImplementation::ConfigureRS232Poll(_usbSerialPort port, RS232PollConfig* config) {
    return ConfigurePoll(*this, port, config);
}

int KBaseImplementation::SetTimeoutMessage(_usbSerialPort port, unsigned char* message,
                                           unsigned char length, float seconds) {
    if (length > kLongestTimeoutMessage) return Fail(USB_ERR_DATA_TOO_LONG);
    const double wide = seconds;
    if (!(wide >= 0 && wide <= kLongestTimeoutSeconds)) return Fail(USB_ERR_OUT_OF_RANGE);
    if (message == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (!CheckPort(port)) return 0;

    const auto units = static_cast<unsigned char>(wide / kTimeoutUnitSeconds);
    return ExchangeWithPort(port, serial_commands::kSetTimeoutMessage,
                            Payload().Byte(units).Byte(length).Bytes(message, length));
}

int KBaseImplementation::SetPolledHostTimeout(_usbSerialPort port, unsigned char index,
                                              double seconds) {
    if (!(seconds >= 0 && seconds <= kLongestHostTimeoutSeconds) || index > kHighestIndex) {
        return Fail(USB_ERR_OUT_OF_RANGE);
    }
    if (!CheckPort(port)) return 0;

    const auto units = static_cast<unsigned char>(seconds * kHostTimeoutUnitsPerSecond);
    return ExchangeWithPort(port, serial_commands::kPolledHostTimeout,
                            Payload().Byte(index).Byte(units));
}

int KBaseImplementation::EmptyPolledBuffer(_usbSerialPort port, unsigned char index) {
    return SendPolledIndex(*this, port, serial_commands::kEmptyPolledBuffer, index);
}

int KBaseImplementation::DeletePolledMessage(_usbSerialPort port, unsigned char index) {
    return SendPolledIndex(*this, port, serial_commands::kDeletePolled, index);
}

int KBaseImplementation::ReceivePolledMessage(_usbSerialPort port, unsigned char index,
                                              unsigned char* buffer, unsigned long* length,
                                              unsigned int* status) {
    return ReceivePolled(*this, port, index, {buffer, kUnlimited, kUnlimited}, length, status);
}

int KBaseImplementation::ReceivePolledMessageEx(_usbSerialPort port, unsigned char index,
                                                unsigned char* buffer, unsigned long capacity,
                                                unsigned long* length, unsigned int* status) {
    return ReceivePolled(*this, port, index, {buffer, capacity, kMostEmptyReplies}, length, status);
}
