/**
 * @file kbase_implementation_spi.cpp
 * @brief The SPI port, and SEC frames that are sent through it.
 */
#include <numeric>

#include "kbase_implementation.h"

int KBaseImplementation::EnableSPI() {
    return Exchange(commands::kEnableSpi);
}

int KBaseImplementation::DisableSPI() {
    return Exchange(commands::kDisableSpi);
}

int KBaseImplementation::SendSPI(unsigned char sendBits, unsigned char* data, unsigned char control,
                                 unsigned char receiveBits, unsigned char* reply) {
    if (reply == nullptr || data == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (receiveBits > kSpiBits) return Fail(USB_ERR_BAD_LENGTH);
    if (sendBits == 0 || sendBits > kSpiBits) return Fail(USB_ERR_BAD_LENGTH);

    const unsigned byteCount = (sendBits + 7U) / 8U;
    CopiedReply answer = CopiedReply::OfAnyLength();
    if (!Exchange(commands::kSendSpi,
                  Payload().Byte(sendBits).Byte(receiveBits).Byte(control).Bytes(data, byteCount),
                  answer)) {
        return 0;
    }
    answer.CopyTo(reply, Reply::kRoom);
    return 1;
}

int KBaseImplementation::SendSEC(unsigned char header1, unsigned char header2, unsigned char length,
                                 unsigned char* data, unsigned char control,
                                 unsigned char replyLength, unsigned char* reply) {
    if (reply == nullptr || data == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (replyLength > kSecDataBytes || length > kSecDataBytes) return Fail(USB_ERR_BAD_LENGTH);

    Payload frame;
    frame.Byte(header1).Byte(header2).Byte(length).Bytes(data, length);
    frame.Byte(std::accumulate(frame.Data(), frame.Data() + frame.Length(), 0UL));
    return SendSPI(static_cast<unsigned char>(frame.Length() * 8), frame.Data(), control,
                   static_cast<unsigned char>((replyLength + kSecFrameBytes) * 8), reply);
}
