/**
 * @file first_openings_test.cpp
 * @brief Two processes open a board at the same instant that nobody has opened before.
 *
 * Runs inside marvane-sim with a K44 (0) that carries a 24LC64. Loads no library itself, so that
 * what processes share is gone between two rounds and each round's openings are the first again.
 */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "program.h"

namespace {

constexpr int kRounds = 200;

// What the board received since the last call.
std::string TakeLog() {
    const Finished finished = RunProgram({MARVANE_SIM, "ctl", "0", "log", "--clear"});
    EXPECT_EQ(finished.status, 0) << finished.complaints;
    return finished.output;
}

// Both writers have loaded the library before the end of their input lets either open the board.
void OpenAndWriteTwice(const std::string& fifo) {
    const int start = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(start, 0);
    const Words writer = {"sh", "-c", "exec " BOARD_WRITER " 0 64 40 < " + fifo};
    Program one(writer);
    Program other(writer);
    EXPECT_EQ(one.ReadLine(), "ready");
    EXPECT_EQ(other.ReadLine(), "ready");
    close(start);
    EXPECT_EQ(one.Wait().status, 0);
    EXPECT_EQ(other.Wait().status, 0);
}

// Of all exchanges about the EEPROM's part (3) and those that write to it (4), in their order.
struct Seen {
    std::vector<std::string> told;  // payloads
    int writesBeforeLastTold = 0;
    int writes = 0;
};

Seen EepromExchanges(const std::string& log) {
    Seen seen;
    std::istringstream lines(log);
    std::string channel, command, payload, rest;
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
    std::string folder = std::filesystem::temp_directory_path() / "marvane-openings.XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const std::string fifo = folder + "/start";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    TakeLog();
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        OpenAndWriteTwice(fifo);
        const std::string log = TakeLog();
        const Seen seen = EepromExchanges(log);
        EXPECT_EQ(seen.told.size(), 2U) << log;
        EXPECT_EQ(seen.told.empty() ? "" : seen.told.back(), "20021fff51") << log;
        EXPECT_EQ(seen.writesBeforeLastTold, 0) << log;
        EXPECT_GE(seen.writes, 2) << log;
    }
    std::filesystem::remove_all(folder);
}

}  // namespace
