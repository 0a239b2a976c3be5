// The simulation's end of the control channel: a socket on which each connection asks once.
#ifndef MARVANE_SIMULATOR_CONTROL_SERVER_H
#define MARVANE_SIMULATOR_CONTROL_SERVER_H

#include <gio/gio.h>

#include <filesystem>
#include <string>
#include <thread>

#include "driver/driver_stand_in.h"
#include "driver/g_owned.h"

namespace simulator {

/// Serves requests one after the other, on a thread of its own, while the object lives.
class ControlServer {
public:
    /// Throws std::runtime_error where it cannot listen.
    ControlServer(DriverStandIn& standIn, const std::filesystem::path& socketPath);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

private:
    void Run();
    void Serve(GSocketConnection* connection);
    std::string ReadLine(GInputStream* stream);

    DriverStandIn& driver;
    GOwned<GSocketListener> listener;
    GOwned<GCancellable> end;  // cancelled when the thread is to end, whatever it waits for
    std::thread thread;
};

}  // namespace simulator

#endif
