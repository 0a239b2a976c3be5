// Describes the devices to the testbed, and hides those that are unplugged.
#include "driver/testbed.h"

#include <cstring>
#include <stdexcept>

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

Testbed::Testbed() : testbed(umockdev_testbed_new()) {
    if (!umockdev_in_mock_environment()) {
        throw std::runtime_error("the library libumockdev-preload.so.0 could not be loaded");
    }
    g_log_set_default_handler(LogUnlessUsual, nullptr);
}

Testbed::~Testbed() {
    for (const std::string& node : nodes) {
        umockdev_testbed_detach_ioctl(testbed.get(), node.c_str(), nullptr);
    }
}

void Testbed::Add(const Device& device, UMockdevIoctlBase* handler) {
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

void Testbed::Hide(const Device& device) {
    const fs::path folder = Folder();
    Rename(folder / "dev", device.Name(), false);
    Rename(folder / "sys/class/Kovar", device.Name(), false);
}

// The node comes last: whoever opens it finds the rest.
void Testbed::Show(const Device& device) {
    const fs::path folder = Folder();
    Rename(folder / "sys/class/Kovar", device.Name(), true);
    Rename(folder / "dev", device.Name(), true);
}

fs::path Testbed::Folder() const {
    gchar* root = umockdev_testbed_get_root_dir(testbed.get());
    fs::path folder = root;
    g_free(root);
    return folder;
}

}  // namespace simulator
