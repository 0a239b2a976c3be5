/**
 * @file transfer_records.h
 * @brief The two transfer records as a driver sees them.
 */
#ifndef TRANSFER_RECORDS_H
#define TRANSFER_RECORDS_H

#include <cstdint>

constexpr unsigned long kK40Request = 0xC2108100;
constexpr unsigned long kK44Request = 0x8400;

struct K40Record {
    std::uint32_t writeChannel, readChannel, writeLength, readLength;
    unsigned char data[512];
};

struct K44Record {
    std::int32_t* status;
    std::uint32_t channelIndex, reserved;
    const unsigned char* request;
    std::uint64_t requestLength;
    unsigned char* reply;
    std::uint64_t* replyLength;
    std::uint8_t command;
};

#endif  // TRANSFER_RECORDS_H
