/**
 * @file unit_test.cpp
 * @brief A unit test of cabinet software: a lamp and coins, on a board inside the test itself.
 */
#undef NDEBUG  // what assert says is to hold in every build
#include <cassert>
#include <cstdio>

#include "marvaneusb.h"
#include "marvaneusb_testing.h"

using namespace marvaneusb::testing;

// What is tested. Your own sources go here.

/** Counts coins on input 3; the lamp of the start button, output 12, is lit from the first on. */
class CoinSlot {
public:
    explicit CoinSlot(MarvaneUSB& usedBoard) : board(usedBoard) {}

    /** A coin's pulse lasts 10 ms at least, and is high. */
    bool Begin() {
        return board.ConfigurePulsedInput(USB_INPUT_3, 10, USB_ACTIVE_STATE_1) &&
               board.BeginPulsedInputCheck(USB_INPUT_3);
    }
    bool Look() {
        return board.ReadPulsedInputCounter(USB_INPUT_3, &coins) &&
               board.SetOutputBit(USB_OUTPUT_12, coins > 0);
    }

    unsigned char coins = 0;

private:
    MarvaneUSB& board;
};

// The tests

void TestThatCoinsLightTheStartButton() {
    Boards boards;
    Board cabinet = boards.AddBoard(0, Model::kK44);
    MarvaneUSB board;
    assert(board.InitPort(0));
    CoinSlot slot(board);
    assert(slot.Begin() && slot.Look());
    assert(slot.coins == 0 && cabinet.Output(12) == OutputState::kOff);

    cabinet.InsertCoins(3, 2);
    assert(slot.Look() && slot.coins == 0);  // no time has passed: they are still falling
    boards.Advance(100);
    assert(slot.Look());
    assert(slot.coins == 2 && cabinet.Output(12) == OutputState::kOn);
}

void TestThatAPulledCableIsNoticedAndCostsNoCoin() {
    Boards boards;
    Board cabinet = boards.AddBoard(0, Model::kK50, 12);
    MarvaneUSB board;
    assert(board.InitPort(0));
    CoinSlot slot(board);
    assert(slot.Begin());
    cabinet.InsertCoins(3, 1);
    boards.Advance(40);

    cabinet.FailExchanges(1, 5);  // EIO
    assert(!slot.Look() && board.GetLastError() == USB_ERR_TRANSFER_FAILED);
    assert(slot.Look() && slot.coins == 1);
    cabinet.Unplug();
    assert(!slot.Look() && slot.coins == 1);
}

int main() {
    TestThatCoinsLightTheStartButton();
    TestThatAPulledCableIsNoticedAndCostsNoCoin();
    std::puts("all tests passed");
}
