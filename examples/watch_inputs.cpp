/**
 * @file watch_inputs.cpp
 * @brief Opens the first board, prints what it is and its inputs, and then every change.
 */
#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

#include "arguments.h"
#include "marvaneusb.h"
#include "why.h"

namespace {

// clang-format off
constexpr const char* kHelp =
    "Opens the first board, prints what it is and its inputs, and then every change.\n"
    "\n"
    "Usage: watch_inputs [SECONDS]\n"
    "  SECONDS  ends after so long (when it is interrupted, or the board is unplugged)\n"
    "Example: marvane-sim --board k44 -- watch_inputs 60\n"
    "\n"
    "Exit status: 0 done, 1 the board failed, 64 the arguments are wrong\n";
// clang-format on

constexpr double kForEver = 1e9;  // seconds

volatile std::sig_atomic_t interrupted = 0;

bool IsSet(const usbInput& inputs, unsigned input) {
    return (inputs.bytes[input / 8] >> (input % 8) & 1U) != 0;
}

void PrintBoard(MarvaneUSB& board) {
    const char* const models[] = {"unknown", "K40", "K44", "K50"};
    const char* const speeds[] = {"no", "12 Mbit/s", "480 Mbit/s"};
    unsigned char type = 0;
    unsigned char speed = 0;
    board.GetFittedBoard(&type);
    board.GetBoardSpeed(&speed);
    std::printf("board: %s at %s\n", models[type <= 3 ? type : 0], speeds[speed <= 2 ? speed : 0]);
}

void PrintInputs(const usbInput& inputs) {
    std::printf("inputs that are on:");
    for (unsigned input = USB_INPUT_0; input <= USB_INPUT_32; ++input) {
        if (IsSet(inputs, input)) std::printf(" %u", input);
    }
    std::printf("\n");
}

void PrintChanges(const usbInput& before, const usbInput& now) {
    for (unsigned input = USB_INPUT_0; input <= USB_INPUT_32; ++input) {
        if (IsSet(before, input) == IsSet(now, input)) continue;
        std::printf("input %u is %s\n", input, IsSet(now, input) ? "on" : "off");
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments(argc, argv, kHelp);
    const double seconds = arguments.Seconds("SECONDS", kForEver);
    arguments.End();
    std::signal(SIGINT, [](int) { interrupted = 1; });

    MarvaneUSB board;
    if (!board.init(0)) {
        ComplainOfOpening();
        return 1;
    }
    usbInput inputs;
    if (!board.GetInputs(&inputs)) {
        std::fprintf(stderr, "The inputs could not be read: %s.\n", Why().c_str());
        return 1;
    }
    PrintBoard(board);
    PrintInputs(inputs);
    std::fflush(stdout);

    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!interrupted && std::chrono::steady_clock::now() < end) {
        usbInput now;
        if (!board.GetInputs(&now)) {
            std::fprintf(stderr, "The board does not answer any more: %s.\n", Why().c_str());
            return 1;
        }
        PrintChanges(inputs, now);
        inputs = now;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return 0;
}
