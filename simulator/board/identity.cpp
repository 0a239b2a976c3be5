// The identity commands, and how a board's serial numbers come about.
#include "board/identity.h"

#include <algorithm>

namespace simulator {
namespace {

constexpr std::array<std::uint8_t, 2> k8051Version = {1, 2};
constexpr std::array<std::uint8_t, 2> kPicVersion = {2, 5};

constexpr std::uint8_t kDallasFamily = 0x01;
constexpr std::uint8_t kCrcPolynomial = 0x8C;  // x^8 + x^5 + x^4 + 1, lowest bit first

std::uint8_t CrcOf(ByteView bytes) {
    unsigned crc = 0;
    for (const std::uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? crc >> 1 ^ kCrcPolynomial : crc >> 1;
    }
    return static_cast<std::uint8_t>(crc);
}

SerialNumber DallasNumberOf(std::uint32_t number) {
    SerialNumber serial{kDallasFamily};
    for (std::size_t i = 0; i < 4; ++i)
        serial[1 + i] = static_cast<std::uint8_t>(number >> (8 * i));
    serial.back() = CrcOf(ByteView(serial).first(serial.size() - 1));
    return serial;
}

SerialNumber DigitsOf(std::uint32_t number) {
    SerialNumber digits{};
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
        *digit = static_cast<std::uint8_t>('0' + number % 10);
        number /= 10;
    }
    return digits;
}

Answer AnswerWith(ByteView bytes) {
    return {status::kAccepted, {bytes.begin(), bytes.end()}};
}

}  // namespace

BoardIdentity::BoardIdentity(std::uint32_t number)
    : dallasNumber(DallasNumberOf(number)), picSerial(DigitsOf(number)) {}

Answer BoardIdentity::Report8051Version(ByteView) {
    return AnswerWith(k8051Version);
}

Answer BoardIdentity::ReportPicVersion(ByteView) {
    return AnswerWith(kPicVersion);
}

Answer BoardIdentity::ReadPicSerial(ByteView) {
    return AnswerWith(picSerial);
}

Answer BoardIdentity::SetPicSerial(ByteView payload) {
    std::ranges::copy(payload, picSerial.begin());
    return {};
}

Answer BoardIdentity::ReadDallasNumber(ByteView) {
    return AnswerWith(dallasNumber);
}

}  // namespace simulator
