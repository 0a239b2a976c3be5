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
        {"0 feed 0", 2, "the bytes must be 1 to 65536 in hex, not '0'"},
        {"0 feed 00 00", 2, "nothing may follow before '00'"},
        {"0 feed9 1ff 200", 2, "a word must be 0 to 1ff in hex, not '200'"},
        {"0 parity 65536", 2, "the number of errors must be a number from 1 to 65535"},
        {"0 line modem", 2, "nothing of the name 'modem' hangs on a line"},
        {"0 line pty", 1, "no other becomes one"},
        {"0 insert 17", 2, "the coin must be a number from 1 to 16"},
        {"0 insert 1", 1, "on the line hangs none, not cctalk"},
        {"0 event 000102030405060708090a0b0c0d0e0f1011121314", 2, "1 to 20 in hex"},
        {"0 event 00", 1, "not polled"},
        {"0 mute", 1, "not polled"},
        {"0 host 128", 2, "the address must be a number from 0 to 127"},
        {"0 host on", 1, "not sas"},
        {"0 long 01", 1, "not sas"},
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
    EXPECT_EQ(
        finished,
        (Finished{0,
                  R"({"line":"loop","configuration":null,"received":0,"sent":0,"dropped":1,)"
                  R"("parityErrors":0,"polls":{},"timeoutMessage":null,"sas":null,"device":null},)"
                  R"({"line":"none","configuration":{"type":1,)"
                  R"("parityCode":2,"flagBits2And3":3,"flagBit1":1,"rate":"64ff"},)"
                  R"("received":3,"sent":2,"dropped":0,"parityErrors":4,"polls":{},)"
                  R"("timeoutMessage":null,"sas":null,"device":null}]})",
                  ""}));
}

TEST(SerialLinesTest, DevicesAnswerAndShowTellsOfThem) {
    const Finished finished = RunSimulated(
        {"--board", "k44:serial0=cctalk", "--serial", "1=polled"},
        "ctl() { $SIM ctl 0 serial \"$@\"; }\n"
        "show() { $SIM ctl 0 show | tr -d ' \\n' | sed 's/.*\"serial\"://; s/\"general[^,]*,//g'; "
        "}\n"
        "$CLIENT k44 0 97/3/00000000d901 97/4/000000006400 98/3/020201e7ff7f96 99/3/00 "
        "101/3/00010a 103/3/0200010101050500000000050002000001fd 122/4/11 123/4/0207 >/dev/null\n"
        "ctl 0 insert 15; ctl 0 insert 16; ctl 1 event aabb; ctl 1 event cc; ctl 1 mute\n"
        "$CLIENT k44 0 98/4/020002 99/4; ctl 1 speak; $CLIENT k44 0 98/4/020002 99/4; show; echo\n"
        "ctl 1 line sas; ctl 1 host 17; ctl 1 long 1f02; ctl 1 host on\n"
        "until show | grep -q 'lastAnswer\":\"07\"'; do sleep 0.05; done\n"
        "ctl 1 host off; show | grep -o '{\"address.*'");
    const std::string port0 =
        R"({"line":"cctalk","configuration":{"type":0,"parityCode":0,"flagBits2And3":0,)"
        R"("flagBit1":0,"rate":"d901"},"received":0,"sent":0,"dropped":0,"parityErrors":0,)"
        R"("polls":{"2":{"mode":0,"option":1,"periodMs":50,"hostTimeoutMs":0,"stopped":false,)"
        R"("messages":0,"sentPolls":0,"rightReplies":0,"wrongReplies":0,"missingReplies":0}},)"
        R"("timeoutMessage":{"message":"0a","afterMs":0,"sent":false},"sas":null,)"
        R"("device":{"muted":false,"master":1,"mask":32767,"eventCounter":1,)"
        R"("lastCoins":[15,0,0,0,0],"acceptedCoins":1,"returnedCoins":1,"wrongFrames":0}})";
    const std::string port1 =
        R"({"line":"polled","configuration":{"type":0,"parityCode":0,"flagBits2And3":0,)"
        R"("flagBit1":0,"rate":"6400"},"received":0,"sent":0,"dropped":0,"parityErrors":0,)"
        R"("polls":{},"timeoutMessage":null,"sas":{"address":17,"mode":2,"value":7},)"
        R"("device":{"muted":false,"queuedEvents":1,"rightFrames":1,"wrongFrames":0}})";
    const std::string host =
        R"({"address":17,"mode":2,"value":7},"device":{"polling":false,"address":17,)"
        R"("longPolls":1,"longAnswers":1,"busyAnswers":0,"lastAnswer":"07"}}]})";
    EXPECT_EQ(finished, (Finished{0,
                                  "accepted\nreturned\n0 -\n0 -\n0 -\n0 0202aabb11\n[" + port0 +
                                      "," + port1 + "]}\n" + host + "\n",
                                  ""}));
}

// Opens the terminal whose name follows the colon of a line, and runs the steps on it.
Finished PlayOnTerminal(const std::string& line, const std::string& steps) {
    return RunProgram({"python3", "-c",
                       "import os, sys, time\n"
                       "f = os.open(sys.argv[1], os.O_RDWR | os.O_NOCTTY)\n"
                       "def get(n):\n"
                       "    b = b''\n"
                       "    while len(b) < n: b += os.read(f, n - len(b))\n"
                       "    print(b.hex())\n" +
                           steps,
                       line.substr(line.find(": ") + 2)});
}

TEST(SerialLinesTest, TerminalCarriesEveryByteBothWays) {
    Program simulation(Simulated(
        {"--board", "k44:serial1=pty", "--serial", "0=pty", "--board", "k40:serial0=none"},
        "$CLIENT k44 0 97/3/00000000d901 97/4/010000006400 98/3/000d0aff 98/4/01800003 >/dev/null\n"
        "for step in 99/3/00 99/4; do\n"
        "    until $CLIENT k44 0 $step | grep -v ' -'; do sleep 0.05; done\n"
        "done"));
    const std::string lines[] = {simulation.ReadLine(), simulation.ReadLine()};
    EXPECT_EQ(lines[0].substr(0, 27), "board 0 serial 0: /dev/pts/");
    EXPECT_EQ(lines[1].substr(0, 27), "board 0 serial 1: /dev/pts/");
    EXPECT_EQ(PlayOnTerminal(lines[0], "get(4); os.write(f, bytes.fromhex('0d00030aff'))"),
              (Finished{0, "000d0aff\n", ""}));
    EXPECT_EQ(simulation.ReadLine(), "0 0d00030aff");
    EXPECT_EQ(PlayOnTerminal(lines[1],
                             "os.write(f, b'\\1'); time.sleep(0.1)\n"
                             "os.write(f, b'\\x80'); get(4)"),
              (Finished{0, "01800003\n", ""}));
    EXPECT_EQ(simulation.Wait(), (Finished{0, "0 0180\n", ""}));
}

TEST(SerialLinesTest, TerminalThatNobodyReadsHoldsNothingUp) {
    const Finished finished =
        RunSimulated({"--board", "k44", "--serial", "0=pty"},
                     "bytes=$(printf '%0500d' 0)\n"
                     "$CLIENT k44 0 97/3/00000000d901 $(yes 98/3/$bytes | head -100) | uniq\n"
                     "$SIM ctl 0 serial 0 line none");
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.output.substr(finished.output.find('\n')), "\n0 -\n");
    EXPECT_NE(finished.complaints.find("a line that is a pty stays one"), std::string::npos);
}

}  // namespace
