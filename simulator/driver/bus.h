// All boards of a simulation, whatever makes programs meet them.
#ifndef MARVANE_SIMULATOR_DRIVER_BUS_H
#define MARVANE_SIMULATOR_DRIVER_BUS_H

#include <map>
#include <mutex>

#include "driver/device.h"

namespace simulator {

class Bus {
public:
    /// All devices, by number, for as long as the caller keeps the lock.
    struct Access {
        std::unique_lock<std::mutex> lock;
        std::map<int, Device>& devices;
    };
    virtual Access Devices() = 0;

    // Call them with the access held that the device came from.
    virtual void Unplug(Device& device) = 0;
    virtual void Plug(Device& device) = 0;

protected:
    ~Bus() = default;
};

}  // namespace simulator

#endif
