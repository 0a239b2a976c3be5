// One board as its driver sees it: plugged in or not, with what is to go wrong and what went by.
#ifndef MARVANE_SIMULATOR_DRIVER_DEVICE_H
#define MARVANE_SIMULATOR_DRIVER_DEVICE_H

#include <chrono>
#include <deque>
#include <string>
#include <utility>

#include "board/board.h"

namespace simulator {

constexpr int kDeviceCount = 16;
constexpr std::size_t kLogLimit = 4096;      // exchanges per device that the log keeps
constexpr std::size_t kPayloadLimit = 4096;  // bytes that the driver hands to a board at most

/// How an exchange goes wrong that the cabinet's hand spoils.
struct Fault {
    enum class Kind {
        kIoctl,   // fails with the error number in value; the board hears nothing
        kStatus,  // answered with the status in value; the board hears nothing
        kEcho,    // a K40's reply names another command
        kShort,   // value data bytes of the reply arrive at most
        kDelay,   // the answer takes value milliseconds
    };
    Kind kind;
    int value = 0;
};

/// What becomes of one ioctl.
struct Outcome {
    int error = 0;  // error number, 0 = the exchange took place
    Answer answer;
    std::uint8_t echo = 0;  // the command that a K40's reply names
    std::chrono::milliseconds delay{0};
};

struct LogEntry {
    std::uint32_t channel;
    std::uint8_t command;
    std::vector<std::uint8_t> payload;
    int error;
    Answer answer;
};

/// Locks nothing, as Board.
class Device {
public:
    Device(int deviceNumber, BoardOptions options)
        : board(std::move(options)), number(deviceNumber) {}

    Outcome Exchange(std::uint8_t command, std::uint32_t channel, ByteView payload);

    /// Of a record that the driver refuses, with an error number; the board hears nothing of it.
    void NoteRefusal(std::uint8_t command, std::uint32_t channel, ByteView payload, int error);

    void Unplug();
    void Plug();
    bool IsPlugged() const { return plugged; }
    /// Counts the times that the board was plugged in: descriptors from before stay dead.
    unsigned PlugCount() const { return plugCount; }

    /// The next count exchanges suffer the fault, after those that earlier calls asked for.
    void Spoil(unsigned count, Fault fault);
    void StopSpoiling() { faults.clear(); }
    unsigned ExchangesToSpoil() const;

    const std::deque<LogEntry>& Log() const { return log; }
    std::size_t ForgottenExchanges() const { return forgotten; }
    void ClearLog();

    std::string Name() const { return "Kovar_" + std::to_string(number); }
    int Number() const { return number; }

    Board board;

private:
    struct PlannedFault {
        Fault fault;
        unsigned left;
    };
    Fault TakeFault();
    Outcome Perform(std::uint8_t command, std::uint32_t channel, ByteView payload);
    void Note(LogEntry entry);

    int number;
    bool plugged = true;
    unsigned plugCount = 0;
    std::deque<PlannedFault> faults;
    std::deque<LogEntry> log;
    std::size_t forgotten = 0;
};

}  // namespace simulator

#endif
