// What the three forms of marvane-sim take.
#ifndef MARVANE_SIMULATOR_PROGRAM_COMMAND_LINE_H
#define MARVANE_SIMULATOR_PROGRAM_COMMAND_LINE_H

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "board/board.h"

namespace simulator {

/// Exit statuses of our own around a command, as env(1) has them.
enum ExitStatus { kOwnFailure = 125, kCannotExecute = 126, kNoSuchCommand = 127 };

struct RunArguments {
    std::map<int, BoardOptions> boards;
    std::optional<std::string> stateFolder;
    bool shareIpc = false;
    std::vector<std::string> command;
};

struct ControlArguments {
    std::optional<pid_t> process;
    std::vector<std::string> words;
};

struct JoinArguments {
    std::optional<pid_t> process;
    std::vector<std::string> command;
};

/// Either the arguments, or the exit status with which the program ends, having said why.
template <class Arguments>
struct Parsed {
    std::optional<Arguments> arguments;
    int exitStatus = 0;
};

/// Count and values in main's form: the first is a name, what follows are the arguments.
Parsed<RunArguments> ParseRun(int count, char** values);
Parsed<ControlArguments> ParseControl(int count, char** values);
Parsed<JoinArguments> ParseJoin(int count, char** values);

}  // namespace simulator

#endif
