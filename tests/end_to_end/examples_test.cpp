// The example programs' command lines, and the acceptor's coins across kills.
#include <gtest/gtest.h>

#include "program.h"

namespace {

std::string PathOf(const std::string& example) {
    return std::string(EXAMPLES) + "/" + example;
}

TEST(ExamplesTest, HelpIsGivenAndWrongArgumentsAreRefusedBeforeAnyBoardIsLookedFor) {
    struct Case {
        const char* example;
        Words arguments;
        const char* complaint;
    };
    const Case cases[] = {
        {"cabinet", {"ten"}, "ROUNDS: 'ten' is no whole number from 0 to 1000000000"},
        {"cabinet", {"1", "-2"}, "SECONDS: '-2' is no number of seconds from 0 to 1000000000"},
        {"cabinet", {"1", "2", "16"}, "DEVICE: '16' is no whole number from 0 to 15"},
        {"cabinet", {"1", "2", "3", "4"}, "nothing is to follow here, but there is 4"},
        {"cctalk_acceptor", {"1s"}, "SECONDS: '1s' is no number of seconds from 0 to 1000000000"},
        {"running_light", {""}, "ROUNDS: '' is no whole number from 0 to 1000000000"},
        {"watch_inputs", {"nan"}, "SECONDS: 'nan' is no number of seconds from 0 to 1000000000"},
    };
    for (const Case& c : cases) {
        const std::string name = c.example;
        Words words = {PathOf(name)};
        words.insert(words.end(), c.arguments.begin(), c.arguments.end());
        const Finished refused = RunProgram(words);
        EXPECT_EQ(refused.status, 64) << name;
        EXPECT_EQ(refused.complaints.rfind(name + ": " + c.complaint + "; ", 0), 0U)
            << refused.complaints;

        words.push_back("--help");
        const Finished help = RunProgram(words);
        EXPECT_EQ(help.status, 0) << name;
        EXPECT_NE(help.output.find("\nUsage: " + name + " ["), std::string::npos) << help.output;
    }
}

TEST(ExamplesTest, TheAcceptorsCoinsAreTakenOnceThoughItsProgramWasKilled) {
    const Finished finished = RunSimulated({"--board", "k44@12", "--serial", "0=cctalk"},
                                           "ACCEPTOR=" + PathOf("cctalk_acceptor") + R"(
        out=$(mktemp)
        until_said() { until grep -q "$1" $out; do sleep 0.02; done; }
        insert() { for coin; do $SIM ctl 0 serial 0 insert $coin >/dev/null; sleep "$pause"; done; }
        start() { : >$out; $ACCEPTOR 60 >$out & program=$!; until_said 'insert coins'; }
        kept() { sleep 0.5; }   # the board polls, and keeps the answers
        killed() { kill -9 $program; wait $program 2>/dev/null; cat $out; }
        pause=0
        start; insert 7; until_said 'coin 7'; killed
        pause=0.12; insert 1 2 3 4 5 6 8; kept
        pause=0; start; killed
        $SIM ctl 0 serial 0 mute; insert 9 10 11 12 13 14 15; $SIM ctl 0 serial 0 speak
        kept; $ACCEPTOR 0; rm $out)");
    EXPECT_EQ(finished.status, 0) << finished.complaints;
    EXPECT_EQ(finished.output,
              "noted so far: 0 coins, 0 events missed\nacceptor: MARVANE-SIM\ninsert coins\n"
              "coin 7\n"
              "noted so far: 1 coins, 0 events missed\n"
              "coin 1\ncoin 2\ncoin 3\ncoin 4\ncoin 5\ncoin 6\ncoin 8\n"
              "acceptor: MARVANE-SIM\ninsert coins\n"
              "noted so far: 8 coins, 0 events missed\n"
              "2 events are lost: they came too fast\n"
              "coin 11\ncoin 12\ncoin 13\ncoin 14\ncoin 15\n"
              "acceptor: MARVANE-SIM\ninsert coins\nthe end: 5 coins\n");
}

}  // namespace
