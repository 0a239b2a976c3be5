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
 * the note is far above 0: at a start, a counter below its note has begun anew, and all that it
 * shows is new. That leaves room for kEmptyFrom - 1 coins, at least, while no program runs.
 *
 * A reply that came without its data reads as zeroes. So a count that would begin anew, and the end
 * of a payout, are believed only when a second look says the same.
 */
#include "coins.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "board_error.h"

namespace {

constexpr unsigned kEmptyFrom = 128;  // half of what the counter holds
constexpr int kMostLooks = 4;

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kShortestPulse(kShortestPulseMs);

}  // namespace

// Without power a board forgets counter and settings, and then counts nothing before it is told to:
// its counter is looked at between the two, while it is sure to be below the note.
void CoinInput::Begin() {
    Require(board.ConfigurePulsedInput(kCoinInput, kShortestPulseMs, kPulseIsHigh),
            "configuring the coin input");
    const unsigned count = std::max(Count(), Count());
    if (count < ledger.counted) ledger.counted = 0;
    Credit(count);
    Require(board.BeginPulsedInputCheck(kCoinInput), "beginning to count coins");
}

unsigned CoinInput::Take() {
    const unsigned count = Count();
    // While the board is open nobody but this program empties its counter.
    if (count < ledger.counted) throw BoardError("the coin counter shows less than is credited");
    const unsigned fresh = Credit(count);
    if (ledger.counted >= kEmptyFrom) EmptyCounter();
    return fresh;
}

unsigned CoinInput::Credit(unsigned count) {
    const unsigned fresh = count - ledger.counted;
    if (fresh == 0) return 0;
    ledger.credit += fresh;
    ledger.counted = count;
    ledger.Save();
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
    const auto begin = Clock::now();
    unsigned coinPasses = 0;
    Require(board.GetInputBit(kCoinInput, &coinPasses), "looking at the coin input");
    // The next pass tries again.
    if (coinPasses != 0 || Count() != ledger.counted || Clock::now() - begin > kShortestPulse / 2) {
        return;
    }
    Require(board.ResetPulsedInputCounter(kCoinInput), "emptying the coin counter");
    if (Clock::now() - begin > kShortestPulse) {
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
    Report report = Look();
    for (int looks = 1; report.state != State::kPays; ++looks) {
        const Report again = Look();
        if (again == report) break;
        if (looks == kMostLooks) throw BoardError("the hopper says something else at every look");
        report = again;
    }
    return report;
}

Hopper::Report Hopper::Look() {
    ReleaseHopperCoinsStatus status = kHopperPays;
    unsigned char paid = 0;
    Require(board.GetParallelHopperStatus(kHopperInput, &status, &paid), "looking at the hopper");
    switch (status) {
        case kHopperIsIdle:
            return {State::kIdle, paid};
        case kHopperPays:
            return {State::kPays, paid};
        case kHopperHasPaid:
            return {State::kHasPaid, paid};
        default:
            return {State::kStuck, paid};
    }
}
