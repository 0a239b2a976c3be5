/**
 * @file reels.cpp
 * @brief Symbols as steps: the board knows positions, the machine knows what is painted there.
 */
#include "reels.h"

#include "board_error.h"

namespace {

constexpr unsigned kStepsOfSymbol = kStepsOfTurn / kSymbolCount;

}  // namespace

void Reels::Configure() {
    Require(board.ConfigureReelsEx(kReelCount, kStepsOfTurn, kMsOfStep), "configuring the reels");
    for (unsigned char reel = 0; reel < kReelCount; ++reel) {
        Require(board.SpinRampUp(reel, kRampUp), "telling the ramp up");
        Require(board.SpinRampDown(reel, kRampDown), "telling the ramp down");
    }
}

void Reels::Spin(const Line& line) {
    const ReelStatusEx status = Status();
    for (unsigned char reel = 0; reel < kReelCount; ++reel) {
        const unsigned target = line[reel] * kStepsOfSymbol;
        const unsigned position = status.word1[reel] % kStepsOfTurn;
        const unsigned ahead = (target + kStepsOfTurn - position) % kStepsOfTurn;
        const unsigned steps = (1U + reel) * kStepsOfTurn + ahead;
        Require(board.SpinReels(reel, kSpinStepsForward, static_cast<unsigned short>(steps)),
                "spinning a reel");
    }
}

std::array<bool, kReelCount> Reels::Turning() {
    const ReelStatusEx status = Status();
    std::array<bool, kReelCount> turning{};
    for (unsigned reel = 0; reel < kReelCount; ++reel)
        turning[reel] = status.byte1[reel] != 0;
    return turning;
}

Line Reels::Shown() {
    const ReelStatusEx status = Status();
    Line line{};
    for (unsigned reel = 0; reel < kReelCount; ++reel)
        line[reel] = status.word1[reel] % kStepsOfTurn / kStepsOfSymbol;
    return line;
}

ReelStatusEx Reels::Status() {
    ReelStatusEx status{};
    Require(board.GetReelStatusEx(&status), "looking at the reels");
    return status;
}
