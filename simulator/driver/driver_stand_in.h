// Stands where the kernel driver would: device nodes, sysfs tree and ioctl requests on a testbed.
#ifndef MARVANE_SIMULATOR_DRIVER_DRIVER_STAND_IN_H
#define MARVANE_SIMULATOR_DRIVER_DRIVER_STAND_IN_H

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>

#include "driver/bus.h"

namespace simulator {

class IoctlServer;
class Testbed;

/// The process must run behind umockdev's preload library. Ioctl requests are served on a thread
/// of the testbed's own.
class DriverStandIn final : public Bus {
public:
    /// Throws std::runtime_error where the testbed cannot be set up.
    explicit DriverStandIn(const std::map<int, BoardOptions>& boards);
    ~DriverStandIn();
    DriverStandIn(const DriverStandIn&) = delete;
    DriverStandIn& operator=(const DriverStandIn&) = delete;

    Access Devices() override { return {std::unique_lock(mutex), devices}; }
    void Unplug(Device& device) override;
    void Plug(Device& device) override;

    /// Where the device nodes, the sysfs tree and their sockets lie; removed in the end.
    std::filesystem::path Folder() const;

private:
    std::mutex mutex;  // guards the devices
    std::map<int, Device> devices;
    // The testbed ends its thread, and with it all requests, before the servers go.
    std::map<int, std::unique_ptr<IoctlServer>> servers;
    std::unique_ptr<Testbed> testbed;
};

}  // namespace simulator

#endif
