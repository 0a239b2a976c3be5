// The testbed's device nodes and sysfs tree, and how a board leaves them and comes back.
#include "driver/driver_stand_in.h"

#include <umockdev.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "driver/g_owned.h"
#include "driver/ioctl_server.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

// A USB device on a bus of its own, and on it the driver's device with the node.
std::string Description(const Device& device) {
    const std::string bus = std::to_string(device.Number() + 1);
    const std::string parent = "/devices/pci0000:00/0000:00:14.0/usb" + bus + "/" + bus + "-1";
    const BoardOptions& board = device.board.Options();
    return "P: " + parent +
           "\n"
           "E: SUBSYSTEM=usb\n"
           "E: DEVTYPE=usb_device\n"
           "A: product=" +
           ProductOf(board.model) +
           "\\n\n"
           "A: speed=" +
           std::to_string(board.speedMbit) +
           "\\n\n\n"
           "P: " +
           parent + "/Kovar/" + device.Name() +
           "\n"
           "N: " +
           device.Name() +
           "\n"
           "E: SUBSYSTEM=Kovar\n"
           "E: DEVNAME=/dev/" +
           device.Name() +
           "\n"
           "L: device=../..\n\n";
}

std::runtime_error Failure(const std::string& what, GError* error) {
    std::string text = what;
    if (error != nullptr) text += std::string(": ") + error->message;
    g_clear_error(&error);
    return std::runtime_error(text);
}

// The testbed says this whenever an application ends in the middle of an ioctl, as any may.
void LogUnlessUsual(const gchar* domain, GLogLevelFlags level, const gchar* message, gpointer) {
    if (std::strstr(message, "Destroying IoctlClient with open stream") != nullptr) return;
    g_log_default_handler(domain, level, message, nullptr);
}

// Removing and adding a device again ends the process in the testbed's own checks; renaming its
// entries looks the same to everybody who opens them.
void Rename(const fs::path& folder, const std::string& name, bool visible) {
    const fs::path shown = folder / name;
    const fs::path hidden = folder / (".unplugged-" + name);
    fs::rename(visible ? hidden : shown, visible ? shown : hidden);
}

}  // namespace

class Testbed {
public:
    Testbed() : testbed(umockdev_testbed_new()) {
        if (!umockdev_in_mock_environment()) {
            throw std::runtime_error("the library libumockdev-preload.so.0 could not be loaded");
        }
        g_log_set_default_handler(LogUnlessUsual, nullptr);
    }
    ~Testbed() {
        for (const std::string& node : nodes) {
            umockdev_testbed_detach_ioctl(testbed.get(), node.c_str(), nullptr);
        }
    }

    void Add(const Device& device, UMockdevIoctlBase* handler) {
        GError* error = nullptr;
        if (!umockdev_testbed_add_from_string(testbed.get(), Description(device).c_str(), &error)) {
            throw Failure("no device node for " + device.Name(), error);
        }
        const std::string node = "/dev/" + device.Name();
        if (!umockdev_testbed_attach_ioctl(testbed.get(), node.c_str(), handler, &error)) {
            throw Failure("nobody can answer on " + node, error);
        }
        nodes.push_back(node);
    }

    fs::path Folder() const {
        gchar* root = umockdev_testbed_get_root_dir(testbed.get());
        fs::path folder = root;
        g_free(root);
        return folder;
    }

private:
    GOwned<UMockdevTestbed> testbed;
    std::vector<std::string> nodes;
};

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
    const fs::path folder = testbed->Folder();
    Rename(folder / "dev", device.Name(), false);
    Rename(folder / "sys/class/Kovar", device.Name(), false);
    device.Unplug();
}

void DriverStandIn::Plug(Device& device) {
    if (device.IsPlugged()) return;
    const fs::path folder = testbed->Folder();
    device.Plug();
    Rename(folder / "sys/class/Kovar", device.Name(), true);
    Rename(folder / "dev", device.Name(), true);
}

fs::path DriverStandIn::Folder() const {
    return testbed->Folder();
}

}  // namespace simulator
