/**
 * @file ledger.cpp
 * @brief The ledger's numbers and their record.
 */
#include "ledger.h"

#include "board_error.h"

namespace {

// Behind the part of a K40's memory into which its firmware is downloaded.
constexpr unsigned short kAddress = 0x8000;

}  // namespace

Ledger::Ledger(MarvaneUSB& usedBoard) : board(usedBoard), record(usedBoard, kAddress, "CAB2") {}

void Ledger::Load() {
    KeptRecord<kNumbers>::Numbers numbers{};
    Require(record.Load(numbers), "reading the ledger");
    credit = numbers[0];
    stake = numbers[1];
    owed = numbers[2];
    paid = numbers[3];
    counted = numbers[4];
}

void Ledger::Save() {
    Require(record.Save({credit, stake, owed, paid, counted}), "writing the ledger");
}
