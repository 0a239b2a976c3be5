// How a board answers a SAS host on one of its serial ports by itself.
// What it does where boards may differ: docs/simulator.md, "SAS".
#ifndef MARVANE_SIMULATOR_PORT_SAS_H
#define MARVANE_SIMULATOR_PORT_SAS_H

#include <chrono>
#include <optional>

#include "line/sas_poll.h"
#include "terms/answer.h"

namespace simulator {

class BoardSas {
public:
    Answer SetAddress(ByteView payload);
    Answer SetAutoReply(ByteView payload);
    Answer ReportStatus(ByteView payload);

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
