// The testbed on which device nodes and sysfs entries appear and vanish.
#ifndef MARVANE_SIMULATOR_DRIVER_TESTBED_H
#define MARVANE_SIMULATOR_DRIVER_TESTBED_H

#include <umockdev.h>

#include <filesystem>
#include <string>
#include <vector>

#include "driver/device.h"
#include "driver/g_owned.h"

namespace simulator {

/// The functions throw std::runtime_error with a message for the user.
class Testbed {
public:
    Testbed();
    ~Testbed();
    Testbed(const Testbed&) = delete;
    Testbed& operator=(const Testbed&) = delete;

    /// Makes the device's node and its sysfs entry; the handler answers on the node.
    void Add(const Device& device, UMockdevIoctlBase* handler);

    // Of a device that was added.
    void Hide(const Device& device);
    void Show(const Device& device);

    /// Where nodes, sysfs tree and their sockets lie; removed in the end.
    std::filesystem::path Folder() const;

private:
    GOwned<UMockdevTestbed> testbed;
    std::vector<std::string> nodes;
};

}  // namespace simulator

#endif
