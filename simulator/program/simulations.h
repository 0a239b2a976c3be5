// Where the running simulations of this user are found.
#ifndef MARVANE_SIMULATOR_PROGRAM_SIMULATIONS_H
#define MARVANE_SIMULATOR_PROGRAM_SIMULATIONS_H

#include <sys/types.h>

#include <filesystem>
#include <optional>

#include "driver/descriptor.h"

namespace simulator {

/// Names the control socket of the simulation that a process runs in front of.
constexpr char kControlVariable[] = "MARVANE_SIM_CONTROL";
constexpr char kControlSocketName[] = "marvane-sim-control";

struct Simulation {
    pid_t process;
    std::filesystem::path folder;  // of the testbed
    std::filesystem::path ControlSocket() const { return folder / kControlSocketName; }
};

/// Marks a testbed's folder as this process's own, until the process ends. To be called before
/// the control socket is there.
void ClaimFolder(const std::filesystem::path& folder);

/// Removes what simulations of this user have left behind that were killed.
void RemoveLeftovers();

/// The simulation of the given process; without one, that of the environment, else the only one
/// that runs. Throws std::runtime_error with a message for the user.
Simulation FindSimulation(std::optional<pid_t> process);

/// A connected stream socket; none when nobody listens there.
Descriptor ConnectTo(const std::filesystem::path& socketPath);

}  // namespace simulator

#endif
