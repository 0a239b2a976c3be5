/**
 * @file board_writer.cpp
 * @brief Opens a board and writes to its EEPROM, when told to: board_writer NUMBER ADDRESS LENGTH.
 *
 * Says "ready" once the library is loaded, begins when its standard input ends, and exits with 0,
 * 1 when the board did not open or 2 when the write failed.
 */
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "marvaneusb.h"

int main(int count, char** values) {
    if (count != 4) return 3;
    const int number = std::atoi(values[1]);
    const auto address = static_cast<unsigned short>(std::atoi(values[2]));
    std::vector<unsigned char> data(static_cast<std::size_t>(std::atoi(values[3])), 0xA5);

    MarvaneUSB board;
    if (write(STDOUT_FILENO, "ready\n", 6) != 6) return 3;
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    if (!board.InitPort(number)) return 1;
    return board.WriteEEPROM(address, data.data(), static_cast<unsigned>(data.size())) ? 0 : 2;
}
