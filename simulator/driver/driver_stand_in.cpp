// Gives each device its node and its server, and takes boards off the bus and back.
#include "driver/driver_stand_in.h"

#include "driver/ioctl_server.h"
#include "driver/testbed.h"

namespace simulator {

DriverStandIn::DriverStandIn(const std::map<int, BoardOptions>& boards)
    : testbed(std::make_unique<Testbed>()) {
    for (const auto& [number, options] : boards)
        devices.try_emplace(number, number, options);
    for (auto& [number, device] : devices) {
        const auto& server = servers[number] = std::make_unique<IoctlServer>(device, mutex);
        testbed->Add(device, server->Handler());
    }
}

DriverStandIn::~DriverStandIn() = default;

void DriverStandIn::Unplug(Device& device) {
    if (!device.IsPlugged()) return;
    testbed->Hide(device);
    device.Unplug();
}

void DriverStandIn::Plug(Device& device) {
    if (device.IsPlugged()) return;
    device.Plug();
    testbed->Show(device);
}

std::filesystem::path DriverStandIn::Folder() const {
    return testbed->Folder();
}

}  // namespace simulator
