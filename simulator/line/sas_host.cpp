// Asks and listens in turns.
#include "line/sas_host.h"

#include <utility>

#include "line/sas_poll.h"
#include "terms/time.h"

namespace simulator {
namespace {

constexpr std::chrono::milliseconds kPollPeriod{200};
constexpr std::chrono::milliseconds kPatience{20};
constexpr std::size_t kLongestAnswer = 256;

}  // namespace

bool SasHost::SendLongPoll(ByteView bytes) {
    if (longPolls.size() >= kMostSasPolls) return false;
    longPolls.emplace_back(bytes.begin(), bytes.end());
    return true;
}

SerialWords SasHost::Hear(std::span<const SerialWord> words) {
    if (awaited == Awaited::kNothing || words.empty()) return {};
    silence = {};
    for (const SerialWord word : words) {
        if (answer.size() < kLongestAnswer) answer.push_back(word);
    }
    return {};
}

SerialWords SasHost::Tick() {
    sincePoll += kTick;
    silence += kTick;
    if (awaited != Awaited::kNothing) {
        if (silence < (answer.empty() ? kPatience : kSasSilence)) return {};
        EndAnswer();
    }
    if (!longPolls.empty()) {
        SerialWords words = std::move(longPolls.front());
        longPolls.pop_front();
        words.insert(words.begin(), kSasPollMark | address);
        ++counts.longPolls;
        Await(Awaited::kLongAnswer);
        return words;
    }
    if (!polling || sincePoll < kPollPeriod) return {};
    sincePoll = {};
    ++counts.generalPolls;
    Await(Awaited::kGeneralAnswer);
    return {static_cast<SerialWord>(kSasPollMark | kSasGeneralPoll | address)};
}

void SasHost::Await(Awaited newlyAwaited) {
    awaited = newlyAwaited;
    answer.clear();
    silence = {};
}

void SasHost::EndAnswer() {
    const Awaited was = std::exchange(awaited, Awaited::kNothing);
    if (answer.empty()) return;
    ++(was == Awaited::kLongAnswer ? counts.longAnswers : counts.generalAnswers);
    if (was == Awaited::kLongAnswer && answer == SerialWords{address, 0}) ++counts.busyAnswers;
    lastAnswer = answer;
}

}  // namespace simulator
