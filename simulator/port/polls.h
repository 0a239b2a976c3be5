// The polls that a board runs on a serial port by itself: four slots, each with its messages, and
// the message that tells the line when the host has fallen silent.
//
// What follows is the simulator's own choice, boards may differ:
// - Mode 0 stops a slot, 1 sends message 1 every period, 2 sends message 1 and 2 in turn, 3 sends
//   message 1 every period and message 2 after each right reply to it; what that message 2 is
//   answered is kept like a reply, and nobody misses it where nothing comes. A message of length 0
//   is not sent, its turn passes. The first message goes out one period after the configuration; a
//   period of 0 is one of 10 ms.
// - A reply has reply[LengthOffset] + LengthExtra bytes. With variant 1 its bytes sum to 0 modulo
//   256, or it is dropped and counted. Param is the reply time-out in units of 10 ms, 0 for one
//   period. `Word` and `Byte` change nothing. The two messages tell their length in the same way.
// - While a slot waits for its reply nothing else is sent; slots that are due take turns.
// - Option 0 keeps every reply, 1 those that differ from the one before, 2 the latest only; 3 and 4
//   are as 0.
// - A configuration keeps the slot's unread messages and its host time-out; command 106 forgets
//   these too.
// - A slot that nobody reads for its host time-out stops. The next read says so, once all of a
//   message that was begun is read, and starts it again.
// - The time-out message goes out once when no command came for its time, or when the slot that
//   waits then has waited; the next command arms it again.
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

    Answer SetTimeoutMessage(Payload payload);
    Answer Configure(Payload payload);
    Answer Empty(Payload payload);
    Answer Read(Payload payload);
    Answer Delete(Payload payload);
    Answer SetHostTimeout(Payload payload);

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
