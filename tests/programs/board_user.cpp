/**
 * @file board_user.cpp
 * @brief Opens a board as told: by its identity, or at the same instant as another process does.
 *
 *     board_user identity NUMBER        prints the type of the board with this identity
 *     board_user write NUMBER ADDRESS   says "ready" once the library is loaded, begins when its
 *                                       standard input ends, and writes 40 bytes to the EEPROM
 *
 * Exits with 0, 1 when the board did not open, or 2 when what followed failed.
 */
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "marvaneusb.h"

int main(int, char** words) {
    MarvaneUSB board;
    const auto number = static_cast<unsigned char>(std::atoi(words[2]));
    if (words[1] == std::string("identity")) {
        unsigned char type = 0;
        if (!board.InitUSBBoard(number)) return 1;
        if (!board.GetFittedBoard(&type)) return 2;
        std::printf("%d\n", type);
        return 0;
    }
    std::vector<unsigned char> data(40, 0xA5);
    std::puts("ready");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    if (!board.InitPort(number)) return 1;
    const auto address = static_cast<unsigned short>(std::atoi(words[3]));
    return board.WriteEEPROM(address, data.data(), static_cast<unsigned>(data.size())) ? 0 : 2;
}
