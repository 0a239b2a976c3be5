/**
 * @file reels.h
 * @brief Three reels of eight symbols, turned by the board.
 */
#ifndef REELS_H
#define REELS_H

#include <array>

#include "wiring.h"

constexpr unsigned kSymbolCount = 8;
constexpr const char* kSymbols[kSymbolCount] = {"CHERRY", "LEMON", "PLUM",  "BELL",
                                                "MELON",  "BAR",   "GRAPE", "SEVEN"};

/** A symbol of each reel. */
using Line = std::array<unsigned, kReelCount>;

class Reels {
public:
    explicit Reels(MarvaneUSB& usedBoard) : board(usedBoard) {}

    /** Every process that turns reels configures them first. */
    void Configure();

    /** Has all reels run, a turn longer each, until they show the symbols of a line. */
    void Spin(const Line& line);
    /** Which reels turn at this moment. */
    std::array<bool, kReelCount> Turning();
    /** What the reels that stand show. */
    Line Shown();

private:
    ReelStatusEx Status();

    MarvaneUSB& board;
};

#endif  // REELS_H
