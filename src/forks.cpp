/**
 * @file forks.cpp
 * @brief All that happens when a process forks while it has the library loaded.
 */
#include "forks.h"

#include <pthread.h>

#include "key_file.h"
#include "mutex.h"
#include "shared_use.h"

constinit std::atomic<int> Forks::count_ = 0;

void Forks::Watch() {
    // No key file is opened or closed meanwhile: the child must know which ones to close.
    static const int registered =
        pthread_atfork(OpenKeyFiles::HoldStill, OpenKeyFiles::GoOn, CountInChild);
    static_cast<void>(registered);
}

void Forks::CountInChild() {
    const int forks = Count() + 1;
    OpenKeyFiles::CloseInChild();
    LinuxMutexSet::ForgetJoiningInChild();
    SharedUse::ForgetOperationsInChild(forks);
    count_.store(forks, std::memory_order_relaxed);
}
