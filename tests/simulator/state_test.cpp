// What a state folder keeps between two simulations, whatever ends the first of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "program.h"
#include "state/directory.h"

namespace {

namespace fs = std::filesystem;
using simulator::BoardContents;
using simulator::StateDirectory;
using testing::HasSubstr;

class StateTest : public testing::Test {
protected:
    StateTest() {
        std::string name = fs::temp_directory_path() / "marvane-state.XXXXXX";
        parent = mkdtemp(name.data());
        folder = parent / "state";
    }
    ~StateTest() override { fs::remove_all(parent); }

    Words With(const Words& options) const {
        Words words = {"--state", folder};
        words.insert(words.end(), options.begin(), options.end());
        return words;
    }
    Finished Run(const std::string& script, const Words& options = {"--board", "k44"}) const {
        return RunSimulated(With(options), script);
    }

    fs::path parent, folder;
};

// Sets the EEPROM's part, writes to EEPROM, memory, clock and serial number, and opens a switch.
constexpr char kChange[] =
    "$CLIENT k44 0 3/2/40027fff51 4/2/021000aabb 117/6/0100000201c0ffee 65/5/1122334455667788 "
    "20/5/00000000 >/dev/null; $SIM ctl 0 switch 3 open; $SIM ctl 0 battery fail; ";
constexpr char kLook[] =
    "$SIM ctl 0 eeprom read 16 2; $SIM ctl 0 show | grep -E 'told|openSw|batteryF|identity'";
constexpr char kSeen[] =
    "aabb\n"
    "    \"told\": {\"pageSize\": 64, \"addressBytes\": 2, \"highestAddress\": 32767, "
    "\"busAddress\": 81}\n"
    "    \"batteryFailed\": true,\n"
    "    \"openSwitches\": [3],\n"
    "  \"identity\": {\"dallasNumber\": \"010100000000000a\", "
    "\"picSerial\": \"1122334455667788\"},\n";

std::string WithoutFailureTime(std::string text) {
    const auto place = text.find("    \"clockAtBatteryFailure\"");
    if (place != std::string::npos) text.erase(place, text.find('\n', place) + 1 - place);
    return text;
}

TEST_F(StateTest, BoardsSurviveTheEndAndAKillOfTheirSimulation) {
    EXPECT_EQ(Run("true").status, 0);
    EXPECT_TRUE(fs::is_empty(folder)) << "nothing has changed";
    EXPECT_EQ(Run(kChange).status, 0);
    const Finished second = Run(kLook);
    EXPECT_EQ(WithoutFailureTime(second.output), kSeen);
    EXPECT_EQ(second.complaints, "");

    Program killed(Simulated(With({"--board", "k44"}),
                             "$CLIENT k44 0 4/2/0220001234 >/dev/null; sleep 3; echo ready; "
                             "exec sleep 3 >/dev/null 2>&1"));
    EXPECT_EQ(killed.ReadLine(), "ready");
    killed.Signal(SIGKILL);
    killed.Wait();
    EXPECT_EQ(Run("$SIM ctl 0 eeprom read 32 2; $SIM ctl 0 eeprom read 16 2"),
              (Finished{0, "1234\naabb\n", ""}));
}

TEST_F(StateTest, WhatIsNoBoardsStateIsRefusedAndLeftAlone) {
    ASSERT_EQ(Run(kChange).status, 0);
    const fs::path file = folder / "board-0";
    std::ifstream stream(file, std::ios::binary);
    const std::string good{std::istreambuf_iterator<char>(stream), {}};
    std::string flipped = good;
    flipped[good.size() / 2] ^= 1;

    struct Case {
        const char* what;
        std::string bytes;
        Words boards;
        const char* complaint;
    };
    const Case cases[] = {
        {"cut", good.substr(0, good.size() - 1), {"--board", "k44"}, "is damaged"},
        {"empty", "", {"--board", "k44"}, "is damaged"},
        {"one bit", flipped, {"--board", "k44"}, "is damaged"},
        {"another program's", std::string(5 << 20, 'x'), {"--board", "k44"}, "is damaged"},
        {"model", good, {"--board", "k50"}, "another board model or EEPROM part"},
        {"part", good, {"--board", "k44:eeprom=24LC64"}, "another board model or EEPROM part"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::ofstream(file, std::ios::binary | std::ios::trunc) << c.bytes;
        const Finished finished = Run("echo ran", c.boards);
        EXPECT_EQ(finished.status, 125);
        EXPECT_EQ(finished.output, "");
        EXPECT_THAT(finished.complaints, HasSubstr((file.string() + " is ").c_str()));
        EXPECT_THAT(finished.complaints, HasSubstr(c.complaint));
        EXPECT_EQ(fs::file_size(file), c.bytes.size());
    }
    fs::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(Run("echo ran").status, 125);
}

TEST_F(StateTest, AFolderServesOneSimulationAtATime) {
    const Finished finished = Run("$SIM --board k44 --state " + folder.string() + " -- echo ran");
    EXPECT_EQ(finished.status, 125);
    EXPECT_EQ(finished.output, "");
    EXPECT_THAT(finished.complaints, HasSubstr("is in use by another simulation"));
    EXPECT_EQ(Run("echo ran").output, "ran\n");

    folder = parent / "no" / "state";
    EXPECT_THAT(Run("echo ran").complaints, HasSubstr("No such file or directory"));
}

BoardContents Numbered(std::uint8_t number) {
    return {.model = simulator::Model::kK50,
            .eepromPart = simulator::EepromPart::k24LC01,
            .memory = std::vector<std::uint8_t>(1 << 20, number),
            .eepromSetting = {},
            .eeprom = std::vector<std::uint8_t>(128, number),
            .clock = {},
            .picSerial = {number}};
}

// Saves one after the other, and tells of each that is done, until it is killed.
[[noreturn]] void SaveForEver(const fs::path& folder, std::uint8_t number, int report) {
    const StateDirectory directory(folder);
    while (true) {
        directory.Save(0, Numbered(number));
        if (write(report, &number, 1) != 1) _exit(1);
        ++number;
    }
}

TEST_F(StateTest, AKillInTheMiddleOfSavingLosesNothingOlder) {
    constexpr int kKills = 60;
    const auto seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uint8_t last = 0;
    for (int round = 0; round < kKills; ++round) {
        int report[2];
        ASSERT_EQ(pipe(report), 0);
        const pid_t child = fork();
        if (child == 0) SaveForEver(folder, static_cast<std::uint8_t>(last + 1), report[1]);
        close(report[1]);
        ASSERT_EQ(read(report[0], &last, 1), 1);
        usleep(static_cast<useconds_t>(random() % 15000));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        while (read(report[0], &last, 1) == 1) {
        }
        close(report[0]);

        const auto kept = StateDirectory(folder).Load(0);
        ASSERT_TRUE(kept);
        const std::uint8_t next = static_cast<std::uint8_t>(last + 1);
        ASSERT_TRUE(*kept == Numbered(last) || *kept == Numbered(next)) << "after " << +last;
        last = kept->picSerial[0];
    }
}

}  // namespace
