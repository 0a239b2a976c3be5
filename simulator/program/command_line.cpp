// Options and help texts.
#include "program/command_line.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "control/words.h"
#include "program/board_argument.h"
#include "program/host.h"

namespace simulator {
namespace {

constexpr char kRunHelp[] =
    "Runs a command in front of simulated Marvane boards.\n"
    "\n"
    "  marvane-sim --board BOARD [--board BOARD ...] [options] -- COMMAND [ARGUMENT ...]\n"
    "  marvane-sim ctl  [--pid PID] WORD ...     drives a running simulation from outside\n"
    "  marvane-sim join [--pid PID] -- COMMAND   runs one more command in front of it\n"
    "\n"
    "BOARD is [NUMBER=]MODEL[@SPEED][:id=IDENTITY][:eeprom=PART[:blank]][:serial0=WHAT]\n"
    "[:serial1=WHAT], for example k44, k40@12 or 5=k50:id=3:eeprom=24LC64:serial0=pty.\n"
    "The exit status is the command's, 128 + n when signal n ended it, 125 when the simulation\n"
    "failed, 126 when the command cannot be executed, 127 when there is none.";

constexpr char kControlHelp[] =
    "Drives a running simulation: the one in front of which ctl itself runs, else the only one\n"
    "of this user, else the one that --pid chooses. Exit status: 0 done, 1 refused, 2 words that\n"
    "are not understood.";

constexpr char kJoinHelp[] =
    "Runs one more command in front of a running simulation's boards, with the same shared\n"
    "memory. Exit status as of marvane-sim itself.";

constexpr pid_t kHighestProcess = 4194304;
constexpr unsigned kHighestSeed = 1'000'000'000;

/// Parsing stops with the exit status: something is wrong or help was asked for, and was said.
struct Stop {
    int status;
};

[[noreturn]] void Complain(const std::string& message, int status) {
    std::cerr << "marvane-sim: " << message << "\n";
    throw Stop{status};
}

// Result: what follows our options, from "--" or the first argument on that is none.
std::vector<std::string> Parse(CLI::App& app, int count, char** values, int statusIfWrong) {
    app.prefix_command();
    try {
        app.parse(count, values);
    } catch (const CLI::ParseError& error) {
        throw Stop{app.exit(error) == 0 ? 0 : statusIfWrong};
    }
    std::vector<std::string> rest = app.remaining();
    if (!rest.empty() && rest.front() == "--") {
        rest.erase(rest.begin());
    } else if (!rest.empty() && rest.front().starts_with('-')) {
        Complain("there is no option " + rest.front(), statusIfWrong);
    }
    if (rest.empty()) Complain("what to do is missing; see --help", statusIfWrong);
    return rest;
}

void AddPid(CLI::App& app, std::optional<pid_t>& process) {
    app.add_option("--pid", process, "process id of the marvane-sim that is meant")
        ->check(CLI::Range(1, kHighestProcess));
}

// The boards' settings as the command line has them.
struct BoardTexts {
    std::vector<std::string> boards;
    std::optional<std::string> eeprom;
    std::vector<std::string> serialLines;
    std::optional<unsigned> seed;
    bool firmwareRunning = false;
};

std::map<int, BoardOptions> Boards(const BoardTexts& texts) try {
    BoardOptions common{
        .firmwareRunning = texts.firmwareRunning, .time = MachineTime, .random = MachineRandom};
    if (texts.eeprom) ParseEeprom(*texts.eeprom, common);
    for (const std::string& text : texts.serialLines)
        ParseSerialLine(text, common);
    std::map<int, BoardOptions> boards = ParseBoards(texts.boards, common);
    if (!texts.seed) return boards;
    for (auto& [number, board] : boards)
        board.random = SeededRandom(*texts.seed + static_cast<unsigned>(number));
    return boards;
} catch (const std::invalid_argument& error) {
    Complain(error.what(), kOwnFailure);
}

RunArguments ReadRun(int count, char** values) {
    CLI::App app(kRunHelp, "marvane-sim");
    BoardTexts texts;
    RunArguments arguments;
    app.add_option("--board", texts.boards, "a simulated board; once for each")
        ->allow_extra_args(false)
        ->required();
    app.add_option("--eeprom", texts.eeprom,
                   "PART[:blank], the EEPROM of boards that name none; a 24LC256 without it");
    app.add_option("--serial", texts.serialLines,
                   "PORT=WHAT, what hangs on serial port 0 or 1 of boards that say nothing "
                   "themselves: " +
                       SerialLineNames())
        ->allow_extra_args(false);
    app.add_flag("--firmware-running", texts.firmwareRunning,
                 "the boards run their program already");
    app.add_option("--seed", texts.seed, "the boards' random numbers are the same in each run")
        ->check(CLI::Range(1U, kHighestSeed));
    app.add_option("--state", arguments.stateFolder,
                   "a folder that keeps what the boards keep without power");
    app.add_flag("--share-ipc", arguments.shareIpc,
                 "stay in the IPC namespace of the machine, where programs on live boards are");
    arguments.command = Parse(app, count, values, kOwnFailure);
    arguments.boards = Boards(texts);
    return arguments;
}

ControlArguments ReadControl(int count, char** values) {
    CLI::App app(kControlHelp, "marvane-sim ctl");
    ControlArguments arguments;
    AddPid(app, arguments.process);
    app.footer("Words:\n" + HelpOnWords());
    arguments.words = Parse(app, count, values, kWrongUsage);
    return arguments;
}

JoinArguments ReadJoin(int count, char** values) {
    CLI::App app(kJoinHelp, "marvane-sim join");
    JoinArguments arguments;
    AddPid(app, arguments.process);
    arguments.command = Parse(app, count, values, kOwnFailure);
    return arguments;
}

template <class Arguments>
Parsed<Arguments> Caught(Arguments (*read)(int, char**), int count, char** values) {
    try {
        return {.arguments = read(count, values)};
    } catch (const Stop& stop) {
        return {.arguments = std::nullopt, .exitStatus = stop.status};
    }
}

}  // namespace

Parsed<RunArguments> ParseRun(int count, char** values) {
    return Caught(ReadRun, count, values);
}

Parsed<ControlArguments> ParseControl(int count, char** values) {
    return Caught(ReadControl, count, values);
}

Parsed<JoinArguments> ParseJoin(int count, char** values) {
    return Caught(ReadJoin, count, values);
}

}  // namespace simulator
