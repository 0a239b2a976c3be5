// One exchange after the other, whoever asks: a late answer holds up those that come behind it on
// the same device and nobody else.
#include "driver/ioctl_server.h"

#include <cerrno>
#include <utility>

namespace simulator {
namespace {

// On a client: how often the board had been plugged in when it opened the node.
constexpr char kPlugCountAtOpen[] = "plug-count-at-open";

void Complete(UMockdevIoctlClient* client, int error) {
    umockdev_ioctl_client_complete(client, error == 0 ? 0 : -1, error);
}

}  // namespace

struct IoctlServer::LateAnswer {
    IoctlServer& server;
    GOwned<UMockdevIoctlClient> client;
    Transfer transfer;
    Outcome outcome;
};

IoctlServer::IoctlServer(Device& servedDevice, std::mutex& deviceMutex)
    : device(servedDevice),
      mutex(deviceMutex),
      model(servedDevice.board.Options().model),
      handler(umockdev_ioctl_base_new()) {
    g_signal_connect(handler.get(), "client-connected", G_CALLBACK(OnConnected), this);
    g_signal_connect(handler.get(), "handle-ioctl", G_CALLBACK(OnIoctl), this);
}

IoctlServer::~IoctlServer() {
    if (answerDue != nullptr) g_source_destroy(answerDue);
    g_signal_handlers_disconnect_by_data(handler.get(), this);
}

void IoctlServer::OnConnected(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
    auto* server = static_cast<IoctlServer*>(self);
    const std::lock_guard lock(server->mutex);
    g_object_set_data(G_OBJECT(client), kPlugCountAtOpen,
                      GUINT_TO_POINTER(server->device.PlugCount()));
}

gboolean IoctlServer::OnIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
    auto* server = static_cast<IoctlServer*>(self);
    server->waiting.push_back(Share(client));
    server->ServeWaiting();
    return TRUE;
}

void IoctlServer::ServeWaiting() {
    while (answerDue == nullptr && !waiting.empty()) {
        GOwned<UMockdevIoctlClient> client = std::move(waiting.front());
        waiting.pop_front();
        Serve(std::move(client));
    }
}

void IoctlServer::Serve(GOwned<UMockdevIoctlClient> client) {
    Transfer transfer;
    const int error = ReadTransfer(model, client.get(), transfer);
    if (error != 0) {
        NoteRefusal(client.get(), transfer, error);
        return Complete(client.get(), error);
    }

    Outcome outcome = Exchange(client.get(), transfer);
    if (outcome.delay.count() == 0) return Answer(client.get(), transfer, outcome);

    answerDue = g_timeout_source_new(static_cast<guint>(outcome.delay.count()));
    auto* late = new LateAnswer{*this, std::move(client), std::move(transfer), std::move(outcome)};
    g_source_set_callback(answerDue, OnAnswerDue, late,
                          [](gpointer data) { delete static_cast<LateAnswer*>(data); });
    g_source_attach(answerDue, g_main_context_get_thread_default());
    g_source_unref(answerDue);  // the context keeps it until it has run
}

gboolean IoctlServer::OnAnswerDue(gpointer lateAnswer) {
    auto* late = static_cast<LateAnswer*>(lateAnswer);
    IoctlServer& server = late->server;
    server.answerDue = nullptr;
    if (!server.IsReachable(late->client.get())) late->outcome.error = ENODEV;
    server.Answer(late->client.get(), late->transfer, late->outcome);
    server.ServeWaiting();
    return G_SOURCE_REMOVE;
}

void IoctlServer::NoteRefusal(UMockdevIoctlClient* client, const Transfer& transfer, int error) {
    if (!transfer.record || !IsReachable(client)) return;
    const std::lock_guard lock(mutex);
    device.NoteRefusal(transfer.command, transfer.channel, transfer.payload, error);
}

Outcome IoctlServer::Exchange(UMockdevIoctlClient* client, const Transfer& transfer) {
    if (!IsReachable(client)) return {.error = ENODEV, .answer = {}};
    const std::lock_guard lock(mutex);
    return device.Exchange(transfer.command, transfer.channel, transfer.payload);
}

bool IoctlServer::IsReachable(UMockdevIoctlClient* client) {
    const std::lock_guard lock(mutex);
    const auto plugCountAtOpen =
        GPOINTER_TO_UINT(g_object_get_data(G_OBJECT(client), kPlugCountAtOpen));
    return device.IsPlugged() && plugCountAtOpen == device.PlugCount();
}

void IoctlServer::Answer(UMockdevIoctlClient* client, const Transfer& transfer,
                         const Outcome& outcome) {
    const int error = outcome.error != 0 ? outcome.error : WriteAnswer(model, transfer, outcome);
    Complete(client, error);
}

}  // namespace simulator
