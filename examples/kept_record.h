/**
 * @file kept_record.h
 * @brief A few numbers in the board's battery-backed memory, which change all at once or not at
 * all.
 *
 * A record fits into one exchange on every board and at every speed: whenever the program is
 * killed, the board holds the old record or the new one. And it lies in two places, which are
 * written in turn: a power cut in the middle of a write spoils the one, and the other holds what
 * was before.
 */
#ifndef KEPT_RECORD_H
#define KEPT_RECORD_H

#include <array>
#include <cstring>

#include "marvaneusb.h"

/** Both functions return what the library's operations do: 1, or 0 with GetLastError(). */
template <std::size_t count>
class KeptRecord {
public:
    using Numbers = std::array<unsigned, count>;

    /** The mark tells it from whatever else may lie at this address, kPlaces * kStride bytes. */
    KeptRecord(MarvaneUSB& usedBoard, unsigned short address, const char (&recordMark)[5])
        : board(usedBoard), firstPlace(address), mark(recordMark) {}

    /** The newest record that is whole; the numbers stay as they are where there is none. */
    int Load(Numbers& numbers) {
        for (unsigned place = 0; place < kPlaces; ++place) {
            unsigned char bytes[kSize];
            if (board.ReadSRAM(AddressOf(place), bytes, kSize) == 0) return 0;
            if (!IsWhole(bytes) || Get(bytes + kTurnAt) <= turn) continue;
            turn = Get(bytes + kTurnAt);
            for (std::size_t i = 0; i < count; ++i)
                numbers[i] = Get(bytes + kNumbersAt + kWord * i);
        }
        return 1;
    }

    int Save(const Numbers& numbers) {
        unsigned char bytes[kSize];
        std::memcpy(bytes, mark, kWord);
        Put(bytes + kTurnAt, turn + 1);
        for (std::size_t i = 0; i < count; ++i)
            Put(bytes + kNumbersAt + kWord * i, numbers[i]);
        Put(bytes + kSumAt, SumOf(bytes));
        if (board.WriteSRAM(AddressOf((turn + 1) % kPlaces), bytes, kSize) == 0) return 0;
        ++turn;
        return 1;
    }

private:
    static constexpr unsigned kPlaces = 2;
    static constexpr unsigned kStride = 64;
    static constexpr unsigned kWord = 4;  // bytes of a number, low byte first
    static constexpr unsigned kTurnAt = kWord;
    static constexpr unsigned kNumbersAt = kTurnAt + kWord;
    static constexpr unsigned kSumAt = kNumbersAt + kWord * count;
    static constexpr unsigned kSize = kSumAt + kWord;
    static_assert(kSize <= 55, "at 12 Mbit/s a K44 writes 55 bytes in one exchange");

    unsigned short AddressOf(unsigned place) const {
        return static_cast<unsigned short>(firstPlace + kStride * place);
    }

    static void Put(unsigned char* bytes, unsigned number) {
        for (unsigned i = 0; i < kWord; ++i)
            bytes[i] = static_cast<unsigned char>(number >> (8 * i));
    }

    static unsigned Get(const unsigned char* bytes) {
        unsigned number = 0;
        for (unsigned i = 0; i < kWord; ++i)
            number |= static_cast<unsigned>(bytes[i]) << (8 * i);
        return number;
    }

    // Adler-32: half of a record does not match it, nor a cell that lost its charge.
    static unsigned SumOf(const unsigned char* bytes) {
        unsigned sum = 1;
        unsigned sumOfSums = 0;
        for (unsigned i = 0; i < kSumAt; ++i) {
            sum = (sum + bytes[i]) % 65521;
            sumOfSums = (sumOfSums + sum) % 65521;
        }
        return sumOfSums << 16 | sum;
    }

    bool IsWhole(const unsigned char* bytes) const {
        return std::memcmp(bytes, mark, kWord) == 0 && Get(bytes + kSumAt) == SumOf(bytes);
    }

    MarvaneUSB& board;
    unsigned short firstPlace;
    const char* mark;
    unsigned turn = 0;  // of the record that was loaded or saved last; counts from 1
};

#endif  // KEPT_RECORD_H
