/**
 * @file in_process_bus.h
 * @brief What stands behind Boards: the nodes, files and boards that the program's calls meet.
 */
#ifndef MARVANE_SIMULATOR_TESTING_IN_PROCESS_BUS_H
#define MARVANE_SIMULATOR_TESTING_IN_PROCESS_BUS_H

#include <array>
#include <atomic>
#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "driver/bus.h"
#include "testing/marvaneusb_testing.h"

struct K40Record;
struct K44Record;

namespace marvaneusb::testing {

class InProcessBus final : public simulator::Bus {
public:
    static InProcessBus& Instance();

    Access Devices() override { return {std::unique_lock(guard), devices}; }
    void Unplug(simulator::Device& device) override { device.Unplug(); }
    void Plug(simulator::Device& device) override { device.Plug(); }

    void Reset();
    /** With its node and its sysfs files. The options' time becomes the bus's. */
    void Add(int deviceNo, simulator::BoardOptions options);
    void SetFile(int deviceNo, const std::string& attribute, std::optional<std::string> content);
    void SetNode(int deviceNo, bool present);
    void RefuseNode(int deviceNo, int error);

    void AnswerNext(Answer answer);
    void AnswerWith(Answerer answerer);
    void Advance(std::chrono::milliseconds time);

    /** What went by since Reset. */
    struct Record {
        Exchanges sent;
        std::vector<int> opened;  // device numbers
        Bytes lastRecord;
        unsigned long lastRequest = 0;
        int lastOpenFlags = 0;
        simulator::Moment now{};
    };
    template <class Value>
    [[nodiscard]] Value Recorded(Value Record::*what) const {
        const std::lock_guard lock(guard);
        return record.*what;
    }
    void ForgetSent();
    [[nodiscard]] int OpenDescriptors() const;
    /** What the program's open does with a board's path happens here, not elsewhere. */
    [[nodiscard]] bool IsReached();

    // What the interposed calls do; nothing for what is no board's

    std::optional<int> Open(const char* path, int flags);
    std::optional<std::FILE*> OpenFile(const char* path);
    std::optional<int> Ioctl(int descriptor, unsigned long request, void* argument);
    void Duplicated(int descriptor, int copy);
    /** It is gone, or has become another file's. */
    void Close(int descriptor);

private:
    struct Node {
        bool present = false;
        int refusal = 0;  // errno
        std::map<std::string, std::string, std::less<>> files;
    };
    struct Opened {
        int deviceNo;
        unsigned plugCount;
    };

    InProcessBus();

    simulator::Device* DeviceAt(int deviceNo);
    bool IsThere(int deviceNo);
    bool Note(int descriptor, Opened opened);
    Answer AnswerTo(const Opened& opened, const Exchange& exchange);
    Answer AskBoard(int deviceNo, const Exchange& exchange);
    int TransferK40(const Opened& opened, K40Record& record);
    int TransferK44(const Opened& opened, K44Record& record);

    mutable std::mutex guard;
    std::map<int, simulator::Device> devices;
    std::array<Node, simulator::kDeviceCount> nodes;
    std::array<int, simulator::kDeviceCount> nodeFiles;  // behind the nodes; -1: not made yet
    std::map<int, Opened> descriptors;
    // By descriptor; the kernel grants a process no higher ones unless it is asked to.
    std::array<std::atomic<bool>, 65536> isBoards = {};
    std::atomic<bool> reached = false;
    std::deque<Answer> queued;
    Answerer answerer;
    Record record;
};

/** Called after each open of a file that is no board's; only changed while no thread works. */
extern std::function<void(const std::string& path)> onOtherOpen;

}  // namespace marvaneusb::testing

#endif  // MARVANE_SIMULATOR_TESTING_IN_PROCESS_BUS_H
