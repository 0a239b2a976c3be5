// A SAS host on a serial line: it polls one machine and looks how it answers.
// What it does where real hosts may differ: docs/simulator.md, "SAS".
#ifndef MARVANE_SIMULATOR_LINE_SAS_HOST_H
#define MARVANE_SIMULATOR_LINE_SAS_HOST_H

#include <chrono>
#include <deque>
#include <span>

#include "line/serial_line.h"
#include "terms/answer.h"

namespace simulator {

constexpr std::size_t kLongestSasPoll = 60;  // bytes behind the address
constexpr std::size_t kMostSasPolls = 100;   // that wait to be sent

class SasHost {
public:
    /// 0 to 127; 1 at first.
    void SetAddress(unsigned newAddress) { address = static_cast<std::uint8_t>(newAddress); }
    /// General polls, one every 200 ms; off at first.
    void SetPolling(bool polls) {
        polling = polls;
        sincePoll = {};
    }
    /// Command and data, which go out when no answer is awaited. False when too many wait.
    bool SendLongPoll(ByteView bytes);

    SerialWords Hear(std::span<const SerialWord> words);
    SerialWords Tick();
    bool IsIdle() const { return !polling && longPolls.empty() && awaited == Awaited::kNothing; }

    struct Counts {
        unsigned generalPolls = 0, generalAnswers = 0;
        unsigned longPolls = 0, longAnswers = 0, busyAnswers = 0;

        bool operator==(const Counts&) const = default;
    };
    const Counts& Seen() const { return counts; }
    const SerialWords& LastAnswer() const { return lastAnswer; }
    std::uint8_t Address() const { return address; }
    bool IsPolling() const { return polling; }

private:
    enum class Awaited { kNothing, kGeneralAnswer, kLongAnswer };
    void Await(Awaited newlyAwaited);
    void EndAnswer();

    std::uint8_t address = 1;
    bool polling = false;
    std::deque<SerialWords> longPolls;
    std::chrono::milliseconds sincePoll{0};  // since the latest general one

    Awaited awaited = Awaited::kNothing;
    SerialWords answer;
    std::chrono::milliseconds silence{0};

    Counts counts;
    SerialWords lastAnswer;
};

}  // namespace simulator

#endif
