/**
 * @file children.h
 * @brief Forked processes that act for a test and end with it, and memory they share with it.
 */
#ifndef CHILDREN_H
#define CHILDREN_H

#include <sys/mman.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <new>
#include <random>

/** How long a test waits for what is due at once, before it counts as stuck. */
constexpr std::chrono::seconds kPatience{60};

/** Runs a function in a forked process, whose exit status is the function's result. */
class Child {
public:
    explicit Child(const std::function<int()>& act);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    Child(Child&& other) noexcept : process(other.process) { other.process = 0; }
    /** Kills and collects what still runs. */
    ~Child();

    /** Exit status (102: an expectation failed in it), 128 + signal, or -1 after kPatience. */
    int Wait();
    void Signal(int number) const;
    [[nodiscard]] pid_t Process() const { return process; }
    /** The process is inside this system call (SYS_...), which it waits in. */
    [[nodiscard]] bool WaitsIn(long call) const;

private:
    pid_t process;
};

inline int StatusOf(const std::function<int()>& act) {
    return Child(act).Wait();
}

/** Numbers that are the same for the same seed. */
class Random {
public:
    explicit Random(unsigned seed) : engine(seed) {}
    unsigned Below(unsigned limit) { return static_cast<unsigned>(engine() % limit); }

private:
    std::mt19937 engine;
};

/** Waits until it is true; false after kPatience. */
bool Await(const std::function<bool()>& condition);

/** One T in memory that processes forked later share. */
template <class T>
class InSharedMemory {
public:
    InSharedMemory()
        : place(
              mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (place == MAP_FAILED) throw std::bad_alloc();
        new (place) T();
    }
    InSharedMemory(const InSharedMemory&) = delete;
    InSharedMemory& operator=(const InSharedMemory&) = delete;
    ~InSharedMemory() { munmap(place, sizeof(T)); }

    T* operator->() const { return static_cast<T*>(place); }
    T& operator*() const { return *static_cast<T*>(place); }

private:
    void* place;
};

/** Lets `parties` processes go on at the same instant, round after round. */
class Barrier {
public:
    void Arrive(int parties = 2);

private:
    std::atomic<int> arrived = 0;
    std::atomic<int> round = 0;
};

#endif  // CHILDREN_H
