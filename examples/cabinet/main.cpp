/**
 * @file main.cpp
 * @brief A small complete machine: coins in, a spin of three reels, a win paid by the hopper.
 *
 * A program to start from: wiring.h says what is connected where, machine.cpp is the game, and
 * ledger.h what it promises about the player's money.
 */
#include <chrono>
#include <cstdio>
#include <thread>

#include "arguments.h"
#include "board_error.h"
#include "machine.h"
#include "why.h"

namespace {

using Clock = std::chrono::steady_clock;

// clang-format off
constexpr const char* kHelp =
    "A small complete machine: coins in, a spin of three reels, a win paid by the hopper.\n"
    "\n"
    "Usage: cabinet [ROUNDS [SECONDS [DEVICE]]]\n"
    "  ROUNDS   ends after so many rounds, 0 to 1000000000 (10)\n"
    "  SECONDS  ends when nothing has happened for so long (10)\n"
    "  DEVICE   number of the board, 0 to 15 (0)\n"
    "Example: marvane-sim --board k44 -- cabinet 3 60\n"
    "\n"
    "Exit status:\n"
    "  0  all that was won is paid\n"
    "  1  the board failed; the next start goes on where this one was\n"
    "  2  the hopper did not pay all: coins are owed\n"
    "  64 the arguments are wrong\n";
// clang-format on

constexpr int kBoardFailed = 1;
constexpr int kCoinsAreOwed = 2;
constexpr auto kLookAgainAfter = std::chrono::milliseconds(10);

void Play(Machine& machine, unsigned rounds, std::chrono::duration<double> patience) {
    machine.Begin();
    auto lastEvent = Clock::now();
    while (machine.IsBusy() ||
           (machine.RoundsPlayed() < rounds && Clock::now() < lastEvent + patience)) {
        if (machine.Pass()) lastEvent = Clock::now();
        std::this_thread::sleep_for(kLookAgainAfter);
    }
    machine.End();
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments(argc, argv, kHelp);
    const unsigned rounds = arguments.Whole("ROUNDS", 1'000'000'000, 10);
    const std::chrono::duration<double> patience(arguments.Seconds("SECONDS", 10));
    const int device = arguments.Device();
    arguments.End();

    MarvaneUSB board;
    if (!board.InitPort(device)) {
        ComplainOfOpening();
        return kBoardFailed;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // seen at once, in a file, too
    Machine machine(board, stdout);
    try {
        Play(machine, rounds, patience);
    } catch (const BoardError& error) {
        std::fprintf(stderr, "The machine stops: %s.\n", error.what());
        machine.PrintState(stderr);
        return kBoardFailed;
    }
    return machine.Money().owed == 0 ? 0 : kCoinsAreOwed;
}
