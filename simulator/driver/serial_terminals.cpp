// Opens terminals and carries bytes between them and the boards.
#include "driver/serial_terminals.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "driver/descriptor.h"

namespace simulator {
namespace {

constexpr int kPollPeriodMs = 5;  // nothing tells that a board has sent something
constexpr std::size_t kReadLimit = 4096;

constexpr int kOpenMode = O_RDWR | O_NOCTTY | O_CLOEXEC;

[[noreturn]] void Fail() {
    throw std::runtime_error(std::string("no terminal for a serial line: ") + std::strerror(errno));
}

Descriptor OpenBoardSide() {
    Descriptor side(posix_openpt(kOpenMode | O_NONBLOCK));
    termios mode{};
    if (!side.IsOpen() || grantpt(side.Number()) != 0 || unlockpt(side.Number()) != 0 ||
        tcgetattr(side.Number(), &mode) != 0) {
        Fail();
    }
    cfmakeraw(&mode);
    tcsetattr(side.Number(), TCSANOW, &mode);
    return side;
}

}  // namespace

struct SerialTerminals::Terminal {
    Terminal(int boardNumber, std::size_t portNumber)
        : board(boardNumber),
          port(portNumber),
          boardSide(OpenBoardSide()),
          name(ptsname(boardSide.Number())),
          userSide(open(name.c_str(), kOpenMode)) {
        if (!userSide.IsOpen()) Fail();
    }

    /// What came from the user.
    void Read() {
        std::array<std::uint8_t, kReadLimit> buffer;
        const ssize_t count = read(boardSide.Number(), buffer.data(), buffer.size());
        if (count > 0) fromUser.insert(fromUser.end(), buffer.begin(), buffer.begin() + count);
    }

    /// As much as the terminal takes.
    void Write() {
        if (toUser.empty()) return;
        const ssize_t count = write(boardSide.Number(), toUser.data(), toUser.size());
        if (count > 0) toUser.erase(toUser.begin(), toUser.begin() + count);
    }

    int board;
    std::size_t port;
    Descriptor boardSide;
    std::string name;
    // Kept open: else the terminal hangs up whenever its last user leaves.
    Descriptor userSide;
    std::vector<std::uint8_t> fromUser, toUser;
};

SerialTerminals::SerialTerminals(DriverStandIn& standIn) : driver(standIn) {
    {
        const auto access = driver.Devices();
        for (const auto& [number, device] : access.devices) {
            for (std::size_t port = 0; port < kSerialPortCount; ++port) {
                if (device.board.ports[port].Line() == SerialLine::kTerminal) {
                    terminals.emplace_back(number, port);
                }
            }
        }
    }
    if (!terminals.empty()) thread = std::thread([this] { Run(); });
}

SerialTerminals::~SerialTerminals() {
    ending = true;
    if (thread.joinable()) thread.join();
}

std::string SerialTerminals::List() const {
    std::string lines;
    for (const Terminal& terminal : terminals) {
        lines += "board " + std::to_string(terminal.board) + " serial " +
                 std::to_string(terminal.port) + ": " + terminal.name + "\n";
    }
    return lines;
}

void SerialTerminals::Run() {
    std::vector<pollfd> polled;
    for (const Terminal& terminal : terminals)
        polled.push_back({terminal.boardSide.Number(), POLLIN, 0});
    while (!ending) {
        if (poll(polled.data(), polled.size(), kPollPeriodMs) < 0) continue;
        for (std::size_t i = 0; i < terminals.size(); ++i)
            Exchange(terminals[i], (polled[i].revents & POLLIN) != 0);
    }
}

void SerialTerminals::Exchange(Terminal& terminal, bool readable) {
    if (readable) terminal.Read();
    {
        const auto access = driver.Devices();
        Board& board = access.devices.at(terminal.board).board;
        board.Advance();
        BoardSerialPort& port = board.ports[terminal.port];
        port.FeedBytes(terminal.fromUser);
        if (terminal.toUser.empty()) terminal.toUser = port.TakeSentBytes();
    }
    terminal.Write();
}

}  // namespace simulator
