// What simulated boards take from the machine that they run on.
#ifndef MARVANE_SIMULATOR_PROGRAM_HOST_H
#define MARVANE_SIMULATOR_PROGRAM_HOST_H

#include "board/random.h"
#include "terms/time.h"

namespace simulator {

/// The time of day at the first call, and from then on what has passed since: setting the
/// machine's clock does not move a board's.
Moment MachineTime();

/// From the operating system.
std::uint16_t MachineRandom();

}  // namespace simulator

#endif
