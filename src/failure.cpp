/**
 * @file failure.cpp
 * @brief Codes and failed calls in words.
 */
#include "failure.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "marvaneusb.h"

namespace {

struct CodeText {
    int code;
    const char* text;
};

// clang-format off
constexpr CodeText kCodeTexts[] = {
    {USB_ERR_NONE,              "USB_ERR_NONE: no error"},
    {USB_ERR_BAD_LENGTH,        "USB_ERR_BAD_LENGTH: size of an SPI transfer or SEC frame out of range"},
    {USB_ERR_BAD_CHANNEL,       "USB_ERR_BAD_CHANNEL: a K44 or K50 has no channel above 7"},
    {USB_ERR_TRANSFER_FAILED,   "USB_ERR_TRANSFER_FAILED: the exchange with the board failed, or replies came without their data"},
    {USB_ERR_DATA_TOO_LONG,     "USB_ERR_DATA_TOO_LONG: a reply, message or payload is beyond its fixed limit"},
    {USB_ERR_OUT_OF_RANGE,      "USB_ERR_OUT_OF_RANGE: an argument is outside the range that is accepted"},
    {USB_ERR_BAD_BAUD_RATE,     "USB_ERR_BAD_BAUD_RATE: the serial port does not have this rate"},
    {USB_ERR_BAD_PORT_TYPE,     "USB_ERR_BAD_PORT_TYPE: no such port type, parity for that type, or port"},
    {USB_ERR_BAD_REEL,          "USB_ERR_BAD_REEL: a ramp was meant for a reel above 2"},
    {USB_ERR_NOT_SUPPORTED_K40, "USB_ERR_NOT_SUPPORTED_K40: not on a K40, K40 memory beyond 65535, or SAS with no board open"},
    {USB_ERR_NOT_SUPPORTED_K44, "USB_ERR_NOT_SUPPORTED_K44: not on a K44"},
    {USB_ERR_NULL_POINTER,      "USB_ERR_NULL_POINTER: a required pointer is null"},
    {USB_ERR_THREAD_START,      "USB_ERR_THREAD_START: the changed-inputs thread could not be started"},
    {USB_ERR_NOT_CONFIGURED,    "USB_ERR_NOT_CONFIGURED: input, reel or port not configured, or no shared state"},
};
// clang-format on

const char* NameAndMeaning(const Failure& failure) {
    // Causes that have a code in common are told apart here.
    switch (failure.code) {
        case USB_ERR_NOT_CONFIGURED:
            return "USB_ERR_NOT_CONFIGURED: the input, reel or port has not been configured since "
                   "the board was opened";
        case USB_ERR_NOT_SUPPORTED_K40:
            return "USB_ERR_NOT_SUPPORTED_K40: a K40 cannot do this, or its memory ends at 65535";
        default:
            return TextOfCode(failure.code);
    }
}

const char* HintFor(int driverError) {
    switch (driverError) {
        case ENODEV:
        case ENXIO:
        case ESHUTDOWN:
            return "; the board was unplugged: close it, and open it once it is back";
        case EINTR:
            return "; a signal came meanwhile, and the board may have acted";
        case EBADF:
            return "; something in this program has closed the board's descriptor";
        default:
            return "";
    }
}

/** What came of an exchange, after the name of its code. */
TextLine& AddExchange(TextLine& line, const Failure& failure, const char* code, const char* what) {
    return line.Add("%s: command %d on channel %d of /dev/Kovar_%d%s", code, failure.command,
                    failure.channel, failure.deviceNo, what);
}

}  // namespace

constinit thread_local Failure LastFailure::last_;
constinit thread_local OpeningReport LastFailure::openings_;
constinit thread_local bool LastFailure::wasOpening_ = false;

const char* TextOfCode(int code) {
    for (const CodeText& entry : kCodeTexts) {
        if (entry.code == code) return entry.text;
    }
    return nullptr;
}

TextLine& TextLine::Add(const char* format, ...) {
    const unsigned long room = wanted_ < capacity_ ? capacity_ - wanted_ : 0;
    std::va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(room > 0 ? text_ + wanted_ : nullptr, room, format, values);
    va_end(values);
    if (length > 0) wanted_ += static_cast<unsigned long>(length);
    return *this;
}

TextLine& TextLine::AddError(int error) {
    const char* text = strerrordesc_np(error);
    if (text == nullptr) return Add("error %d", error);
    return Add("%c%s", std::tolower(static_cast<unsigned char>(text[0])), text + 1);
}

void Failure::Describe(TextLine& line) const {
    switch (kind) {
        case Kind::kNone:
            line.Add("no call of this thread has failed");
            return;
        case Kind::kCode:
            line.Add("%s", NameAndMeaning(*this));
            return;
        case Kind::kNoBoard:
            line.Add("no board is open on this object");
            return;
        case Kind::kDriver:
            AddExchange(line, *this, "USB_ERR_TRANSFER_FAILED", ": ").AddError(systemError);
            line.Add("%s", HintFor(systemError));
            return;
        case Kind::kOtherEcho:
            AddExchange(line, *this, "USB_ERR_TRANSFER_FAILED",
                        ": the board answered another command");
            return;
        case Kind::kReplyLength:
            AddExchange(line, *this, "USB_ERR_DATA_TOO_LONG",
                        ": the board's reply is of impossible length");
            return;
        case Kind::kEmptyReplies:
            AddExchange(line, *this, "USB_ERR_TRANSFER_FAILED",
                        ": the board said again and again that more comes, and sent nothing");
            return;
        case Kind::kStatus:
            line.Add(
                "status %d of the board: command %d on channel %d of /dev/Kovar_%d was refused",
                code, command, channel, deviceNo);
            return;
        case Kind::kNoSharedState:
            line.Add("USB_ERR_NOT_CONFIGURED: ");
            missing.Describe(line);
            return;
    }
}

void LastFailure::Describe(TextLine& line) {
    if (wasOpening_) {
        openings_.Describe(line);
    } else {
        last_.Describe(line);
    }
}
