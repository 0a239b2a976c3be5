// Starts the command, waits for it with GLib's main loop and passes signals on.
#include "program/child.h"

#include <glib-unix.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "driver/descriptor.h"
#include "program/command_line.h"

namespace simulator {
namespace {

struct Child {
    pid_t process;
    GMainLoop* loop;
    int waitStatus = 0;
};

sigset_t EndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&signals, number);
    return signals;
}

// A key of the terminal reaches the whole foreground group, the command included.
bool IsFromTerminal(const signalfd_siginfo& info) {
    return info.ssi_code == SI_KERNEL;
}

gboolean OnSignal(gint descriptor, GIOCondition, gpointer data) {
    const auto* child = static_cast<Child*>(data);
    signalfd_siginfo info{};
    if (read(descriptor, &info, sizeof info) == sizeof info && !IsFromTerminal(info)) {
        kill(child->process, static_cast<int>(info.ssi_signo));
    }
    return G_SOURCE_CONTINUE;
}

void OnEnd(GPid, gint waitStatus, gpointer data) {
    auto* child = static_cast<Child*>(data);
    child->waitStatus = waitStatus;
    g_main_loop_quit(child->loop);
}

int Spawn(const std::vector<std::string>& command, const sigset_t& mask, pid_t& process) {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setsigmask(&attributes, &mask);
    const int error = posix_spawnp(&process, command.front().c_str(), nullptr, &attributes,
                                   ArgumentArray(command).data(), environ);
    posix_spawnattr_destroy(&attributes);
    return error;
}

}  // namespace

sigset_t HoldBackEndSignals() {
    (void)signal(SIGCHLD, SIG_DFL);  // a caller that ignores it would cost us the command's status
    const sigset_t signals = EndSignals();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    return before;
}

int RunAndWait(const std::vector<std::string>& command, const sigset_t& itsSignalMask) {
    Child child{};
    const int error = Spawn(command, itsSignalMask, child.process);
    if (error != 0) return StatusOfFailedStart(command.front(), error);

    child.loop = g_main_loop_new(nullptr, FALSE);
    const sigset_t signals = EndSignals();
    const Descriptor descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    const guint signalSource = g_unix_fd_add(descriptor.Number(), G_IO_IN, OnSignal, &child);
    g_child_watch_add(child.process, OnEnd, &child);
    g_main_loop_run(child.loop);

    g_source_remove(signalSource);
    g_main_loop_unref(child.loop);
    const int status = child.waitStatus;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

std::vector<char*> ArgumentArray(const std::vector<std::string>& words) {
    std::vector<char*> array;
    array.reserve(words.size() + 1);
    for (const std::string& word : words)
        array.push_back(const_cast<char*>(word.c_str()));
    array.push_back(nullptr);
    return array;
}

int StatusOfFailedStart(const std::string& command, int error) {
    std::cerr << "marvane-sim: " << command << ": " << std::strerror(error) << "\n";
    return error == ENOENT ? kNoSuchCommand : kCannotExecute;
}

}  // namespace simulator
