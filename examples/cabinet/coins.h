/**
 * @file coins.h
 * @brief Coins in and coins out: the board counts and pays by itself, the machine follows.
 */
#ifndef COINS_H
#define COINS_H

#include "ledger.h"
#include "wiring.h"

/** The coin mechanism. */
class CoinInput {
public:
    CoinInput(MarvaneUSB& usedBoard, Ledger& usedLedger) : board(usedBoard), ledger(usedLedger) {}

    /** From now on the board counts. What it counted while no program ran stays, and is taken. */
    void Begin();
    /** Credits what has come since the latest note, and notes it. Result: how many coins. */
    unsigned Take();

private:
    unsigned Count();
    unsigned Credit(unsigned count);
    void EmptyCounter();

    MarvaneUSB& board;
    Ledger& ledger;
};

/** The hopper. */
class Hopper {
public:
    enum class State { kIdle, kPays, kHasPaid, kStuck };  // idle: it was told nothing yet
    struct Report {
        State state;
        unsigned paid;  // of the coins that it was told to pay last

        bool operator==(const Report& other) const {
            return state == other.state && paid == other.paid;
        }
    };

    explicit Hopper(MarvaneUSB& usedBoard) : board(usedBoard) {}

    /** Has the board pay coins, kMostCoinsOfRelease at most, and count them from 0. */
    void Release(unsigned coins);
    Report Follow();

private:
    Report Look();

    MarvaneUSB& board;
};

#endif  // COINS_H
