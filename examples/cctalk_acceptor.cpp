/**
 * @file cctalk_acceptor.cpp
 * @brief Reads coins from a ccTalk coin acceptor on serial port 0, which the board polls by itself.
 *
 * Usage: cctalk_acceptor [seconds] [device number]. It ends after so many seconds (10 without a
 * number), or with exit status 1 when the acceptor or the board does not answer.
 */
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "marvaneusb.h"

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<unsigned char>;

constexpr _usbSerialPort kPort = USB_SERIAL_PORT_0;

// ccTalk: a message is destination, number of data bytes, source, header, data and a check byte
// that brings the sum of all to 0.
constexpr unsigned char kAcceptor = 2;
constexpr unsigned char kHost = 1;
constexpr std::size_t kFrameBytes = 5;  // of a message beside its data

constexpr unsigned char kAnswer = 0;
constexpr unsigned char kReset = 1;
constexpr unsigned char kModifyMasterInhibit = 228;
constexpr unsigned char kReadCredit = 229;  // event counter, then five pairs: coin, sorter path
constexpr unsigned char kModifyInhibit = 231;
constexpr unsigned char kRequestProduct = 244;
constexpr int kPollPeriodMs = 100;
constexpr unsigned kEventsTold = 5;
constexpr std::size_t kCreditBytes = 1 + 2 * kEventsTold;
constexpr unsigned kLastEventNumber = 255;  // the counter goes on with 1; 0 is for after a reset

// The library gives these bytes no meaning. Here they mean what the simulated boards make of them;
// what a real board makes of them, its firmware decides.
constexpr _usbPortType kPortType = USB_PORT_TYPE_2;
constexpr unsigned char kIndex = 0;
constexpr unsigned kModeFirstMessage = 1;  // the first message, once in every period
constexpr unsigned char kKeepChanges = 1;  // of the answers only those unlike the one before
constexpr unsigned kNothingNew = 0;        // status of a polled message
constexpr unsigned kNoAnswer = 2;          // likewise: the device does not answer
constexpr unsigned kMessagesWereLost = 3;  // likewise: a message, and earlier ones did not fit
constexpr unsigned kHostWasAway = 4;       // likewise: the board had stopped polling

// How long this program may be silent. The board stops polling before it stops the acceptor: so a
// program that comes back is told that it was away.
constexpr double kPollingStopsAfter = 2;  // seconds
constexpr float kAcceptorStopsAfter = 3;  // seconds

unsigned char SumOf(const Bytes& bytes) {
    return static_cast<unsigned char>(std::accumulate(bytes.begin(), bytes.end(), 0U));
}

Bytes Frame(unsigned char header, const Bytes& data = {}) {
    Bytes frame = {kAcceptor, static_cast<unsigned char>(data.size()), kHost, header};
    for (const unsigned char byte : data)
        frame.push_back(byte);
    frame.push_back(static_cast<unsigned char>(-SumOf(frame)));
    return frame;
}

bool IsAnswer(const Bytes& frame) {
    return frame.size() >= kFrameBytes && frame.size() == frame[1] + kFrameBytes &&
           frame[0] == kHost && frame[2] == kAcceptor && frame[3] == kAnswer && SumOf(frame) == 0;
}

class Acceptor {
public:
    explicit Acceptor(MarvaneUSB& openBoard) : board(openBoard) {}

    bool Begin();
    /** Prints the coins that came; false when the acceptor or the board has failed. */
    bool PrintCoins();
    bool End();

    unsigned Coins() const { return coins; }

private:
    bool Complain(const char* what) const {
        std::fprintf(stderr, "%s (code %d).\n", what, board.GetLastError());
        return false;
    }
    bool ConfigurePort();
    bool Receive(Bytes& received);
    bool Ask(unsigned char header, const Bytes& data, Bytes& answer);
    bool SetTimeouts();
    bool LetCoinsIn();
    bool HaveItPolled();
    bool PrintEvents(const Bytes& credit);

    MarvaneUSB& board;
    unsigned lastEvent = 0;
    unsigned coins = 0;
};

bool Acceptor::ConfigurePort() {
    _DCB line = {};
    line.BaudRate = 9600;
    return board.SetConfig(kPort, &line, kPortType) || Complain("The port cannot be used");
}

/** Appends all that has come meanwhile. */
bool Acceptor::Receive(Bytes& received) {
    unsigned char buffer[256];
    unsigned long length = 0;
    do {
        if (!board.ReceiveEx(kPort, buffer, sizeof buffer, &length)) {
            return Complain("Receiving failed");
        }
        received.insert(received.end(), buffer, buffer + length);
    } while (length > 0);
    return true;
}

/** Sends a message by hand and waits for its answer; the polled one the board sends by itself. */
bool Acceptor::Ask(unsigned char header, const Bytes& data, Bytes& answer) {
    // What came before is no answer to this message: the time-out message, for one, had its own.
    Bytes received;
    if (!Receive(received)) return false;
    received.clear();

    Bytes frame = Frame(header, data);
    if (!board.Send(kPort, frame.data(), static_cast<unsigned>(frame.size()))) {
        return Complain("Sending failed");
    }
    const auto deadline = Clock::now() + std::chrono::milliseconds(500);
    while (Clock::now() < deadline && !IsAnswer(received)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (!Receive(received)) return false;
    }
    if (!IsAnswer(received)) {
        std::fprintf(stderr, "The acceptor does not answer message %u.\n", header);
        return false;
    }
    answer.assign(received.begin() + 4, received.end() - 1);
    return true;
}

/** Should this program die, the board stops the acceptor: nobody would see its coins. */
bool Acceptor::SetTimeouts() {
    Bytes inhibit = Frame(kModifyMasterInhibit, {0});
    return (board.SetTimeoutMessage(kPort, inhibit.data(),
                                    static_cast<unsigned char>(inhibit.size()),
                                    kAcceptorStopsAfter) &&
            board.SetPolledHostTimeout(kPort, kIndex, kPollingStopsAfter)) ||
           Complain("The time-outs cannot be set");
}

bool Acceptor::LetCoinsIn() {
    Bytes answer;
    return Ask(kModifyInhibit, {0xFF, 0xFF}, answer) && Ask(kModifyMasterInhibit, {1}, answer);
}

/** The second message cannot be left out: here it is five zeroes, and the mode never sends it. */
bool Acceptor::HaveItPolled() {
    const Bytes readCredit = Frame(kReadCredit);
    CCTalkConfig poll = {};
    poll.Index = kIndex;
    poll.Mode = kModeFirstMessage;
    poll.Option = kKeepChanges;
    poll.TimeMs = kPollPeriodMs;
    std::copy(readCredit.begin(), readCredit.end(), poll.Message1);
    return board.ConfigureCCTalkPort(kPort, &poll) || Complain("The board cannot poll");
}

bool Acceptor::Begin() {
    // A program that died may have left the board polling.
    if (!ConfigurePort()) return false;
    if (!board.DeletePolledMessage(kPort, kIndex)) return Complain("The board polls on");

    Bytes answer;
    if (!Ask(kReset, {}, answer) || !Ask(kRequestProduct, {}, answer)) return false;
    std::printf("acceptor: %s\n", std::string(answer.begin(), answer.end()).c_str());
    return SetTimeouts() && LetCoinsIn() && HaveItPolled();
}

bool Acceptor::PrintCoins() {
    unsigned char message[256];
    unsigned long length = 0;
    unsigned status = kNothingNew;
    do {
        if (!board.ReceivePolledMessageEx(kPort, kIndex, message, sizeof message, &length,
                                          &status)) {
            return Complain("The board does not answer any more");
        }
        if (status == kNoAnswer) {
            std::fprintf(stderr, "The acceptor does not answer any more.\n");
            return false;
        }
        if (status == kHostWasAway) {
            std::printf("this program was away: now coins are let in again\n");
            if (!LetCoinsIn()) return false;
        }
        if (status == kMessagesWereLost) std::printf("messages were lost; the counter tells\n");
        const Bytes frame(message, message + length);
        if (IsAnswer(frame) && length == kFrameBytes + kCreditBytes &&
            !PrintEvents(Bytes(frame.begin() + 4, frame.end() - 1))) {
            return false;
        }
    } while (length > 0);
    return true;
}

/** By hand again: first no coin may come any more, then the last ones are read. */
bool Acceptor::End() {
    if (!PrintCoins()) return false;
    unsigned char nothing = 0;
    if (!board.DeletePolledMessage(kPort, kIndex) ||
        !board.SetTimeoutMessage(kPort, &nothing, 0, 0)) {
        return Complain("The board polls on");
    }
    Bytes answer;
    if (!Ask(kModifyMasterInhibit, {0}, answer) || !Ask(kReadCredit, {}, answer)) return false;
    return answer.size() != kCreditBytes || PrintEvents(answer);
}

/** The counter, not the list, says what is new: no coin is missed silently or counted twice. */
bool Acceptor::PrintEvents(const Bytes& credit) {
    const unsigned event = credit[0];
    if (event == 0 && lastEvent != 0) {
        std::fprintf(stderr, "The acceptor has started anew, and lets no coin in.\n");
        return false;
    }
    const unsigned fresh = event > lastEvent
                               ? event - lastEvent
                               : (event + kLastEventNumber - lastEvent) % kLastEventNumber;
    lastEvent = event;
    if (fresh > kEventsTold) {
        std::printf("%u events are lost: they came too fast\n", fresh - kEventsTold);
    }
    // The latest event stands first.
    for (unsigned i = std::min(fresh, kEventsTold); i > 0; --i) {
        const unsigned coin = credit[2 * i - 1];
        if (coin == 0) continue;  // an error of the acceptor, not a coin
        ++coins;
        std::printf("coin %u\n", coin);
    }
    std::fflush(stdout);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::strtod(argv[1], nullptr) : 10;
    const int device = argc > 2 ? static_cast<int>(std::strtol(argv[2], nullptr, 10)) : 0;

    MarvaneUSB board;
    if (!board.InitPort(device)) {
        std::fprintf(stderr, "Board %d could not be opened (code %d).\n", device,
                     board.GetLastError());
        return 1;
    }
    Acceptor acceptor(board);
    if (!acceptor.Begin()) return 1;
    std::printf("insert coins\n");
    std::fflush(stdout);

    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < end) {
        if (!acceptor.PrintCoins()) return 1;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (!acceptor.End()) return 1;
    std::printf("the end: %u coins\n", acceptor.Coins());
    return 0;
}
