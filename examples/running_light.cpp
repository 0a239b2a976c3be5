/**
 * @file running_light.cpp
 * @brief Lets one lit lamp run over outputs 0 to 7, whatever other programs do with the rest.
 */
#include <chrono>
#include <cstdio>
#include <thread>

#include "arguments.h"
#include "marvaneusb.h"
#include "why.h"

namespace {

// clang-format off
constexpr const char* kHelp =
    "Lets one lit lamp run over outputs 0 to 7. Any number of programs may drive lamps of one\n"
    "board at once: each changes only its own.\n"
    "\n"
    "Usage: running_light [ROUNDS [DEVICE]]\n"
    "  ROUNDS  how often it runs over them, 0 to 1000000000 (1)\n"
    "  DEVICE  number of the board, 0 to 15 (0)\n"
    "Example: marvane-sim --board k44 -- running_light 3\n"
    "\n"
    "Exit status: 0 done, 1 the board failed, 64 the arguments are wrong\n";
// clang-format on

constexpr unsigned kLampCount = 8;

bool Light(MarvaneUSB& board, unsigned lamp, bool on) {
    const auto output = static_cast<_usbOutputBitId>(lamp);
    if (board.SetOutputBit(output, on ? 1 : 0)) return true;
    std::fprintf(stderr, "Lamp %u could not be switched: %s.\n", lamp, Why().c_str());
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments(argc, argv, kHelp);
    const unsigned rounds = arguments.Whole("ROUNDS", 1'000'000'000, 1);
    const int device = arguments.Device();
    arguments.End();

    MarvaneUSB board;
    if (!board.InitPort(device)) {
        ComplainOfOpening();
        return 1;
    }
    for (unsigned round = 0; round < rounds; ++round) {
        for (unsigned lamp = 0; lamp < kLampCount; ++lamp) {
            if (!Light(board, lamp, true)) return 1;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            if (!Light(board, lamp, false)) return 1;
        }
    }
    // The last one stays lit, for the next look at the lamps.
    return Light(board, kLampCount - 1, true) ? 0 : 1;
}
