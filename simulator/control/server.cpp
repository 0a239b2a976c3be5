// Reads one request per connection, bounded in length and time, and answers it.
#include "control/server.h"

#include <gio/gunixsocketaddress.h>

#include <array>
#include <stdexcept>

#include "control/message.h"

namespace simulator {
namespace {

constexpr guint kTimeoutSeconds = 5;

ControlAnswer AnswerTo(const std::string& line, DriverStandIn& driver) {
    const auto words = DecodeRequest(line);
    if (!words) return {kWrongUsage, "the request is not understood\n"};
    return Perform(*words, driver);
}

}  // namespace

ControlServer::ControlServer(DriverStandIn& standIn, const std::filesystem::path& socketPath)
    : driver(standIn), listener(g_socket_listener_new()), end(g_cancellable_new()) {
    const GOwned<GSocketAddress> address(g_unix_socket_address_new(socketPath.c_str()));
    GError* error = nullptr;
    if (!g_socket_listener_add_address(listener.get(), address.get(), G_SOCKET_TYPE_STREAM,
                                       G_SOCKET_PROTOCOL_DEFAULT, nullptr, nullptr, &error)) {
        const std::string reason = error->message;
        g_error_free(error);
        throw std::runtime_error("no control channel: " + reason);
    }
    thread = std::thread([this] { Run(); });
}

ControlServer::~ControlServer() {
    g_cancellable_cancel(end.get());
    thread.join();
}

void ControlServer::Run() {
    // The accepting below iterates a context: one of its own, not the program's.
    GMainContext* context = g_main_context_new();
    g_main_context_push_thread_default(context);
    while (!g_cancellable_is_cancelled(end.get())) {
        const GOwned<GSocketConnection> connection(
            g_socket_listener_accept(listener.get(), nullptr, end.get(), nullptr));
        if (connection) Serve(connection.get());
    }
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
}

void ControlServer::Serve(GSocketConnection* connection) {
    g_socket_set_timeout(g_socket_connection_get_socket(connection), kTimeoutSeconds);
    GIOStream* stream = G_IO_STREAM(connection);
    const std::string line = ReadLine(g_io_stream_get_input_stream(stream));
    // Whoever only looks whether somebody listens asks nothing.
    if (line.empty()) return;

    const std::string answer = EncodeAnswer(AnswerTo(line, driver));
    g_output_stream_write_all(g_io_stream_get_output_stream(stream), answer.data(), answer.size(),
                              nullptr, end.get(), nullptr);
}

// The first line; empty when it does not come whole.
std::string ControlServer::ReadLine(GInputStream* stream) {
    std::string line;
    std::array<char, 4096> buffer{};
    while (line.size() < kRequestLimit) {
        const gssize count =
            g_input_stream_read(stream, buffer.data(), buffer.size(), end.get(), nullptr);
        if (count <= 0) return {};
        line.append(buffer.data(), static_cast<std::size_t>(count));
        const auto lineEnd = line.find('\n');
        if (lineEnd != std::string::npos) return line.substr(0, lineEnd);
    }
    return {};
}

}  // namespace simulator
