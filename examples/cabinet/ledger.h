/**
 * @file ledger.h
 * @brief What the machine has of the player's: kept in the board's battery-backed memory.
 *
 * Killed at any moment, however often, and started again, the machine loses no coin, credits none
 * twice and pays none twice: what it does to the board is noted here so that the note and what the
 * board itself counts tell together how far it came. coins.cpp and machine.cpp say how.
 *
 * One machine plays on a board at a time: two would both credit the same coins.
 *
 * That holds as long as the board has power: the battery keeps this ledger, not the board's
 * counters. A power cut loses the coins that the board had counted since the latest note, and pays
 * again what the hopper dropped since then: in one pass of the machine, or while it was down.
 */
#ifndef LEDGER_H
#define LEDGER_H

#include "kept_record.h"

class Ledger {
public:
    explicit Ledger(MarvaneUSB& usedBoard);

    /** Takes over what the memory holds; nothing if that is no ledger. */
    void Load();
    /** In one exchange with the board. */
    void Save();

    unsigned credit = 0;   // rounds that the player may play
    unsigned stake = 0;    // credit in a round that is not decided yet
    unsigned owed = 0;     // coins won and not paid yet
    unsigned paid = 0;     // of the hopper's latest payout: coins that are off what is owed already
    unsigned counted = 0;  // of the board's coin counter: coins that are credited already

private:
    static constexpr std::size_t kNumbers = 5;

    MarvaneUSB& board;
    KeptRecord<kNumbers> record;
};

#endif  // LEDGER_H
