// Twice through the same program: first into an IPC namespace, while there is one thread only,
// then behind the testbed's library, where the boards and the command are.
#include "program/run.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <optional>
#include <stdexcept>

#include "control/server.h"
#include "driver/descriptor.h"
#include "driver/driver_stand_in.h"
#include "driver/serial_terminals.h"
#include "program/child.h"
#include "program/ipc_namespace.h"
#include "program/preload.h"
#include "program/simulations.h"
#include "state/directory.h"
#include "state/keeper.h"

namespace simulator {
namespace {

// Every device node of the testbed is a pseudo-terminal.
void RequirePseudoTerminals() {
    const Descriptor terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    const char* name = terminal.IsOpen() ? ptsname(terminal.Number()) : nullptr;
    if (name == nullptr || access(name, F_OK) != 0) {
        throw std::runtime_error(
            "simulated device nodes need pseudo-terminals: mount a devpts on /dev/pts, and have "
            "/dev/ptmx");
    }
}

void KeepAwayFromLiveBoards() {
    const std::string refused = EnterOwnIpcNamespace();
    if (refused.empty()) return;
    if (LiveBoardsLeaveTraces()) {
        throw std::runtime_error(
            "programs on live boards use this machine's semaphores or shared memory, and the "
            "kernel grants no IPC namespace apart from them (" +
            refused + "); --share-ipc runs the command among them all the same");
    }
}

int RunBehindTestbed(const RunArguments& arguments) {
    const sigset_t callersMask = HoldBackEndSignals();
    RequirePseudoTerminals();

    RemoveLeftovers();
    std::optional<StateDirectory> state;
    if (arguments.stateFolder) state.emplace(*arguments.stateFolder);
    DriverStandIn driver(arguments.boards);
    ClaimFolder(driver.Folder());
    std::optional<StateKeeper> keeper;
    if (state) keeper.emplace(*state, driver);
    const SerialTerminals terminals(driver);
    std::cout << terminals.List() << std::flush;
    const ControlServer control(driver, driver.Folder() / kControlSocketName);
    PointToTestbed(driver.Folder());
    return RunAndWait(arguments.command, callersMask);
}

}  // namespace

int Run(const RunArguments& arguments, char** mainArguments) try {
    if (WasRestarted()) return RunBehindTestbed(arguments);
    if (!arguments.shareIpc) KeepAwayFromLiveBoards();
    throw std::runtime_error(RestartBehindTestbed(mainArguments));
} catch (const std::exception& error) {
    std::cerr << "marvane-sim: " << error.what() << "\n";
    return kOwnFailure;
}

}  // namespace simulator
