// What a state folder keeps of a program that is killed while it saves.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "state/directory.h"

namespace {

namespace fs = std::filesystem;
using simulator::BoardContents;
using simulator::StateDirectory;

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

TEST(StateTest, AKillInTheMiddleOfSavingLosesNothingOlder) {
    constexpr int kKills = 60;
    std::string folder = fs::temp_directory_path() / "marvane-state.XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const auto seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uint8_t last = 0;
    for (int round = 0; round < kKills && !HasFailure(); ++round) {
        int report[2];
        ASSERT_EQ(pipe(report), 0);
        const pid_t child = fork();
        if (child == 0) SaveForEver(folder, static_cast<std::uint8_t>(last + 1), report[1]);
        close(report[1]);
        EXPECT_EQ(read(report[0], &last, 1), 1);
        usleep(static_cast<useconds_t>(random() % 15000));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        while (read(report[0], &last, 1) == 1) {
        }
        close(report[0]);

        const auto kept = StateDirectory(folder).Load(0);
        EXPECT_TRUE(kept == Numbered(last) || kept == Numbered(static_cast<std::uint8_t>(last + 1)))
            << "after " << +last;
        last = kept ? kept->picSerial[0] : last;
    }
    fs::remove_all(folder);
}

}  // namespace
