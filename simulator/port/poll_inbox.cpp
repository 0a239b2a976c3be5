// Hands messages out, in parts where they are long.
#include "port/poll_inbox.h"

#include <algorithm>
#include <utility>

namespace simulator {
namespace {

constexpr std::size_t kReplyHeader = 2;  // status, more

}  // namespace

void PollInbox::Add(SerialFrame message) {
    messages.push_back(std::move(message));
    if (messages.size() <= kPollInboxLimit) return;
    messages.pop_front();
    lost = true;
}

void PollInbox::Replace(SerialFrame message) {
    messages.clear();
    messages.push_back(std::move(message));
}

std::vector<std::uint8_t> PollInbox::Read(std::size_t limit, std::uint8_t statusWhenEmpty) {
    if (rest.empty()) {
        if (messages.empty()) return {statusWhenEmpty, 0};
        rest = std::move(messages.front());
        messages.pop_front();
        statusOfRest =
            std::exchange(lost, false) ? poll_status::kMessageLost : poll_status::kMessage;
    }
    const std::size_t count = std::min(rest.size(), limit - kReplyHeader);
    const auto end = rest.begin() + static_cast<std::ptrdiff_t>(count);

    std::vector<std::uint8_t> reply{statusOfRest,
                                    count < rest.size() ? std::uint8_t{1} : std::uint8_t{0}};
    reply.insert(reply.end(), rest.begin(), end);
    rest.erase(rest.begin(), end);
    return reply;
}

}  // namespace simulator
