/**
 * @file forks.cpp
 * @brief All that happens when a process forks while it has the library loaded.
 */
#include "forks.h"

#include <pthread.h>

#include "key_file.h"
#include "mutex.h"
#include "shared_order.h"
#include "shared_use.h"

namespace {

/** Lives as long as the library is loaded. */
class ForkWatch {
public:
    ForkWatch() {
        // No key file is opened or closed meanwhile: the child must know which ones to close.
        pthread_atfork(OpenKeyFiles::HoldStill, OpenKeyFiles::GoOn, Forks::CountInChild);
    }
};

MARVANE_INIT_BEFORE_HANDLES const ForkWatch watch;

}  // namespace

constinit std::atomic<int> Forks::count = 0;

void Forks::CountInChild() {
    const int forks = Count() + 1;
    OpenKeyFiles::CloseInChild();
    LinuxMutexSet::ForgetJoiningInChild();
    SharedUse::ForgetOperationsInChild(forks);
    count.store(forks, std::memory_order_relaxed);
}
