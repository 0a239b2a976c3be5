/**
 * @file ledger.h
 * @brief What the machine has of the player's: kept in the board's battery-backed memory, so that
 *   neither a crash nor a power failure loses it.
 */
#ifndef LEDGER_H
#define LEDGER_H

#include "marvaneusb.h"

class Ledger {
public:
    explicit Ledger(MarvaneUSB& usedBoard) : board(usedBoard) {}

    /** Takes over what the memory holds; nothing if that is no ledger. */
    void Load();
    /** One exchange with the board: the old record or the new one, never half of both. */
    void Save();

    unsigned credit = 0;  // rounds that the player may play
    unsigned stake = 0;   // credit in a round that is not decided yet
    unsigned owed = 0;    // coins won and not paid yet
    unsigned paid = 0;    // coins of the latest payout that are off what is owed already

private:
    MarvaneUSB& board;
};

#endif  // LEDGER_H
