/**
 * @file children.cpp
 * @brief Forked processes that act for a test and end with it.
 */
#include "children.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

Child::Child(const std::function<int()>& act) : process(0) {
    std::fflush(nullptr);
    const pid_t parent = getpid();
    process = fork();
    if (process < 0) throw std::runtime_error("fork");
    if (process != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(125);
    int status = 124;
    try {
        status = act();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "child: %s\n", error.what());
    }
    std::fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 102 : status);
}

Child::~Child() {
    if (process == 0) return;
    Signal(SIGKILL);
    waitpid(process, nullptr, 0);
}

int Child::Wait() {
    int status = 0;
    const bool ended = Await([&] { return waitpid(process, &status, WNOHANG) == process; });
    if (!ended) return -1;
    process = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void Child::Signal(int number) const {
    kill(process, number);
}

bool Child::WaitsIn(long call) const {
    std::ifstream file("/proc/" + std::to_string(process) + "/syscall");
    long number = -1;
    file >> number;
    return number == call;
}

bool Await(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (int turn = 0; !condition(); ++turn) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        // Most of what is awaited comes within microseconds.
        if (turn < 100) {
            sched_yield();
        } else {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    return true;
}

void Barrier::Arrive(int parties) {
    const int mine = round.load();
    if (arrived.fetch_add(1) + 1 == parties) {
        arrived.store(0);
        round.fetch_add(1);
        return;
    }
    if (!Await([&] { return round.load() != mine; })) throw std::runtime_error("barrier: alone");
}
