/**
 * @file machine.h
 * @brief The game: coins buy rounds, reels decide, the hopper pays, lamps follow.
 */
#ifndef MACHINE_H
#define MACHINE_H

#include <atomic>
#include <chrono>

#include "coins.h"
#include "lamps.h"
#include "ledger.h"
#include "reels.h"

class Machine {
public:
    /** The board is open, and stays so as long as the machine lives. */
    explicit Machine(MarvaneUSB& openBoard);

    /**
     * Plays until so many rounds are played or nothing has happened for so long. Throws BoardError
     * when the board fails. Result: whether all that was won is paid.
     */
    bool Run(unsigned rounds, std::chrono::seconds patience);

    /** Lamps and money as they stand, for people; after a failure, too. */
    void PrintState(std::FILE* stream) const;

private:
    void Begin();
    void WatchStartButton();
    void TakeCoins();
    void ShowWhetherToStart();

    void PlayRound();
    Line Draw();
    void WaitForReels();

    void Pay();
    Hopper::State FollowHopper();
    void TakeOffOwed(unsigned paidSoFar);

    MarvaneUSB& board;
    Ledger ledger;
    Lamps lamps;
    Reels reels;
    CoinInput coins;
    Hopper hopper;
    unsigned coinsIn = 0;
    unsigned roundsPlayed = 0;
    std::chrono::steady_clock::time_point lastEvent;

    // One machine in a program: the library's callback carries no pointer of its user's.
    static std::atomic<bool> startPressed;
};

#endif  // MACHINE_H
