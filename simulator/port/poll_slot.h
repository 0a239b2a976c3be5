// One of the polls that a board runs on a serial port: when it falls due, and what of it is kept.
#ifndef MARVANE_SIMULATOR_PORT_POLL_SLOT_H
#define MARVANE_SIMULATOR_PORT_POLL_SLOT_H

#include <chrono>

#include "port/poll_inbox.h"

namespace simulator {

namespace poll_mode {
enum Mode : std::uint8_t { kOff = 0, kInTurn = 2, kSecondAfterReply = 3 };
}  // namespace poll_mode

struct PollSettings {
    std::uint8_t mode = 0, option = 0, variant = 0, lengthOffset = 0, lengthExtra = 0;
    std::chrono::milliseconds period{0}, replyTimeout{0};
    SerialWords first, second;  // messages
};

struct PollSlot {
    PollSettings settings;
    std::chrono::milliseconds passed{0};  // of the period
    bool isDue = false;
    bool isSecondNext = false;  // where they go in turn
    SerialFrame lastReply = {};
    bool lacksReply = false;  // the last poll had no right one
    PollInbox inbox;

    std::chrono::milliseconds hostTimeout{0};  // 0 for none
    std::chrono::milliseconds unread{0};
    bool isStopped = false;  // by the host time-out

    unsigned sentPolls = 0, rightReplies = 0, wrongReplies = 0, missingReplies = 0;

    /// It has messages to send, and was not stopped.
    bool IsPolling() const;
    /// A millisecond passes: a poll may fall due, or the host time-out stop the polling.
    void Tick();
    void StartAgain();
    /// The one whose turn it is, which then passes; it may be empty.
    const SerialWords& NextMessage();

    bool IsRight(const SerialFrame& reply) const;
    /// As the option says.
    void Keep(SerialFrame reply);
};

}  // namespace simulator

#endif
