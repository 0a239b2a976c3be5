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

constexpr unsigned char kReset = 1;
constexpr unsigned char kModifyMasterInhibit = 228;
constexpr unsigned char kReadCredit = 229;  // event counter, then five pairs: coin, sorter path
constexpr unsigned char kModifyInhibit = 231;
constexpr unsigned char kRequestProduct = 244;
constexpr int kPollPeriodMs = 100;
constexpr unsigned kEventsTold = 5;
constexpr unsigned kCreditFrame = 5 + 1 + 2 * kEventsTold;
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

Bytes Frame(unsigned char header, const Bytes& data = {}) {
    Bytes frame = {kAcceptor, static_cast<unsigned char>(data.size()), kHost, header};
    frame.insert(frame.end(), data.begin(), data.end());
    unsigned char sum = 0;
    for (const unsigned char byte : frame)
        sum = static_cast<unsigned char>(sum + byte);
    frame.push_back(static_cast<unsigned char>(-sum));
    return frame;
}

bool IsAnswer(const Bytes& frame) {
    unsigned char sum = 0;
    for (const unsigned char byte : frame)
        sum = static_cast<unsigned char>(sum + byte);
    return frame.size() >= kFrameBytes && frame.size() == frame[1] + kFrameBytes &&
           frame[0] == kHost && frame[2] == kAcceptor && sum == 0;
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
    bool Ask(unsigned char header, const Bytes& data, Bytes& answer);
    bool HaveItPolled();
    void PrintEvents(const Bytes& credit);

    MarvaneUSB& board;
    unsigned lastEvent = 0;
    unsigned coins = 0;
};

bool Acceptor::ConfigurePort() {
    _DCB line = {};
    line.BaudRate = 9600;
    return board.SetConfig(kPort, &line, kPortType) || Complain("The port cannot be used");
}

/** Sends a message by hand and waits for its answer; afterwards the board does that by itself. */
bool Acceptor::Ask(unsigned char header, const Bytes& data, Bytes& answer) {
    Bytes frame = Frame(header, data);
    if (!board.Send(kPort, frame.data(), static_cast<unsigned>(frame.size()))) {
        return Complain("Sending failed");
    }
    Bytes received;
    const auto deadline = Clock::now() + std::chrono::milliseconds(500);
    while (Clock::now() < deadline && !IsAnswer(received)) {
        unsigned char buffer[256];
        unsigned long length = 0;
        if (!board.ReceiveEx(kPort, buffer, sizeof buffer, &length)) {
            return Complain("Receiving failed");
        }
        received.insert(received.end(), buffer, buffer + length);
        if (length == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (!IsAnswer(received)) {
        std::fprintf(stderr, "The acceptor does not answer message %u.\n", header);
        return false;
    }
    answer.assign(received.begin() + 4, received.end() - 1);
    return true;
}

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
    Bytes answer;
    if (!ConfigurePort() || !Ask(kReset, {}, answer) || !Ask(kRequestProduct, {}, answer)) {
        return false;
    }
    std::printf("acceptor: %s\n", std::string(answer.begin(), answer.end()).c_str());

    // Should this program die, the board stops the acceptor: nobody would see its coins.
    Bytes inhibit = Frame(kModifyMasterInhibit, {0});
    if (!board.SetTimeoutMessage(kPort, inhibit.data(), static_cast<unsigned char>(inhibit.size()),
                                 2) ||
        !board.SetPolledHostTimeout(kPort, kIndex, 2)) {
        return Complain("The time-outs cannot be set");
    }
    return Ask(kModifyInhibit, {0xFF, 0xFF}, answer) && Ask(kModifyMasterInhibit, {1}, answer) &&
           HaveItPolled();
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
        if (status == kHostWasAway) std::printf("the board had stopped polling meanwhile\n");
        if (status == kMessagesWereLost) std::printf("messages were lost; the counter tells\n");
        const Bytes frame(message, message + length);
        if (IsAnswer(frame) && length == kCreditFrame) {
            PrintEvents(Bytes(frame.begin() + 4, frame.end() - 1));
        }
    } while (length > 0);
    return true;
}

/** First no coin may come any more, then the last ones are read. */
bool Acceptor::End() {
    Bytes answer;
    if (!Ask(kModifyMasterInhibit, {0}, answer)) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2 * kPollPeriodMs));
    return PrintCoins() &&
           (board.DeletePolledMessage(kPort, kIndex) || Complain("The board polls on"));
}

/** The counter, not the list, says what is new: no coin is missed silently or counted twice. */
void Acceptor::PrintEvents(const Bytes& credit) {
    const unsigned event = credit[0];
    if (event == 0) {
        lastEvent = 0;
        return;
    }
    const unsigned fresh = (event + kLastEventNumber - lastEvent) % kLastEventNumber;
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
