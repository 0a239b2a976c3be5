// What simulated boards take from the machine that they run on.
#ifndef MARVANE_SIMULATOR_MACHINE_H
#define MARVANE_SIMULATOR_MACHINE_H

#include "board_random.h"
#include "board_time.h"

namespace simulator {

/// The time of day at the first call, and from then on what has passed since: setting the
/// machine's clock does not move a board's.
Moment MachineTime();

/// From the operating system.
std::uint16_t MachineRandom();

}  // namespace simulator

#endif
