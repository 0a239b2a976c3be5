// The forms of marvane-sim that meet a running simulation: "ctl" and "join".
#ifndef MARVANE_SIMULATOR_PROGRAM_ATTACH_H
#define MARVANE_SIMULATOR_PROGRAM_ATTACH_H

#include "program/command_line.h"

namespace simulator {

// Result: the exit status for marvane-sim.
int Control(const ControlArguments& arguments);
int Join(const JoinArguments& arguments);

}  // namespace simulator

#endif
