/**
 * @file forked_child.h
 * @brief Part of a test that runs in a child of its own, because of what it does to its process.
 */
#ifndef FORKED_CHILD_H
#define FORKED_CHILD_H

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "led_key_files.h"

constexpr int kChildFailed = 1;

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

/** Ends all shared state for this process: a child, for its parent has to join anew. */
inline void LoseSharedState() {
    for (const int set : led_key_files::FindObjects().sets)
        semctl(set, 0, IPC_RMID);
    led_key_files::WithholdKeys();
}

#endif  // FORKED_CHILD_H
