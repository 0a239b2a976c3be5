/**
 * @file in_process_driver.h
 * @brief Stands where the kernel driver would, inside the test program.
 *
 * Linked into a program, it takes the program's calls of open, fopen, ioctl, fcntl and close: those
 * that concern /dev/Kovar_<n> and /sys/class/Kovar reach the boards that a test has added, and
 * never a real one; all others reach the system, the key files in the program's own folder. It
 * records every exchange and answers with the board model, or with what a test tells it to.
 */
#ifndef IN_PROCESS_DRIVER_H
#define IN_PROCESS_DRIVER_H

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "board/board.h"

struct K40Record;
struct K44Record;

using Bytes = std::vector<std::uint8_t>;

/** One command as it reached the driver. */
struct Exchange {
    int command;
    int channel;
    Bytes payload;

    bool operator==(const Exchange&) const = default;
};
using Exchanges = std::vector<Exchange>;

std::ostream& operator<<(std::ostream& out, const Exchange& exchange);

/** What the driver makes of one exchange. */
struct DriverAnswer {
    int error = 0;  // errno of a failing ioctl
    int status = 0;
    Bytes reply = {};
    std::optional<std::uint64_t> claimedLength = {};  // K40: the whole readLength
    std::optional<std::uint8_t> echo = {};            // K40 only
};
using Answerer = std::function<DriverAnswer(const Exchange&)>;

class InProcessDriver {
public:
    static InProcessDriver& Instance();

    /** Forgets boards, records and answers; descriptors that are still open stay counted. */
    void Reset();

    /** Adds the sysfs files and the node of a board. */
    simulator::Board& AddBoard(int deviceNo, simulator::Model model, int speedMbit = 480);
    /** A sysfs file of a board; no content: the file is missing. */
    void SetFile(int deviceNo, const std::string& attribute, std::optional<std::string> content);
    /** The node exists or not, whatever sysfs says. */
    void SetNode(int deviceNo, bool present);
    /** Opening the node of a board that is there fails; 0: it succeeds again. */
    void RefuseNode(int deviceNo, int error);

    /** The next exchange is answered like this; several queue up. */
    void AnswerNext(DriverAnswer answer);
    /** Every exchange that nothing is queued for is answered by this, not by the board model. */
    void AnswerWith(Answerer answerer);

    [[nodiscard]] Exchanges Sent() const;
    void ForgetSent();
    /** The bytes of the last transfer record as the library handed it over. */
    [[nodiscard]] Bytes LastRecord() const;
    [[nodiscard]] unsigned long LastRequest() const;
    [[nodiscard]] int LastOpenFlags() const;
    [[nodiscard]] std::vector<int> OpenedDevices() const;
    [[nodiscard]] int OpenDescriptors() const;

    /** Called after each open of another file; only changed while no thread works. */
    std::function<void(const std::string& path)> onOtherOpen;

    // What the interposed calls do

    std::optional<int> Open(const std::string& path, int flags);
    std::optional<std::FILE*> OpenFile(const std::string& path);
    std::optional<int> Ioctl(int descriptor, unsigned long request, void* record);
    void Duplicated(int descriptor, int copy);
    void Close(int descriptor);

private:
    InProcessDriver();

    void Note(int descriptor, int deviceNo);
    DriverAnswer Answer(int deviceNo, const Exchange& exchange);
    int TransferK40(int deviceNo, K40Record& record);
    int TransferK44(int deviceNo, K44Record& record);

    mutable std::mutex guard;
    std::map<int, std::unique_ptr<simulator::Board>> boards;
    std::map<int, bool> nodes;
    std::map<int, int> nodeErrors;
    std::map<std::string, std::string> files;
    std::map<int, int> nodeFiles;    // device number -> descriptor of the file behind its node
    std::map<int, int> descriptors;  // descriptor -> device number
    std::array<std::atomic<bool>, 1024> isBoards = {};  // by descriptor
    std::deque<DriverAnswer> queued;
    Answerer answerer;
    Exchanges sent;
    std::vector<int> opened;
    Bytes lastRecord;
    unsigned long lastRequest = 0;
    int lastOpenFlags = 0;
};

#endif  // IN_PROCESS_DRIVER_H
