// How a board answers a SAS host on one of its serial ports by itself.
//
// What follows is the simulator's own choice, boards may differ:
// - On the line a poll begins with a word whose ninth bit is set: the address with 0x80 for a
//   general poll, which is that word alone, without it for a long poll, whose other bytes follow
//   until the line is silent for 5 ms.
// - Mode 0: no automatic replies. 1: a general poll to the machine's address is answered with the
//   value. 2: a long poll, too, with the address and the value; value 0 is the busy answer.
// - Polls to the address that get no automatic reply go on to the receive queue, polls to others
//   nowhere. Without an address everything goes to the queue.
// - Status: bit 0, a poll was answered, bit 1, one went to the queue, bit 2, one was for another
//   address, each since the last look.
#ifndef MARVANE_SIMULATOR_PORT_SAS_H
#define MARVANE_SIMULATOR_PORT_SAS_H

#include <chrono>
#include <optional>

#include "line/sas_poll.h"
#include "terms/answer.h"

namespace simulator {

class BoardSas {
public:
    Answer SetAddress(Payload payload);
    Answer SetAutoReply(Payload payload);
    Answer ReportStatus(Payload payload);

    /// Of a word from the line: whether it is not for the receive queue, and what goes back.
    struct Heard {
        bool taken;
        SerialWords reply;
    };
    Heard Hear(SerialWord word);
    bool IsIdle() const { return poll == Poll::kNone; }
    /// A millisecond passes; what goes onto the line.
    SerialWords Tick();

    /// Nothing before it is set.
    const std::optional<std::uint8_t>& Address() const { return address; }
    std::uint8_t Mode() const { return mode; }
    std::uint8_t Value() const { return value; }

private:
    enum class Poll { kNone, kAnswered, kPassed, kDropped };  // the long poll under way
    Heard HearGeneralPoll(bool isOurs);
    Heard HearLongPoll(bool isOurs);

    std::optional<std::uint8_t> address;
    std::uint8_t mode = 0, value = 0;
    std::uint8_t status = 0;
    Poll poll = Poll::kNone;
    std::chrono::milliseconds silence{0};
};

}  // namespace simulator

#endif
