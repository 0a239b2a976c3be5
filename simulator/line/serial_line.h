// What goes over a serial line.
#ifndef MARVANE_SIMULATOR_LINE_SERIAL_LINE_H
#define MARVANE_SIMULATOR_LINE_SERIAL_LINE_H

#include <cstdint>
#include <vector>

namespace simulator {

// What goes over a serial line: words of nine bits; bytes are words below 256.
using SerialWord = std::uint16_t;
using SerialWords = std::vector<SerialWord>;

}  // namespace simulator

#endif
