// The example machine against the simulated cabinet: every coin is where it belongs, whatever
// happens. What the machine says is held against what the boards show.
#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "program.h"

namespace {

using Json = nlohmann::json;

/// The number behind a word of a line; -1 where it is missing.
int NumberAfter(const std::string& line, const std::string& word) {
    const auto place = line.find(word);
    return place == std::string::npos ? -1 : std::atoi(line.c_str() + place + word.size());
}

class Cabinet {
public:
    Cabinet(const std::string& board, const Words& command) : program(WordsOf(board, command)) {
        ReadUntil("from last time");
    }

    std::string Ctl(const std::string& words) const {
        const Finished finished =
            RunProgram({"sh", "-c",
                        std::string(MARVANE_SIM) + " ctl --pid " +
                            std::to_string(program.Process()) + " 0 " + words});
        EXPECT_EQ(finished.status, 0) << finished.complaints;
        return finished.output;
    }
    Json Show() const { return Json::parse(Ctl("show")); }

    void Press() const {
        Ctl("input 5 on");
        usleep(30'000);
        Ctl("input 5 off");
    }

    /// Result: the line, which says these words; empty when the program has ended without it.
    std::string ReadUntil(const std::string& words) {
        std::string line;
        do {
            line = program.ReadLine();
        } while (!line.empty() && line.find(words) == std::string::npos);
        EXPECT_NE(line, "") << "never said: " << words;
        return line;
    }
    Finished Wait() { return program.Wait(); }

private:
    // Seeded, so that the rounds have the same wins each time.
    static Words WordsOf(const std::string& board, const Words& command) {
        Words words = {MARVANE_SIM, "--board", board, "--seed", "2", "--"};
        words.insert(words.end(), command.begin(), command.end());
        return words;
    }

    Program program;
};

TEST(CabinetTest, Of200CoinsNoneIsMissedOrCountedTwice) {
    Cabinet cabinet("k40@12", {CABINET, "2", "5"});
    cabinet.Ctl("hopper 8 rate 25");
    cabinet.Ctl("coin 3 200 25");
    cabinet.ReadUntil("10 coins in");
    cabinet.Press();
    cabinet.ReadUntil("round 1 shows");
    cabinet.ReadUntil("200 coins in");
    cabinet.Press();
    EXPECT_NE(cabinet.ReadUntil("the end").find("200 coins in, 2 rounds, credit 198, 0 coins"),
              std::string::npos);
    EXPECT_EQ(cabinet.Wait().status, 0);
}

TEST(CabinetTest, WhatAnEmptyHopperDoesNotPayIsOwedAndPaidNextTime) {
    Cabinet cabinet(
        "k44", {"sh", "-c",
                std::string(CABINET) +
                    " 20 5; echo status $?; " MARVANE_SIM " ctl 0 hopper 8 coins 500; " + CABINET +
                    " 0 1"});
    cabinet.Ctl("hopper 8 coins 3");
    cabinet.Ctl("coin 3 20 100");
    cabinet.ReadUntil("20 coins in");
    std::string line;
    for (int round = 1; round <= 20 && line.find("owes") == std::string::npos; ++round) {
        cabinet.Press();
        const int win = NumberAfter(cabinet.ReadUntil(" shows "), "win ");
        if (win <= 0) continue;
        EXPECT_EQ(cabinet.ReadUntil("hopper paid"),
                  "hopper paid 3, " + std::to_string(win - 3) + " coins owed");
        line = cabinet.ReadUntil("owes the player " + std::to_string(win - 3) + " coins");
        usleep(50'000);
        const Json board = cabinet.Show();
        EXPECT_EQ(board["hoppers"]["8"]["coins"], 0);
        EXPECT_EQ(board["outputs"]["onPeriod"], (Json{12, 16, 37})) << "start, win, attendant";
    }
    cabinet.ReadUntil("status 2");
    const int owed = NumberAfter(cabinet.ReadUntil("from last time"), ", ");
    EXPECT_EQ(cabinet.ReadUntil("hopper paid"),
              "hopper paid " + std::to_string(owed) + ", 0 coins owed");
    EXPECT_EQ(cabinet.Wait().status, 0);
}

TEST(CabinetTest, UnpluggedInMidSpinItSaysHowEverythingStands) {
    Cabinet cabinet("k44", {"sh", "-c",
                            std::string(CABINET) +
                                " 5 5; echo status $?; " MARVANE_SIM " ctl 0 show | tr -d ' \\n'; "
                                "echo; " MARVANE_SIM " ctl 0 plug; " +
                                CABINET + " 0 0; " MARVANE_SIM " ctl 0 show"});
    cabinet.Ctl("coin 3 2 100");
    cabinet.ReadUntil("2 coins in");
    cabinet.Press();
    cabinet.ReadUntil("round 1 spins");
    usleep(300'000);
    cabinet.Ctl("unplug");
    cabinet.ReadUntil("status 1");
    const Json unplugged = Json::parse(cabinet.ReadUntil("{"));
    EXPECT_EQ(cabinet.ReadUntil("from last time"), "from last time: credit 1, 0 coins owed");
    EXPECT_EQ(cabinet.ReadUntil("given back"),
              "the last round was cut off: its stake of 1 is given back");
    const Finished finished = cabinet.Wait();

    const std::string& complaints = finished.complaints;
    EXPECT_EQ(complaints.rfind("The machine stops: ", 0), 0U) << complaints;
    EXPECT_NE(complaints.find("close it, and open it once it is back.\nlamps: start on, "),
              std::string::npos)
        << complaints;
    EXPECT_NE(complaints.find("all others off\ncredit 1, stake 1, 0 coins owed\n"),
              std::string::npos)
        << complaints;
    Json on = Json::array();
    Json blinking = Json::array();
    for (const int lamp : {20, 21, 22}) {
        const std::string name = "reel " + std::to_string(lamp - 19);
        if (complaints.find(name + " on") != std::string::npos) on.push_back(lamp);
        if (complaints.find(name + " blinking") != std::string::npos) blinking.push_back(lamp);
    }
    EXPECT_EQ(on.size() + blinking.size(), 3U) << complaints;
    on.insert(on.begin(), 12);
    EXPECT_EQ(unplugged["outputs"]["on"], on);
    EXPECT_EQ(unplugged["outputs"]["onPeriod"], blinking);
    EXPECT_EQ(unplugged["outputs"]["offPeriod"], Json::array());
    const Json after = Json::parse(finished.output.substr(finished.output.find("{\n")));
    for (const char* list : {"on", "onPeriod", "offPeriod"})
        EXPECT_EQ(after["outputs"][list], Json::array()) << "a new start knows every lamp";
}

}  // namespace
