// The serial lines of "marvane-sim": the words that drive them, and what is to be seen of them.
#include <gtest/gtest.h>

#include "program.h"

namespace {

TEST(SerialLinesTest, WordsFeedAndDrainThem) {
    const Finished finished = RunSimulated(
        {"--board", "k44"},
        "ctl() { $SIM ctl 0 serial \"$@\"; }\n"
        "board() { $CLIENT k44 0 \"$@\"; }\n"
        "board 97/3/00000000d901 97/4/010000006400 98/3/41ff 98/4/01800042 >/dev/null\n"
        "ctl 0 drain; ctl 0 drain; ctl 1 drain\n"
        "ctl 0 feed 0aFF; ctl 1 feed9 1ff 0 2; ctl 1 parity 258\n"
        "board 99/3/00 99/3/01 99/4 100/4\n"
        "ctl 0 line loop && board 98/3/0708 99/3/00");
    EXPECT_EQ(finished,
              (Finished{0, "41ff\n-\n0180 0042\n0 0aff\n0 -\n0 01ff00000002\n0 0102\n0 -\n0 0708\n",
                        ""}));
}

TEST(SerialLinesTest, WordsThatCannotBeCarriedOutAreRefused) {
    struct Case {
        const char* words;
        int status;
        const char* complaint;
    };
    const Case cases[] = {
        {"2 drain", 2, "the port must be a number from 0 to 1"},
        {"0", 2, "what happens on the line is missing"},
        {"0 dance", 2, "nothing on a line is called 'dance'"},
        {"0 feed 0", 2, "the bytes must be pairs of hex digits, not '0'"},
        {"0 feed 00 00", 2, "nothing may follow before '00'"},
        {"0 feed9 1ff 200", 2, "a word must be 0 to 1ff in hex, not '200'"},
        {"0 parity 65536", 2, "the number of errors must be a number from 1 to 65535"},
        {"0 line modem", 2, "nothing of the name 'modem' hangs on a line"},
        {"0 line pty", 1, "no other becomes one"},
        {"1 line loop && $SIM ctl 0 serial 1 drain", 1, "goes to loop"},
    };
    std::string script, statuses;
    for (const Case& c : cases) {
        script += std::string("$SIM ctl 0 serial ") + c.words + "; echo $?\n";
        statuses += std::to_string(c.status) + "\n";
    }
    const Finished finished = RunSimulated({"--board", "k44"}, script);
    EXPECT_EQ(finished.output, statuses);
    for (const Case& c : cases)
        EXPECT_NE(finished.complaints.find(c.complaint), std::string::npos) << c.words;
}

TEST(SerialLinesTest, ShowTellsOfBothPorts) {
    const Finished finished =
        RunSimulated({"--board", "k40"},
                     "$CLIENT k40 0 97/4/0102030164ff 98/4/00010002 >/dev/null\n"
                     "$SIM ctl 0 serial 1 feed 010203; $SIM ctl 0 serial 1 parity 4\n"
                     "$SIM ctl 0 serial 0 feed 01; $SIM ctl 0 serial 0 line loop\n"
                     "$SIM ctl 0 show | sed '1,/\"serial\"/d' | tr -d ' \\n'");
    EXPECT_EQ(finished,
              (Finished{0,
                        R"({"line":"loop","configuration":null,"received":0,"sent":0,"dropped":1,)"
                        R"("parityErrors":0},{"line":"none","configuration":{"type":1,)"
                        R"("parityCode":2,"flagBits2And3":3,"flagBit1":1,"rate":"64ff"},)"
                        R"("received":3,"sent":2,"dropped":0,"parityErrors":4}]})",
                        ""}));
}

}  // namespace
