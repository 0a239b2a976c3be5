/**
 * @file first_openings_test.cpp
 * @brief Two processes open a board at the same instant that nobody has opened before.
 *
 * Runs inside marvane-sim with a K44 (0) that carries a 24LC64. Loads no library itself, so that
 * what processes share is gone between two rounds and each round's openings are the first again.
 */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kRounds = 200;

class Pipe {
public:
    Pipe() {
        if (pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
    }
    ~Pipe() {
        CloseReader();
        CloseWriter();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    [[nodiscard]] int Reader() const { return ends[0]; }
    [[nodiscard]] int Writer() const { return ends[1]; }
    void CloseReader() { Close(ends[0]); }
    void CloseWriter() { Close(ends[1]); }

private:
    static void Close(int& end) {
        if (end >= 0) close(end);
        end = -1;
    }
    std::array<int, 2> ends{};
};

std::string ReadAll(int descriptor) {
    std::string text;
    std::array<char, 4096> buffer{};
    for (ssize_t count = 0; (count = read(descriptor, buffer.data(), buffer.size())) > 0;)
        text.append(buffer.data(), static_cast<std::size_t>(count));
    return text;
}

pid_t Spawn(std::vector<const char*> words, int input, int output) {
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input >= 0) posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    pid_t process = -1;
    const int error = posix_spawn(&process, words[0], &actions, nullptr,
                                  const_cast<char* const*>(words.data()), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? process : -1;
}

int ExitStatusOf(pid_t process) {
    int status = -1;
    if (process < 0 || waitpid(process, &status, 0) != process) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/** What the board received since the last call. */
std::string TakeLog() {
    Pipe output;
    const pid_t process = Spawn({MARVANE_SIM, "ctl", "0", "log", "--clear"}, -1, output.Writer());
    output.CloseWriter();
    const std::string log = ReadAll(output.Reader());
    EXPECT_EQ(ExitStatusOf(process), 0);
    return log;
}

/** Both writers have loaded the library before either opens the board. */
void OpenAndWriteTwice() {
    Pipe start;
    Pipe ready;
    std::array<pid_t, 2> writers{};
    for (pid_t& writer : writers)
        writer = Spawn({BOARD_WRITER, "0", "64", "40"}, start.Reader(), ready.Writer());

    for (std::size_t i = 0; i < writers.size() * std::string_view("ready\n").size(); ++i) {
        char byte = 0;
        ASSERT_EQ(read(ready.Reader(), &byte, 1), 1);
    }
    start.CloseWriter();
    for (const pid_t writer : writers)
        EXPECT_EQ(ExitStatusOf(writer), 0);
}

/** Of all exchanges about the EEPROM's part (3) and those that write to it (4), in their order. */
struct Seen {
    std::vector<std::string> told;  // payloads
    int writesBeforeLastTold = 0;
    int writes = 0;
};

Seen EepromExchanges(const std::string& log) {
    Seen seen;
    std::istringstream lines(log);
    std::string channel;
    std::string command;
    std::string payload;
    std::string rest;
    while (lines >> channel >> command >> payload && std::getline(lines, rest)) {
        if (channel != "2") continue;
        if (command == "3") {
            seen.told.push_back(payload);
            seen.writesBeforeLastTold = seen.writes;
        }
        if (command == "4") ++seen.writes;
    }
    return seen;
}

TEST(FirstOpeningsTest, TwoAtTheSameInstantDetectTheEepromOnceAndWriteAfterwards) {
    TakeLog();
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        OpenAndWriteTwice();
        const std::string log = TakeLog();
        const Seen seen = EepromExchanges(log);
        ASSERT_EQ(seen.told.size(), 2U) << log;
        EXPECT_EQ(seen.told.back(), "20021fff51");
        EXPECT_EQ(seen.writesBeforeLastTold, 0);
        EXPECT_GE(seen.writes, 2);
        if (HasFailure()) FAIL() << log;
    }
}

}  // namespace
