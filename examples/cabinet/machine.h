/**
 * @file machine.h
 * @brief The game: coins buy rounds, reels decide, the hopper pays, lamps follow.
 */
#ifndef MACHINE_H
#define MACHINE_H

#include <cstdio>

#include "coins.h"
#include "lamps.h"
#include "ledger.h"
#include "reels.h"
#include "start_button.h"

/**
 * Begin, then one pass after the other, then End; each throws BoardError when the board fails. Such
 * a machine has come to its end, and a new one goes on where it was.
 */
class Machine {
public:
    /** The board is open, and stays so as long as the machine lives. */
    Machine(MarvaneUSB& openBoard, std::FILE* whatHappens);

    void Begin();
    /** Looks at everything once and does what is due, without waiting. Result: something happened.
     */
    bool Pass();
    void End();

    /** The reels turn, or the hopper pays. */
    bool IsBusy() const { return doing != Doing::kWaits; }
    unsigned RoundsPlayed() const { return roundsPlayed; }
    const Ledger& Money() const { return ledger; }

    /** Lamps and money as they stand, for people; after a failure, too. */
    void PrintState(std::FILE* stream) const;

private:
    enum class Doing { kWaits, kSpins, kPays };

    unsigned TakeCoins();

    void BeginRound();
    Line Draw();
    void FollowReels();
    void DecideRound();

    void Pay();
    void BeginPayout();
    void FollowPayout();
    Hopper::State TakePaidOffOwed();

    MarvaneUSB& board;
    std::FILE* out;
    Ledger ledger;
    Lamps lamps;
    Reels reels;
    StartButton startButton;
    CoinInput coins;
    Hopper hopper;
    Doing doing = Doing::kSpins;
    Line drawn{};  // in the round that is played
    unsigned coinsIn = 0;
    unsigned roundsPlayed = 0;
    unsigned owedBeforePayout = 0;
};

#endif  // MACHINE_H
