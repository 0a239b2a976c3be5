/**
 * @file thread_calls.cpp
 * @brief The calls that ThreadCalls takes over.
 */
#include "thread_calls.h"

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <new>
#include <thread>

namespace {

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

using ThreadFunction = void* (*)(void*);

struct Start {
    ThreadFunction run;
    void* argument;
    int endDelayMs;
};

void* Run(void* argument) {
    auto* own = static_cast<Start*>(argument);
    const Start start = *own;
    delete own;
    ++ThreadCalls::Instance().begun;
    void* result = start.run(start.argument);
    if (start.endDelayMs > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(start.endDelayMs));
    }
    ++ThreadCalls::Instance().ended;
    return result;
}

}  // namespace

ThreadCalls& ThreadCalls::Instance() {
    // Never destroyed: threads may still run at exit.
    static auto* calls = new ThreadCalls;
    return *calls;
}

extern "C" {

int usleep(useconds_t duration) {
    ThreadCalls& calls = ThreadCalls::Instance();
    if (calls.onSleep) calls.onSleep(duration);
    static auto* next = Next<int(useconds_t)>("usleep");
    const useconds_t shortened = duration / calls.sleepDivisor;
    return shortened == 0 ? 0 : next(shortened);
}

int pthread_attr_setdetachstate(pthread_attr_t* attributes, int state) noexcept {
    if (ThreadCalls::Instance().refuseDetaching) return EINVAL;
    static auto* next = Next<int(pthread_attr_t*, int)>("pthread_attr_setdetachstate");
    return next(attributes, state);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, ThreadFunction run,
                   void* argument) noexcept {
    ThreadCalls& calls = ThreadCalls::Instance();
    if (calls.refuseCreation) return EAGAIN;
    auto* start = new (std::nothrow) Start{run, argument, calls.endDelayMs};
    if (start == nullptr) return EAGAIN;
    static auto* next =
        Next<int(pthread_t*, const pthread_attr_t*, ThreadFunction, void*)>("pthread_create");
    const int result = next(thread, attributes, Run, start);
    if (result != 0) delete start;
    return result;
}

}  // extern "C"
