// Owner of a file descriptor.
#ifndef MARVANE_SIMULATOR_DRIVER_DESCRIPTOR_H
#define MARVANE_SIMULATOR_DRIVER_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace simulator {

/// Closes it in the end. Made of what a call answered: a negative number is no descriptor.
class Descriptor {
public:
    explicit Descriptor(int opened) : number(opened) {}
    Descriptor(Descriptor&& other) noexcept : number(other.Release()) {}
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor() {
        if (IsOpen()) close(number);
    }

    bool IsOpen() const { return number >= 0; }
    int Number() const { return number; }
    /// From now on the caller's.
    int Release() { return std::exchange(number, -1); }

private:
    int number;
};

}  // namespace simulator

#endif
