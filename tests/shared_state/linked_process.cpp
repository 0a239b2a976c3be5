/**
 * @file linked_process.cpp
 * @brief A program that is linked with the library, as an application is; its exit status tells.
 */
#include <cstdlib>
#include <string>

#include "in_process_driver.h"
#include "marvaneusb.h"

namespace {

// Constructed at the program's start and destroyed at its end.
MarvaneUSB staticBoard;

}  // namespace

int main(int count, char** words) {
    const std::string what = count > 1 ? words[1] : "";
    InProcessDriver::Instance().AddBoard(0, simulator::Model::kK44);
    if (staticBoard.InitPort(0) != 1) return 2;
    MarvaneUSB board = staticBoard;
    for (unsigned round = 0; round < 50; ++round) {
        const auto output = static_cast<_usbOutputBitId>(round % 38);
        if (board.SetOutputBit(output, round % 2) != 1) return 3;
    }
    if (what == "exit inside") std::exit(0);
    return what == "switch" ? 0 : 4;
}
