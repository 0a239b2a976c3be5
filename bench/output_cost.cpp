/**
 * @file output_cost.cpp
 * @brief What one SetOutputBit costs beyond its ioctl and the four semops of its two locks.
 *
 * Against four bare semops with SEM_UNDO on a set of the same size around the bare exchange.
 */
#include <sys/ipc.h>
#include <sys/sem.h>

#include "bare_exchange.h"
#include "comparison.h"
#include "marvaneusb.h"

namespace {

constexpr int kSemaphoreCount = 11;
constexpr double kBoundPercent = 3;

class BareLocks {
public:
    BareLocks() : set_(semget(IPC_PRIVATE, kSemaphoreCount, 0600)) {
        for (int i = 0; i < kSemaphoreCount; ++i)
            semctl(set_, i, SETVAL, 1);
    }
    BareLocks(const BareLocks&) = delete;
    BareLocks& operator=(const BareLocks&) = delete;
    ~BareLocks() { semctl(set_, 0, IPC_RMID); }

    bool Change(unsigned short semaphore, short by) const {
        sembuf operation = {semaphore, by, SEM_UNDO};
        return semop(set_, &operation, 1) == 0;
    }

private:
    int set_;
};

void RunBare(benchmark::State& state) {
    const BareLocks locks;
    BareExchange exchange(kK44Device, 77, {0, 16, 0, 0, 0, 0, 0, 0, 0, 0});
    for (auto _ : state) {
        if (!locks.Change(2, -1) || !locks.Change(3, -1)) state.SkipWithError("no semaphores");
        benchmark::DoNotOptimize(exchange.Run());
        if (!locks.Change(3, 1) || !locks.Change(2, 1)) state.SkipWithError("no semaphores");
    }
}

void RunOperation(benchmark::State& state) {
    MarvaneUSB board;
    if (!board.InitPort(kK44Device)) state.SkipWithError("no board");
    for (auto _ : state) {
        if (!board.SetOutputBit(USB_OUTPUT_12, 1)) state.SkipWithError("the operation failed");
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("SetOutputBit bare", RunBare);
    benchmark::RegisterBenchmark("SetOutputBit", RunOperation);
    return RunComparisons(argc, argv, {{"SetOutputBit", 0, kBoundPercent}});
}
