// Keeps simulated runs away from the semaphores and shared memory of live boards.
#ifndef MARVANE_SIMULATOR_PROGRAM_IPC_NAMESPACE_H
#define MARVANE_SIMULATOR_PROGRAM_IPC_NAMESPACE_H

#include <sys/types.h>

#include <string>

namespace simulator {

/// Moves this process, which must have one thread only, into a System V IPC namespace of its own,
/// through a user namespace where it may not do so directly; user and group stay the same.
/// Result: empty, or why the kernel refused.
std::string EnterOwnIpcNamespace();

/// Moves this process, which must have one thread only, into the namespaces of another one.
/// Result: empty, or why not.
std::string JoinIpcNamespace(pid_t process);

/// Whether programs on live boards have left or use something in this process's namespace.
bool LiveBoardsLeaveTraces();

}  // namespace simulator

#endif
