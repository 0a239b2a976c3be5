/**
 * @file cctalk_acceptor.cpp
 * @brief Reads coins from a ccTalk coin acceptor on serial port 0, which the board polls by itself.
 *
 * The acceptor counts its events and tells the last five. The board's battery-backed memory notes
 * the last one that was taken, together with the sum of coins, in one exchange: killed at any
 * moment and started again, this program counts no coin twice, takes those that came while it was
 * down, and names how many events it missed when they were more than are told. Noted first, then
 * printed: the line of a coin may be missing after a kill, but the sum has it. An acceptor that was
 * without power begins anew, and what it had not told yet is lost.
 */
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "arguments.h"
#include "kept_record.h"
#include "marvaneusb.h"
#include "why.h"

namespace {

// clang-format off
constexpr const char* kHelp =
    "Reads coins from a ccTalk coin acceptor on serial port 0, which the board polls by itself.\n"
    "\n"
    "Usage: cctalk_acceptor [SECONDS [DEVICE]]\n"
    "  SECONDS  ends after so long (10)\n"
    "  DEVICE   number of the board, 0 to 15 (0)\n"
    "Example: marvane-sim --board k44:serial0=cctalk -- cctalk_acceptor 60\n"
    "\n"
    "Exit status: 0 done, 1 the board or the acceptor failed, 64 the arguments are wrong\n";
// clang-format on

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<unsigned char>;

constexpr _usbSerialPort kPort = USB_SERIAL_PORT_0;

// ccTalk: a message is destination, number of data bytes, source, header, data and a check byte
// that brings the sum of all to 0.
constexpr unsigned char kAcceptor = 2;
constexpr unsigned char kHost = 1;
constexpr std::size_t kFrameBytes = 5;  // of a message beside its data

constexpr unsigned char kAnswer = 0;
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

/** What is known of the acceptor: it outlasts this program. */
class Notes {
public:
    explicit Notes(MarvaneUSB& board) : record(board, kAddress, "CCT1") {}

    int Load() {
        KeptRecord<4>::Numbers numbers{};
        if (!record.Load(numbers)) return 0;
        begun = numbers[0];
        lastEvent = numbers[1];
        coins = numbers[2];
        missed = numbers[3];
        return 1;
    }
    int Save() { return record.Save({begun, lastEvent, coins, missed}); }

    unsigned begun = 0;      // 1: there is a last event
    unsigned lastEvent = 0;  // the acceptor's counter
    unsigned coins = 0;      // and events that were missed, since the first start
    unsigned missed = 0;

private:
    static constexpr unsigned short kAddress = 0x8100;  // behind the example cabinet's ledger

    KeptRecord<4> record;
};

class Acceptor {
public:
    explicit Acceptor(MarvaneUSB& openBoard) : board(openBoard), notes(board) {}

    bool Begin();
    /** Prints the coins that came; false when the acceptor or the board has failed. */
    bool PrintCoins();
    bool End();

    unsigned Coins() const { return coins; }

private:
    bool Complain(const char* what) const {
        std::fprintf(stderr, "%s: %s.\n", what, Why().c_str());
        return false;
    }
    bool ConfigurePort();
    bool Receive(Bytes& received);
    bool Ask(unsigned char header, const Bytes& data, Bytes& answer);
    bool SetTimeouts();
    bool LetCoinsIn();
    bool HaveItPolled();
    bool TakePolled(unsigned& status);
    bool TakeUntold();
    bool TakeEvents(const Bytes& credit);
    bool Note(unsigned event);

    MarvaneUSB& board;
    Notes notes;
    unsigned coins = 0;    // of this run
    bool listens = false;  // an acceptor that starts anew from now on lets no coin in
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
    if (!ConfigurePort()) return false;
    if (!notes.Load()) return Complain("The notes cannot be read");
    std::printf("noted so far: %u coins, %u events missed\n", notes.coins, notes.missed);

    // A program that died may have left the board polling: what it heard comes first.
    unsigned status = kHostWasAway;
    while (notes.begun && status == kHostWasAway) {
        if (!TakePolled(status)) return false;
    }
    if (!board.DeletePolledMessage(kPort, kIndex)) return Complain("The board polls on");

    Bytes answer;
    if (!Ask(kRequestProduct, {}, answer)) return false;
    std::printf("acceptor: %s\n", std::string(answer.begin(), answer.end()).c_str());
    listens = TakeUntold() && SetTimeouts() && LetCoinsIn() && HaveItPolled();
    return listens;
}

/** By hand, and before coins are let in: an acceptor that has started anew still shows a 0. */
bool Acceptor::TakeUntold() {
    Bytes credit;
    if (!Ask(kReadCredit, {}, credit)) return false;
    if (credit.size() != kCreditBytes) return true;
    if (!notes.begun) {
        notes.begun = 1;
        return Note(credit[0]);  // whatever came before is not this program's
    }
    if (credit[0] == 0 && notes.lastEvent != 0) {
        std::printf("the acceptor has started anew: what it had not told is lost\n");
        return Note(0);
    }
    return TakeEvents(credit);
}

bool Acceptor::PrintCoins() {
    unsigned status = kNothingNew;
    if (!TakePolled(status)) return false;
    if (status == kNoAnswer) {
        std::fprintf(stderr, "The acceptor does not answer any more.\n");
        return false;
    }
    if (status != kHostWasAway) return true;
    std::printf("this program was away: now coins are let in again\n");
    return TakePolled(status) && TakeUntold() && LetCoinsIn();
}

/** All answers that the board has kept; the status is that of the look that found no more. */
bool Acceptor::TakePolled(unsigned& status) {
    unsigned char message[256];
    unsigned long length = 0;
    do {
        if (!board.ReceivePolledMessageEx(kPort, kIndex, message, sizeof message, &length,
                                          &status)) {
            return Complain("The board does not answer any more");
        }
        if (status == kMessagesWereLost) std::printf("messages were lost; the counter tells\n");
        const Bytes frame(message, message + length);
        if (IsAnswer(frame) && length == kFrameBytes + kCreditBytes &&
            !TakeEvents(Bytes(frame.begin() + 4, frame.end() - 1))) {
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
    return answer.size() != kCreditBytes || TakeEvents(answer);
}

/** The counter, not the list, says what is new: no coin is missed silently or counted twice. */
bool Acceptor::TakeEvents(const Bytes& credit) {
    const unsigned event = credit[0];
    if (event == 0 && notes.lastEvent != 0) {
        if (!listens) return true;  // it is asked once more, by hand
        std::fprintf(stderr, "The acceptor has started anew, and lets no coin in.\n");
        return false;
    }
    const unsigned fresh = (event + kLastEventNumber - notes.lastEvent) % kLastEventNumber;
    // Half a turn and more: an answer from before the latest one that was asked for by hand.
    if (fresh == 0 || fresh > kLastEventNumber / 2) return true;

    const unsigned told = std::min(fresh, kEventsTold);
    Bytes freshCoins;
    for (unsigned i = told; i > 0; --i) {  // the latest event stands first
        const unsigned char coin = credit[2 * i - 1];
        if (coin != 0) freshCoins.push_back(coin);  // else an error of the acceptor
    }
    coins += static_cast<unsigned>(freshCoins.size());
    notes.coins += static_cast<unsigned>(freshCoins.size());
    notes.missed += fresh - told;
    if (!Note(event)) return false;

    if (fresh > told) std::printf("%u events are lost: they came too fast\n", fresh - told);
    for (const unsigned char coin : freshCoins)
        std::printf("coin %u\n", coin);
    std::fflush(stdout);
    return true;
}

bool Acceptor::Note(unsigned event) {
    notes.lastEvent = event;
    return notes.Save() || Complain("The coins cannot be noted");
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments(argc, argv, kHelp);
    const double seconds = arguments.Seconds("SECONDS", 10);
    const int device = arguments.Device();
    arguments.End();

    MarvaneUSB board;
    if (!board.InitPort(device)) {
        ComplainOfOpening();
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
