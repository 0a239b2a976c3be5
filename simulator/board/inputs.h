// The 33 inputs of a board, their report of changes, and the switch matrix of input multiplexing.
#ifndef MARVANE_SIMULATOR_BOARD_INPUTS_H
#define MARVANE_SIMULATOR_BOARD_INPUTS_H

#include <array>

#include "terms/answer.h"

namespace simulator {

constexpr unsigned kInputCount = 33;
constexpr unsigned kCountedInputCount = 24;   // that checks, counters and recordings know
constexpr unsigned kFirstIdentityInput = 24;  // three inputs hold the board's identity switch
constexpr unsigned kIdentityCount = 8;
constexpr unsigned kMultiplexedInputCount = 96;  // four groups of 24

/// Input n is bit n % 8 of byte n / 8.
using InputImage = std::array<std::uint8_t, 5>;

class BoardInputs {
public:
    Answer ReadImage(ByteView payload);
    Answer ReportChanges(ByteView payload);
    Answer ReadRawImage(ByteView payload);
    Answer SetMultiplexing(ByteView payload);
    Answer ReadMultiplexed(ByteView payload);

    /// Holds an input at a level, contact included. Numbers beyond the last are ignored, here
    /// and below.
    void Set(unsigned input, bool level);
    /// Moves the contact for less time than the board's filter lets through: only the raw image
    /// shows it, until the next Set.
    void SetContact(unsigned input, bool level);
    void SetIdentity(unsigned identity);
    /// A switch of the matrix, which the board scans only while multiplexing is on.
    void SetMultiplexed(unsigned input, bool level);

    bool Level(unsigned input) const;
    bool MultiplexedLevel(unsigned input) const;
    const InputImage& Image() const { return image; }
    const InputImage& RawImage() const { return rawImage; }
    const InputImage& UnreportedChanges() const { return changes; }
    bool IsMultiplexing() const { return multiplexing; }

    void PowerUp();

private:
    InputImage image{};
    InputImage rawImage{};
    InputImage changes{};  // changed since the last report, even when it changed back
    std::array<std::uint8_t, kMultiplexedInputCount / 8> matrix{};
    bool multiplexing = false;
};

}  // namespace simulator

#endif
