// Sends words to a running simulation, or puts a command in front of its boards.
#include "program/attach.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <iostream>
#include <stdexcept>

#include "control/message.h"
#include "program/child.h"
#include "program/ipc_namespace.h"
#include "program/preload.h"
#include "program/simulations.h"

namespace simulator {
namespace {

void Send(int descriptor, const std::string& text) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t count =
            send(descriptor, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;  // the missing answer says it
        sent += static_cast<std::size_t>(count);
    }
}

std::string ReceiveAll(int descriptor) {
    std::string text;
    std::array<char, 16384> buffer{};
    while (true) {
        const ssize_t count = recv(descriptor, buffer.data(), buffer.size(), 0);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

ControlAnswer Ask(const Simulation& simulation, const std::vector<std::string>& words) {
    const std::string request = EncodeRequest(words);
    if (request.size() > kRequestLimit) return {kWrongUsage, "too many words\n"};
    const Descriptor connection = ConnectTo(simulation.ControlSocket());
    if (!connection.IsOpen()) throw std::runtime_error("the simulation has ended");
    Send(connection.Number(), request);
    const auto answer = DecodeAnswer(ReceiveAll(connection.Number()));
    if (!answer) throw std::runtime_error("the simulation gave no answer");
    return *answer;
}

int Complain(const std::exception& error, int status) {
    std::cerr << "marvane-sim: " << error.what() << "\n";
    return status;
}

}  // namespace

int Control(const ControlArguments& arguments) try {
    const ControlAnswer answer = Ask(FindSimulation(arguments.process), arguments.words);
    if (answer.result == kDone) {
        std::cout << answer.text << std::flush;
    } else {
        std::cerr << "marvane-sim ctl: " << answer.text;
    }
    return answer.result;
} catch (const std::exception& error) {
    return Complain(error, kRefused);
}

int Join(const JoinArguments& arguments) try {
    const Simulation simulation = FindSimulation(arguments.process);
    const std::string refused = JoinIpcNamespace(simulation.process);
    if (!refused.empty()) throw std::runtime_error(refused);

    PreloadTestbed();
    PointToTestbed(simulation.folder);
    execvp(arguments.command.front().c_str(), ArgumentArray(arguments.command).data());
    return StatusOfFailedStart(arguments.command.front(), errno);
} catch (const std::exception& error) {
    return Complain(error, kOwnFailure);
}

}  // namespace simulator
