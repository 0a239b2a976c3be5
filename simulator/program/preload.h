// The environment in which a program meets the simulated boards.
#ifndef MARVANE_SIMULATOR_PROGRAM_PRELOAD_H
#define MARVANE_SIMULATOR_PROGRAM_PRELOAD_H

#include <filesystem>
#include <string>

namespace simulator {

/// Puts the testbed's library before whatever the caller preloads.
void PreloadTestbed();

/// Leads a program that preloads the testbed's library to the testbed in the folder.
void PointToTestbed(const std::filesystem::path& folder);

/// Replaces this process with the same program and arguments, behind the testbed's library.
/// Returns only if that fails: why.
std::string RestartBehindTestbed(char** arguments);

/// Whether this process has come from RestartBehindTestbed, and not just its parent.
bool WasRestarted();

}  // namespace simulator

#endif
