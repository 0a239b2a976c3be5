// What the outside may see of serial ports and of what hangs on their lines, as JSON.
#ifndef MARVANE_SIMULATOR_REPORT_SERIAL_H
#define MARVANE_SIMULATOR_REPORT_SERIAL_H

#include <nlohmann/json.hpp>

#include "board/board.h"

namespace simulator {

/// A record for each port.
nlohmann::ordered_json SerialPortsOf(const Board& board);

}  // namespace simulator

#endif
