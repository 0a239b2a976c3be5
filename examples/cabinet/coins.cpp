/**
 * @file coins.cpp
 * @brief Counting and paying with the operations that all models have.
 *
 * The board counts coins while this program is killed and started again. The ledger notes how many
 * of its counter are credited; credit and note change in one exchange, and what the counter shows
 * beyond the note is new. So nothing depends on where a program ended.
 *
 * Coins are therefore not taken off the counter one by one: of a program that was killed at such an
 * exchange nobody could say whether the board had done it. Is a 3 the 3 that was noted, or 2 and a
 * coin that came since? The counter is only emptied, in one exchange and long before its end, when
 * the note is far above 0: a counter below its note has begun anew, and all that it shows is new.
 * That leaves room for kEmptyFrom - 1 coins, at least, while no program runs.
 */
#include "coins.h"

#include <chrono>
#include <cstdio>

#include "board_error.h"

namespace {

constexpr unsigned kEmptyFrom = 128;  // half of what the counter holds

}  // namespace

// Without power a board forgets counter and settings, and then counts nothing before it is told to:
// its counter is looked at between the two, while it is sure to be below the note.
void CoinInput::Begin() {
    Require(board.ConfigurePulsedInput(kCoinInput, kShortestPulseMs, kPulseIsHigh),
            "configuring the coin input");
    Take();
    Require(board.BeginPulsedInputCheck(kCoinInput), "beginning to count coins");
}

unsigned CoinInput::Take() {
    const unsigned count = Count();
    unsigned fresh = 0;
    if (count != ledger.counted) {
        fresh = count > ledger.counted ? count - ledger.counted : count;
        ledger.credit += fresh;
        ledger.counted = count;
        ledger.Save();
    }
    if (ledger.counted >= kEmptyFrom) EmptyCounter();
    return fresh;
}

unsigned CoinInput::Count() {
    unsigned char count = 0;
    Require(board.ReadPulsedInputCounter(kCoinInput, &count), "reading the coin counter");
    return count;
}

// A coin that the board counts between the last look and the reset would be lost. Where no coin
// passes at this moment, none is counted within the shortest time that a coin takes.
void CoinInput::EmptyCounter() {
    const auto begin = std::chrono::steady_clock::now();
    unsigned coinPasses = 0;
    Require(board.GetInputBit(kCoinInput, &coinPasses), "looking at the coin input");
    if (coinPasses != 0 || Count() != ledger.counted) return;  // the next pass tries again
    Require(board.ResetPulsedInputCounter(kCoinInput), "emptying the coin counter");
    if (std::chrono::steady_clock::now() - begin > std::chrono::milliseconds(kShortestPulseMs)) {
        std::fprintf(stderr, "Emptying the coin counter took long: a coin may be missing.\n");
    }
    ledger.counted = 0;
    ledger.Save();
}

void Hopper::Release(unsigned coins) {
    Require(board.ReleaseParallelHopperCoins(kHopperInput, kShortestPulseMs, kPulseIsHigh,
                                             kHopperOutput, static_cast<unsigned short>(coins),
                                             kPayWithoutPause),
            "paying from the hopper");
}

Hopper::Report Hopper::Follow() {
    ReleaseHopperCoinsStatus status = kHopperPays;
    unsigned char paid = 0;
    Require(board.GetParallelHopperStatus(kHopperInput, &status, &paid), "looking at the hopper");
    if (status == kHopperPays) return {State::kPays, paid};
    return {status == kHopperHasPaid ? State::kHasPaid : State::kStuck, paid};
}
