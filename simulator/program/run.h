// "marvane-sim --board ... -- command": sets up the boards and runs the command in front of them.
#ifndef MARVANE_SIMULATOR_PROGRAM_RUN_H
#define MARVANE_SIMULATOR_PROGRAM_RUN_H

#include "program/command_line.h"

namespace simulator {

/// Result: the exit status for marvane-sim. Restarts the program on the way with the arguments
/// as main has them.
int Run(const RunArguments& arguments, char** mainArguments);

}  // namespace simulator

#endif
