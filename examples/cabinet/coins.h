/**
 * @file coins.h
 * @brief Coins in and coins out: the board counts and pays by itself, the machine follows.
 */
#ifndef COINS_H
#define COINS_H

#include "wiring.h"

/** The coin mechanism. */
class CoinInput {
public:
    explicit CoinInput(MarvaneUSB& usedBoard) : board(usedBoard) {}

    /** From now on the board counts. What it has counted before, for a program that died, stays. */
    void Begin();
    /** Takes one coin off the board's counter; false when there is none. */
    bool Take();

private:
    MarvaneUSB& board;
};

/** The hopper. */
class Hopper {
public:
    enum class State { kPays, kHasPaid, kStuck };
    struct Report {
        State state;
        unsigned paid;  // of the coins that it was told to pay last
    };

    explicit Hopper(MarvaneUSB& usedBoard) : board(usedBoard) {}

    /** Has the board pay coins, kMostCoinsOfRelease at most. */
    void Begin(unsigned coins);
    Report Follow();

private:
    MarvaneUSB& board;
};

#endif  // COINS_H
