// The polls that a board runs on a serial port by itself: four slots, each with its messages, and
// the message that tells the line when the host has fallen silent.
// What it does where boards may differ: docs/simulator.md, "Polls".
#ifndef MARVANE_SIMULATOR_PORT_POLLS_H
#define MARVANE_SIMULATOR_PORT_POLLS_H

#include <array>
#include <optional>

#include "port/poll_slot.h"
#include "terms/answer.h"

namespace simulator {

constexpr std::size_t kPollSlotCount = 4;
constexpr std::size_t kPollMessageLimit = 25;     // bytes
constexpr std::size_t kTimeoutMessageLimit = 60;  // bytes

struct TimeoutMessage {
    SerialWords words;
    std::chrono::milliseconds after{0};
    std::chrono::milliseconds quiet{0};  // since the last command
    bool isSent = false;                 // since the last command

    /// It will be sent unless a command comes.
    bool IsArmed() const { return !isSent && after.count() != 0 && !words.empty(); }
};

class BoardPolls {
public:
    /// The most bytes that a reply of the board holds, at least 3.
    explicit BoardPolls(std::size_t bytesPerReply) : replyLimit(bytesPerReply) {}

    Answer SetTimeoutMessage(ByteView payload);
    Answer Configure(ByteView payload);
    Answer Empty(ByteView payload);
    Answer Read(ByteView payload);
    Answer Delete(ByteView payload);
    Answer SetHostTimeout(ByteView payload);

    /// Any command came for the port.
    void OnCommand();
    /// A word from the line: true when it belongs to a poll that waits for its reply.
    bool Take(SerialWord word);
    /// A millisecond passes: what goes onto the line now.
    SerialWords Tick();
    /// Nothing is timed.
    bool IsIdle() const;

    const std::array<PollSlot, kPollSlotCount>& Slots() const { return slots; }
    const TimeoutMessage& MessageOnTimeout() const { return timeoutMessage; }

private:
    struct Waiting {
        std::size_t slot;
        SerialFrameCollector reply;
        std::chrono::milliseconds left;
        bool isAfterReply;  // to the message 2 of mode 3
    };

    PollSlot* SlotOf(std::uint8_t index);
    void CancelExchange(std::size_t slot);
    void Await(std::size_t index, bool isAfterReply);
    void TickWaiting();
    void TakeReply(std::size_t index, SerialFrame reply, bool isAfterReply);
    SerialWords SendNextPoll();

    std::size_t replyLimit;
    std::array<PollSlot, kPollSlotCount> slots;
    std::size_t lastPolled = kPollSlotCount - 1;
    std::optional<Waiting> waiting;
    std::optional<std::size_t> owesSecond;  // the slot whose reply is to be followed by message 2
    TimeoutMessage timeoutMessage;
};

}  // namespace simulator

#endif
