// Pseudo-terminals on the boards' serial lines, for programs that play what hangs on them.
#ifndef MARVANE_SIMULATOR_DRIVER_SERIAL_TERMINALS_H
#define MARVANE_SIMULATOR_DRIVER_SERIAL_TERMINALS_H

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "driver/driver_stand_in.h"

namespace simulator {

/// A terminal for each line that asks for one. A thread of their own moves the bytes; what a board
/// sends while nobody reads waits, as much as a port's queue holds.
class SerialTerminals {
public:
    /// Throws std::runtime_error where the machine grants no terminal.
    explicit SerialTerminals(DriverStandIn& standIn);
    ~SerialTerminals();
    SerialTerminals(const SerialTerminals&) = delete;
    SerialTerminals& operator=(const SerialTerminals&) = delete;

    /// One line for each: "board 0 serial 1: /dev/pts/5".
    std::string List() const;

private:
    struct Terminal;

    void Run();
    void Exchange(Terminal& terminal, bool readable);

    DriverStandIn& driver;
    std::vector<Terminal> terminals;
    std::atomic<bool> ending = false;
    std::thread thread;  // none without terminals
};

}  // namespace simulator

#endif
