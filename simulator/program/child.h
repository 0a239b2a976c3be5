// The command that runs in front of the boards.
#ifndef MARVANE_SIMULATOR_PROGRAM_CHILD_H
#define MARVANE_SIMULATOR_PROGRAM_CHILD_H

#include <signal.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace simulator {

/// Holds back the signals that ask a program to end, for as long as this process lives, so that
/// RunAndWait sees them. To be called before any thread starts. Result: the mask before.
sigset_t HoldBackEndSignals();

/// Runs a command, hands on to it the signals that ask it to end, and waits for its end.
/// Result: its exit status, as env(1) has it.
int RunAndWait(const std::vector<std::string>& command, const sigset_t& itsSignalMask);

/// A null-terminated array of pointers into the words.
std::vector<char*> ArgumentArray(const std::vector<std::string>& words);

/// The exit status for a command that could not be started; says why.
int StatusOfFailedStart(const std::string& command, int error);

}  // namespace simulator

#endif
