/**
 * @file main.cpp
 * @brief A small complete machine: coins in, a spin of three reels, a win paid by the hopper.
 *
 * Usage: cabinet [rounds] [seconds] [device number]. It ends after so many rounds (10 without a
 * number), or when nothing has happened for so many seconds (10). Exit status: 0, 1 when the board
 * failed, 2 when coins are owed.
 *
 * A program to start from: wiring.h says what is connected where, machine.cpp is the game.
 */
#include <cstdio>
#include <cstdlib>

#include "board_error.h"
#include "machine.h"

namespace {

unsigned Number(int argc, char** argv, int place, unsigned without) {
    return argc > place ? static_cast<unsigned>(std::strtoul(argv[place], nullptr, 10)) : without;
}

}  // namespace

int main(int argc, char** argv) {
    const unsigned rounds = Number(argc, argv, 1, 10);
    const std::chrono::seconds patience(Number(argc, argv, 2, 10));
    const int device = static_cast<int>(Number(argc, argv, 3, 0));

    MarvaneUSB board;
    if (!board.InitPort(device)) {
        std::fprintf(stderr, "Board %d could not be opened (code %d).\n", device,
                     board.GetLastError());
        return 1;
    }
    Machine machine(board);
    try {
        return machine.Run(rounds, patience) ? 0 : 2;
    } catch (const BoardError& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "The machine stops: %s.\n", error.what());
        machine.PrintState(stderr);
        return 1;
    }
}
