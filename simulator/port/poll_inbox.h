// The replies that a poll brought and that the host has not read yet.
#ifndef MARVANE_SIMULATOR_PORT_POLL_INBOX_H
#define MARVANE_SIMULATOR_PORT_POLL_INBOX_H

#include <deque>

#include "line/serial_frame.h"

namespace simulator {

/// What the host is told with each read.
namespace poll_status {
constexpr std::uint8_t kNoMessage = 0;
constexpr std::uint8_t kMessage = 1;
constexpr std::uint8_t kNoReply = 2;      // no message, and the last poll brought no right reply
constexpr std::uint8_t kMessageLost = 3;  // a message, and earlier ones were lost
constexpr std::uint8_t kStopped = 4;      // the host time-out had stopped polling
}  // namespace poll_status

constexpr std::size_t kPollInboxLimit = 32;  // messages; one more drops the oldest

class PollInbox {
public:
    void Add(SerialFrame message);
    /// Takes the place of all messages that nobody began to read.
    void Replace(SerialFrame message);
    void Clear() { *this = {}; }

    /// Status, whether more of the message follows, and as much of it as the limit leaves room
    /// for. The status is the same for all parts of a message.
    std::vector<std::uint8_t> Read(std::size_t limit, std::uint8_t statusWhenEmpty);

    /// A part of a message was read, and more of it is left.
    bool IsPartlyRead() const { return !rest.empty(); }
    std::size_t Count() const { return messages.size(); }

private:
    std::deque<SerialFrame> messages;
    bool lost = false;  // since the last read
    SerialFrame rest;   // of the message that is being read
    std::uint8_t statusOfRest = poll_status::kNoMessage;
};

}  // namespace simulator

#endif
