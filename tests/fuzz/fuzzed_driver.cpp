/**
 * @file fuzzed_driver.cpp
 * @brief The fuzzed driver, and the ioctl that it takes over.
 */
#include "fuzzed_driver.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The constant driver has the devices; its ioctl goes by this name.
extern "C" int ConstantIoctl(int descriptor, unsigned long request, ...);

namespace {

constexpr std::size_t kLongestK40Reply = 62;

/** Lengths at which something may break: limits of replies, chunks and number types. */
constexpr std::uint64_t kClaims[] = {
    // clang-format off
    0, 1, 2, 4, 7, 8, 57, 58, 59, 60, 61, 62, 63, 64, 65, 66, 253, 254, 255, 256, 257, 258, 511,
    512, 513, 65535, 65536, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 1UL << 32U, 1UL << 63U, ~0UL,
    // clang-format on
};

}  // namespace

FuzzedDriver& driver = *new FuzzedDriver;  // never destroyed: it serves to the end of the process

void InputBytes::Fill(void* target, std::size_t length) {
    const std::size_t taken = std::min(length, static_cast<std::size_t>(end_ - next_));
    std::memset(static_cast<unsigned char*>(target) + taken, 0, length - taken);
    std::memcpy(target, next_, taken);
    next_ += taken;
}

void FuzzedDriver::Require(bool holds, const char* what) const {
    if (holds) return;
    std::fprintf(stderr, "%s, %u exchanges: %s\n", operation_, exchanges, what);
    std::abort();
}

void FuzzedDriver::ChooseReply(unsigned shape, Answer& answer) {
    InputBytes& input = *input_;
    if (shape < 3) {
        answer.written = input.Byte();
        input.Fill(answer.bytes, answer.written);
        return;
    }
    answer.written = shape == 3 ? asked : shape == 4 ? kLongestK40Reply : 256 - input.Byte();
    std::memset(answer.bytes, static_cast<int>(input.Byte()), answer.written);
    if (shape == 6) answer.claimed = input.Pick(kClaims);
    if (shape == 7) answer.claimed = input.Take<std::uint64_t>();
}

FuzzedDriver::Answer FuzzedDriver::Next(unsigned char command, const unsigned char* payload) {
    Require(error == 0 || kind_.goesOnAfterFailure, "goes on after a failure");
    Require(++exchanges <= kind_.most, "too many exchanges");

    const bool isMemoryRead = command == 5 || command == 70 || command == 116;
    asked = isMemoryRead ? payload[0] : 0;
    Answer answer;
    if (input_->Empty() || exchanges > kind_.answered) return answer;
    const unsigned control = input_->Byte();
    ChooseReply(control % 8, answer);
    const unsigned fate = control / 8 % 8;
    if (fate == 4) answer.status = input_->Take<std::int32_t>();
    if (fate == 5) answer.echo = input_->Byte();
    answer.refused = fate == 6;
    return answer;
}

int FuzzedDriver::Conclude(const Answer& answer, int failure, std::size_t replyLength) {
    error = answer.refused ? 6 : failure;
    length = error == 0 ? replyLength : 0;
    if (error == 0) {
        deliveredBefore = delivered.size();
        delivered.insert(delivered.end(), reply_ + std::min(header, length), reply_ + length);
        bare = delivered.size() == deliveredBefore ? bare + 1 : 0;
    }
    errno = EIO;
    return answer.refused ? -1 : 0;
}

int FuzzedDriver::Transfer(K40Record& record) {
    const Answer answer = Next(record.data[0], record.data + 1);
    record.data[0] ^= static_cast<unsigned char>(answer.echo);
    record.data[1] = static_cast<unsigned char>(answer.status);
    std::memcpy(record.data + 2, answer.bytes, answer.written);
    record.readLength = static_cast<std::uint32_t>(answer.claimed.value_or(answer.written + 2));

    // What is claimed beyond what is written lies in the record already.
    std::memcpy(reply_, record.data + 2, sizeof reply_);
    const bool fits = record.readLength >= 2 && record.readLength <= kLongestK40Reply + 2;
    const auto status = static_cast<std::int8_t>(answer.status);
    return Conclude(answer, !fits ? 7 : answer.echo != 0 ? 6 : status, record.readLength - 2);
}

int FuzzedDriver::Transfer(K44Record& record) {
    const Answer answer = Next(record.command, record.request);
    *record.status = answer.status;
    std::memcpy(record.reply, answer.bytes, answer.written);
    *record.replyLength = answer.claimed.value_or(answer.written);

    // What is claimed beyond what is written has to read as 0.
    std::memcpy(reply_, answer.bytes, sizeof reply_);
    return Conclude(answer, answer.status,
                    std::min<std::uint64_t>(*record.replyLength, sizeof reply_));
}

extern "C" int ioctl(int descriptor, unsigned long request, ...) {
    std::va_list rest;
    va_start(rest, request);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    if (request == kK40Request) return driver.Transfer(*static_cast<K40Record*>(argument));
    if (request == kK44Request) return driver.Transfer(*static_cast<K44Record*>(argument));
    return ConstantIoctl(descriptor, request, argument);
}
