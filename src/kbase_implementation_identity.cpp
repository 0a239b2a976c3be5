/**
 * @file kbase_implementation_identity.cpp
 * @brief Versions, serial numbers and hardware random numbers.
 */
#include <algorithm>
#include <iterator>

#include "kbase_implementation.h"

namespace {

/** The CRC-8 of the 1-Wire bus; over a number and its own CRC it is 0. */
unsigned OneWireCrc(const unsigned char* begin, const unsigned char* end) {
    constexpr unsigned kReflectedPolynomial = 0x8C;  // x^8 + x^5 + x^4 + 1
    unsigned crc = 0;
    for (const unsigned char* byte = begin; byte != end; ++byte) {
        crc ^= *byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc >> 1U ^ ((crc & 1U) != 0 ? kReflectedPolynomial : 0U);
        }
    }
    return crc;
}

/** Hands over as much as the board sent, at most what a reply holds. */
int ReadWholeReply(KBaseImplementation& board, Command command, unsigned char* target) {
    if (target == nullptr) return Fail(USB_ERR_NULL_POINTER);

    CopiedReply reply = CopiedReply::OfAnyLength();
    if (!board.Exchange(command, reply)) return 0;

    reply.CopyTo(target, Reply::kRoom);
    return 1;
}

}  // namespace

int KBaseImplementation::Get8051Version(unsigned char* version) {
    return ReadWholeReply(*this, commands::kGet8051Version, version);
}

int KBaseImplementation::GetPICVersion(unsigned char* version) {
    return ReadWholeReply(*this, commands::kGetPicVersion, version);
}

int KBaseImplementation::GetPICSerialNumber(unsigned char* serial) {
    return ReadWholeReply(*this, commands::kGetPicSerial, serial);
}

int KBaseImplementation::SetPICSerialNumber(unsigned char* serial) {
    if (serial == nullptr) return Fail(USB_ERR_NULL_POINTER);
    return Exchange(commands::kSetPicSerial, Payload().Bytes(serial, kPicSerialBytes));
}

int KBaseImplementation::GetDallasSerialNumber(unsigned char* serial, unsigned char* valid) {
    if (valid == nullptr || serial == nullptr) return Fail(USB_ERR_NULL_POINTER);

    Reply reply;
    if (!Exchange(commands::kGetDallasSerial, reply)) return 0;

    unsigned char number[kDallasSerialBytes];
    reply.Decode(0, number);
    std::copy(std::begin(number), std::end(number), serial);
    // The zeroes of a reply that is cut short could pass the CRC: eight of them do.
    const bool isWhole = reply.Length() >= kDallasSerialBytes;
    *valid = isWhole && OneWireCrc(std::begin(number), std::end(number)) == 0 ? 1 : 0;
    return 1;
}

int KBaseImplementation::EnableRandomNumberGenerator(unsigned long argument) {
    return Exchange(commands::kEnableRandomNumbers, Payload().LowFirst32(argument));
}

int KBaseImplementation::DisableRandomNumberGenerator() {
    return Exchange(commands::kDisableRandomNumbers);
}

int KBaseImplementation::GetRandomNumber(unsigned short* number) {
    if (number == nullptr) return Fail(USB_ERR_NULL_POINTER);

    Reply reply;
    if (!Exchange(commands::kGetRandomNumber, reply)) return 0;

    *number = reply.LowFirst(0);
    return 1;
}
