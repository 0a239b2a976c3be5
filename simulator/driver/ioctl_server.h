// Answers the ioctl requests on one device node, one exchange after the other.
#ifndef MARVANE_SIMULATOR_DRIVER_IOCTL_SERVER_H
#define MARVANE_SIMULATOR_DRIVER_IOCTL_SERVER_H

#include <umockdev.h>

#include <deque>
#include <mutex>

#include "driver/device.h"
#include "driver/g_owned.h"
#include "driver/transfer.h"

namespace simulator {

/// All but construction and destruction happens on the testbed's thread.
class IoctlServer {
public:
    /// The mutex guards the device.
    IoctlServer(Device& device, std::mutex& mutex);
    ~IoctlServer();
    IoctlServer(const IoctlServer&) = delete;
    IoctlServer& operator=(const IoctlServer&) = delete;

    UMockdevIoctlBase* Handler() const { return handler.get(); }

private:
    struct LateAnswer;

    static void OnConnected(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self);
    static gboolean OnIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self);
    static gboolean OnAnswerDue(gpointer lateAnswer);

    void Serve(GOwned<UMockdevIoctlClient> client);
    void ServeWaiting();
    void NoteRefusal(UMockdevIoctlClient* client, const Transfer& transfer, int error);
    Outcome Exchange(UMockdevIoctlClient* client, const Transfer& transfer);
    // Not once the board is gone that was there when the client opened the node.
    bool IsReachable(UMockdevIoctlClient* client);
    void Answer(UMockdevIoctlClient* client, const Transfer& transfer, const Outcome& outcome);

    Device& device;
    std::mutex& mutex;
    const Model model;
    GOwned<UMockdevIoctlBase> handler;
    GSource* answerDue = nullptr;  // an answer is late: whoever comes meanwhile waits
    std::deque<GOwned<UMockdevIoctlClient>> waiting;
};

}  // namespace simulator

#endif
