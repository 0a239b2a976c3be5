/**
 * @file forked_child.h
 * @brief Part of a test that runs in a child of its own, because of what it does to its process.
 */
#ifndef FORKED_CHILD_H
#define FORKED_CHILD_H

#include <sys/wait.h>

#include "children.h"
#include "outside_view.h"

constexpr int kChildFailed = 102;

/** Exit status of a forked process, or minus the signal that ended it. */
inline int AwaitChild(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/** Runs `body` in a child; 0: every expectation in it held; minus the signal that ended it. */
inline int RunInChild(const std::function<void()>& body) {
    const int status = StatusOf([&] {
        body();
        return 0;
    });
    return status > 128 ? 128 - status : status;
}

/** Ends all shared state for this process: a child, for its parent has to join anew. */
inline void LoseSharedState() {
    RemoveSet();
    led_key_files::WithholdKeys();
}

#endif  // FORKED_CHILD_H
