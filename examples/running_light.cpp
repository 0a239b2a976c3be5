/**
 * @file running_light.cpp
 * @brief Lets one lit lamp run over outputs 0 to 7, whatever other programs do with the rest.
 *
 * Usage: running_light [rounds] [device number]. Any number of programs may drive lamps of one
 * board at once: each changes only its own.
 */
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "marvaneusb.h"

namespace {

constexpr unsigned kLampCount = 8;

bool Light(MarvaneUSB& board, unsigned lamp, bool on) {
    const auto output = static_cast<_usbOutputBitId>(lamp);
    if (board.SetOutputBit(output, on ? 1 : 0)) return true;
    std::fprintf(stderr, "Lamp %u could not be switched (code %d).\n", lamp, board.GetLastError());
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 1;
    const int number = argc > 2 ? std::atoi(argv[2]) : 0;

    MarvaneUSB board;
    if (!board.InitPort(number)) {
        std::fprintf(stderr, "Board %d could not be opened (code %d).\n", number,
                     board.GetLastError());
        return 1;
    }
    for (int round = 0; round < rounds; ++round) {
        for (unsigned lamp = 0; lamp < kLampCount; ++lamp) {
            if (!Light(board, lamp, true)) return 1;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            if (!Light(board, lamp, false)) return 1;
        }
    }
    // The last one stays lit, for the next look at the lamps.
    return Light(board, kLampCount - 1, true) ? 0 : 1;
}
