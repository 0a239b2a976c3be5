/**
 * @file coins.cpp
 * @brief Counting and paying with the operations that all models have.
 */
#include "coins.h"

#include "board_error.h"

void CoinInput::Begin() {
    Require(board.ConfigurePulsedInput(kCoinInput, kShortestPulseMs, kPulseIsHigh), board,
            "configuring the coin input");
    Require(board.BeginPulsedInputCheck(kCoinInput), board, "beginning to count coins");
}

// One at a time: the board goes on counting meanwhile, and resetting its counter would lose what
// came since it was read.
bool CoinInput::Take() {
    unsigned char waiting = 0;
    Require(board.ReadPulsedInputCounter(kCoinInput, &waiting), board, "reading the coin counter");
    if (waiting == 0) return false;
    Require(board.DecrementPulsedInputCounter(kCoinInput), board, "taking a coin off the counter");
    return true;
}

void Hopper::Begin(unsigned coins) {
    Require(board.ReleaseParallelHopperCoins(kHopperInput, kShortestPulseMs, kPulseIsHigh,
                                             kHopperOutput, static_cast<unsigned short>(coins),
                                             kPayWithoutPause),
            board, "paying from the hopper");
}

Hopper::Report Hopper::Follow() {
    ReleaseHopperCoinsStatus status = kHopperPays;
    unsigned char paid = 0;
    Require(board.GetParallelHopperStatus(kHopperInput, &status, &paid), board,
            "looking at the hopper");
    if (status == kHopperPays) return {State::kPays, paid};
    return {status == kHopperHasPaid ? State::kHasPaid : State::kStuck, paid};
}
