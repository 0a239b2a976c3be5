/**
 * @file linked_process.cpp
 * @brief A program that is linked with the library, as an application is, and
 * ends while a callback switches a lamp without pause; its exit status tells.
 *
 * Arguments: whether it forks first, and does all this in the child; whether it
 * keeps an object to the end, and with it the thread for changed inputs;
 * whether it calls exit; and how many callbacks it waits for.
 */
#include <sys/wait.h>
#include <unistd.h>

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
MarvaneUSB* boardInCallback = &staticBoard;
std::atomic<int> lampsSet = 0;

void SetLamp(usbInput*, usbInput*) {
    boardInCallback->SetOutputBit(USB_OUTPUT_3, static_cast<unsigned>(lampsSet++) % 2);
}

}  // namespace

int main(int count, char** words) {
    if (count != 5) return 1;
    const std::string yes = "yes";
    if (words[1] == yes && fork() > 0) {
        int status = 0;
        wait(&status);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 4;
    }
    InProcessDriver& driver = InProcessDriver::Instance();
    driver.AddBoard(0, simulator::Model::kK44);
    if (staticBoard.InitPort(0) != 1) return 2;
    if (words[2] == yes) boardInCallback = new MarvaneUSB(staticBoard);
    driver.AnswerWith([](const Exchange& exchange) {
        // The end finds the thread with both locks more often than not.
        if (exchange.command == 77) std::this_thread::sleep_for(std::chrono::microseconds(200));
        return DriverAnswer{.reply = Bytes(5, 0xFF)};
    });
    usbInput all = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
    if (boardInCallback->ConfigureChangedInputsCallback(&all, &all, SetLamp) != 1) return 3;
    while (lampsSet < std::stoi(words[4]))
        std::this_thread::yield();
    if (words[3] == yes) std::exit(0);
    return 0;
}
