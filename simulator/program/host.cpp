// The machine's clocks and its random numbers.
#include "program/host.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace simulator {

Moment MachineTime() {
    using std::chrono::milliseconds;
    using std::chrono::steady_clock;
    using std::chrono::system_clock;
    static const auto steadyStart = steady_clock::now();
    static const auto timeOfDay = std::chrono::floor<milliseconds>(system_clock::now());
    return timeOfDay + std::chrono::floor<milliseconds>(steady_clock::now() - steadyStart);
}

std::uint16_t MachineRandom() {
    std::uint16_t number = 0;
    if (getentropy(&number, sizeof number) != 0) {
        throw std::system_error(errno, std::generic_category(), "no random numbers");
    }
    return number;
}

}  // namespace simulator
