/**
 * @file ledger.cpp
 * @brief The record: four bytes that mark it, four numbers of four bytes, low byte first, and the
 *   sum of all these bytes, which a cell that lost its charge does not match.
 */
#include "ledger.h"

#include <cstring>

#include "board_error.h"

namespace {

// Behind the part of a K40's memory into which its firmware is downloaded.
constexpr unsigned short kAddress = 0x8000;
constexpr unsigned char kMark[4] = {'C', 'A', 'B', '1'};
constexpr unsigned kNumbers = 4;
constexpr unsigned kSummed = 4 + 4 * kNumbers;
constexpr unsigned kSize = kSummed + 1;

void Put(unsigned char* bytes, unsigned number) {
    for (unsigned i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(number >> (8 * i));
}

unsigned Get(const unsigned char* bytes) {
    unsigned number = 0;
    for (unsigned i = 0; i < 4; ++i)
        number |= static_cast<unsigned>(bytes[i]) << (8 * i);
    return number;
}

unsigned char SumOf(const unsigned char* record) {
    unsigned sum = 0;
    for (unsigned i = 0; i < kSummed; ++i)
        sum += record[i];
    return static_cast<unsigned char>(sum);
}

}  // namespace

void Ledger::Load() {
    unsigned char record[kSize];
    Require(board.ReadSRAM(kAddress, record, kSize), board, "reading the ledger");
    if (std::memcmp(record, kMark, sizeof kMark) != 0 || record[kSummed] != SumOf(record)) return;
    credit = Get(record + 4);
    stake = Get(record + 8);
    owed = Get(record + 12);
    paid = Get(record + 16);
}

void Ledger::Save() {
    unsigned char record[kSize];
    std::memcpy(record, kMark, sizeof kMark);
    Put(record + 4, credit);
    Put(record + 8, stake);
    Put(record + 12, owed);
    Put(record + 16, paid);
    record[kSummed] = SumOf(record);
    Require(board.WriteSRAM(kAddress, record, kSize), board, "writing the ledger");
}
