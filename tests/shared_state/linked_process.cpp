/**
 * @file linked_process.cpp
 * @brief A program that is linked with the library, as an application is; its exit status tells.
 */
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "in_process_driver.h"
#include "marvaneusb.h"

namespace {

// Constructed at the program's start and destroyed at its end.
MarvaneUSB staticBoard;

MarvaneUSB* boardInCallback = nullptr;
std::atomic<int> lampsSet = 0;

void SetLamp(usbInput*, usbInput*) {
    boardInCallback->SetOutputBit(USB_OUTPUT_3, static_cast<unsigned>(lampsSet++) % 2);
}

/** Begins to switch a lamp without pause, on the thread for changed inputs. */
bool SetLampInCallbacks(MarvaneUSB& board, int times) {
    InProcessDriver::Instance().AnswerWith([](const Exchange& exchange) {
        // The end finds the thread with both locks more often than not.
        if (exchange.command == 77) std::this_thread::sleep_for(std::chrono::microseconds(200));
        return DriverAnswer{.reply = Bytes(5, 0xFF)};
    });
    boardInCallback = &board;
    usbInput all = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
    if (board.ConfigureChangedInputsCallback(&all, &all, SetLamp) != 1) return false;
    while (lampsSet < times)
        std::this_thread::yield();
    return true;
}

int Switch(bool exits) {
    MarvaneUSB board = staticBoard;
    for (unsigned round = 0; round < 50; ++round) {
        const auto output = static_cast<_usbOutputBitId>(round % 38);
        if (board.SetOutputBit(output, round % 2) != 1) return 3;
    }
    if (exits) std::exit(0);
    return 0;
}

}  // namespace

/** Arguments: what to do; "exit" or "return"; and, of callbacks, how many at least. */
int main(int count, char** words) {
    if (count != 4) return 1;
    const std::string what = words[1];
    const bool exits = words[2] == std::string("exit");
    const int times = std::stoi(words[3]);
    InProcessDriver::Instance().AddBoard(0, simulator::Model::kK44);
    if (staticBoard.InitPort(0) != 1) return 2;
    if (what == "switch") return Switch(exits);

    // An object that is never destroyed keeps the thread running until the process is gone.
    const bool toTheEnd = what == "callbacks to the end";
    if (!toTheEnd && what != "callbacks") return 4;
    if (!SetLampInCallbacks(toTheEnd ? *new MarvaneUSB(staticBoard) : staticBoard, times)) return 5;
    if (exits) std::exit(0);
    return 0;
}
