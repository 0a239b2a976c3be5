// Testbeds lie in the folder for temporary files; those with a control socket are simulations.
#include "program/simulations.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace simulator {
namespace {

namespace fs = std::filesystem;

// Anybody may put anything there: only what nobody else can write to is believed.
bool IsOurs(const fs::path& folder) {
    struct stat entry {};
    return lstat(folder.c_str(), &entry) == 0 && S_ISDIR(entry.st_mode) &&
           entry.st_uid == geteuid() && (entry.st_mode & 077) == 0;
}

// Running or left behind.
std::vector<fs::path> Folders() {
    std::vector<fs::path> folders;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(g_get_tmp_dir(), error)) {
        if (!entry.path().filename().string().starts_with("umockdev.")) continue;
        if (!IsOurs(entry.path())) continue;
        if (fs::exists(entry.path() / kControlSocketName, error)) folders.push_back(entry.path());
    }
    return folders;
}

// The process that listens there, which need not be the one that made the socket's folder.
pid_t ListenerOf(const fs::path& socketPath) {
    const Descriptor connection = ConnectTo(socketPath);
    ucred peer{};
    socklen_t size = sizeof peer;
    const bool known = getsockopt(connection.Number(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
    return known ? peer.pid : -1;
}

std::optional<Simulation> At(const fs::path& folder) {
    Simulation simulation{.process = -1, .folder = folder};
    simulation.process = ListenerOf(simulation.ControlSocket());
    if (simulation.process <= 0) return std::nullopt;
    return simulation;
}

std::vector<Simulation> RunningSimulations() {
    std::vector<Simulation> running;
    for (const fs::path& folder : Folders()) {
        if (const auto simulation = At(folder)) running.push_back(*simulation);
    }
    return running;
}

// Result: a descriptor that holds the lock until it is closed or the process ends; none where
// another process holds it.
Descriptor LockFolder(const fs::path& folder) {
    Descriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return flock(lock.Number(), LOCK_EX | LOCK_NB) == 0 ? std::move(lock) : Descriptor(-1);
}

std::string ListOf(const std::vector<Simulation>& simulations) {
    std::string text;
    for (const Simulation& simulation : simulations) {
        text += " " + std::to_string(simulation.process);
    }
    return text;
}

}  // namespace

Descriptor ConnectTo(const fs::path& socketPath) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = socketPath.string();
    if (path.size() >= sizeof address.sun_path) return Descriptor(-1);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);

    Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto* to = reinterpret_cast<const sockaddr*>(&address);
    return connect(connection.Number(), to, sizeof address) == 0 ? std::move(connection)
                                                                 : Descriptor(-1);
}

// The lock outlives everything that this process does with the folder, its removal included.
void ClaimFolder(const fs::path& folder) {
    (void)LockFolder(folder).Release();
}

void RemoveLeftovers() {
    std::error_code error;
    for (const fs::path& folder : Folders()) {
        const Descriptor lock = LockFolder(folder);
        if (lock.IsOpen()) fs::remove_all(folder, error);
    }
}

Simulation FindSimulation(std::optional<pid_t> process) {
    if (process) {
        const auto running = RunningSimulations();
        const auto found = std::ranges::find(running, *process, &Simulation::process);
        if (found != running.end()) return *found;
        throw std::runtime_error("no simulation runs as process " + std::to_string(*process));
    }
    if (const char* socketPath = std::getenv(kControlVariable)) {
        if (const auto simulation = At(fs::path(socketPath).parent_path())) return *simulation;
        throw std::runtime_error("the simulation of this environment has ended");
    }
    const auto running = RunningSimulations();
    if (running.empty()) throw std::runtime_error("no simulation is running");
    if (running.size() > 1) {
        throw std::runtime_error("several simulations are running, choose one with --pid:" +
                                 ListOf(running));
    }
    return running.front();
}

}  // namespace simulator
