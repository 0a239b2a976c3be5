/**
 * @file forked_child.h
 * @brief Part of a test that runs in a child of its own, because of what it does to its process.
 */
#ifndef FORKED_CHILD_H
#define FORKED_CHILD_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>

constexpr int kChildFailed = 1;
constexpr int kChildCannotRun = 77;

/** A longer life of a child means that it hangs; SIGALRM then ends it. */
constexpr unsigned kChildSeconds = 60;

/** Waits for a child; yields its exit code, or minus the signal that ended it. */
inline int AwaitChild(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/** Runs `body` in a child, which ends without further ado; 0: every expectation in it held. */
inline int RunInChild(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGALRM, SIG_DFL);
        alarm(kChildSeconds);
        body();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? kChildFailed : 0);
    }
    return AwaitChild(child);
}

/** In a child: ends all shared state for this process; the child ends where that is refused. */
inline void LoseSharedState() {
    // IPC objects of our own, of which there may be none.
    const char limits[] = "250 32000 32 0";
    bool lost = unshare(CLONE_NEWIPC) == 0;
    const int file = open("/proc/sys/kernel/sem", O_WRONLY | O_CLOEXEC);
    lost = lost && write(file, limits, std::strlen(limits)) > 0;
    close(file);
    if (!lost) _exit(kChildCannotRun);
}

#endif  // FORKED_CHILD_H
