// The words of "marvane-sim ctl": what they make a board show, what they print, what is refused.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "program.h"

namespace {

using Json = nlohmann::json;

// For scripts: words to board 0 or to one of its serial lines, and commands without their answers.
const std::string kShortForms =
    "ctl() { $SIM ctl 0 \"$@\"; }\n"
    "line() { ctl serial \"$@\"; }\n"
    "board() { $CLIENT k44 0 \"$@\" >/dev/null; }\n"
    "await() { until ctl show | grep -q \"$1\"; do sleep 0.02; done; }\n";

TEST(ControlTest, ShowTellsWhatWordsAndCommandsHaveDone) {
    struct Case {
        const char *script, *where, *shows;
    };
    // clang-format off
    const Case cases[] = {
        {":", "/number", "0"},
        {":", "/model", R"("k44")"},
        {":", "/speedMbit", "12"},
        {":", "/firmwareRunning", "true"},
        {"ctl input 0 on 32 on 5 on 5 off", "/inputs/image", R"("0100000001")"},
        {"ctl contact 1 on",           "/inputs/rawImage", R"("0300000001")"},
        {":",                          "/inputs/unreportedChanges", R"("2100000001")"},
        {"ctl identity 6",             "/inputs/on", "[0, 25, 26, 32]"},
        {"ctl multiplexed 7 on 95 on", "/inputs/multiplexedOn", "[7, 95]"},
        {"board 114/1/01",             "/inputs/multiplexing", "true"},
        {"ctl coin 8 1000 1",          "/inputs/pulsesToCome", R"({"8": 1000})"},
        {"board 83/1/0802000000 84/1/1000000020 77/1/00100000000000000000 85/1/03 "
         "78/1/ff05 79/1/0001 79/1/0001",
            "/outputs", R"({"on": [5, 12], "onPeriod": [3, 9], "offPeriod": [4, 37], "pulsing": [5],
                "driven": [], "brightness": 3, "onPeriodPattern": "0812000000",
                "offPeriodPattern": "1010000020", "onPulses": {"5": 1}, "offPulses": {"1": 2}})"},
        {"board 107/1/030a0103 108/1/0301; ctl coin 3 2; await 'counter.: 2'",
            "/pulsedInputs", R"({"3": {"pulseParameter": 10, "activeState": 1,
                "extendedPulseParameter": 3, "checking": true, "counter": 2}})"},
        {"ctl hopper 4 coins 3; ctl hopper 4 rate 25; board 112/1/0414010600030000; "
         "await 'paid.: 3'",
            "/hoppers/4", R"({"coins": 0, "rate": 25, "jammed": false, "dropped": 3, "status": 2,
                "output": 6, "wanted": 3, "paid": 3})"},
        {"ctl hopper 5 jam",           "/hoppers/5", R"({"coins": 500, "rate": 10, "jammed": true,
                "dropped": 0, "status": 0, "output": null, "wanted": 0, "paid": 0})"},
        {"ctl hopper 5 free",          "/hoppers/5/jammed", "false"},
        {"ctl hopper 9 rate 1; board 112/1/0914010700ff0000", "/outputs/driven", "[7]"},
        {"board 86/1/02003007; ctl reel 0 position 47; "
         "board 91/1/01 90/1/010203 87/1/0001012c",
            "/reels/0", R"({"configured": true, "steps": 48, "stepMs": 7, "position": 47,
                "turning": false, "stepsLeft": 0, "ramp": "none", "waiting": 300})"},
        {":", "/reels/2", R"({"configured": false, "steps": 200, "stepMs": 5, "position": 0,
                "turning": false, "stepsLeft": 0, "ramp": "none", "waiting": null})"},
        {":", "/reels/dutyCycle", "[1, 2, 3]"},
        {":", "/reels/synchronised", "true"},
        {"board 125/1/0503ffff0c3fff0064 126/1/3a98", "/recording",
            R"({"inputs": [5, 3, null, null],
                "address": 196607, "length": 100, "periodMs": 15000, "status": 1, "samples": 0})"},
        {"board 3/2/20021fff51", "/eeprom", R"({"part": "24LC64", "told": {"pageSize": 32,
                "addressBytes": 2, "highestAddress": 8191, "busAddress": 81}})"},
        {"ctl switch 0 open 7 open 0 closed", "/clock/openSwitches", "[7]"},
        {":",                          "/clock/opened", "[0, 7]"},
        {":",                          "/clock/closed", "[0]"},
        {"board 64/5",                 "/clock/closed", "[]"},
        {":",                          "/clock/cachedOpened", "[0, 7]"},
        {":",                          "/clock/cachedClosed", "[0]"},
        {":",                          "/clock/log/1/switchByte", "136"},
        {"ctl battery fail",           "/clock/batteryFailed", "true"},
        {":",                          "/clock/clockFailed", "false"},
        {"ctl rtc fail",               "/clock/clockFailed", "true"},
        {":", "/identity",
            R"({"dallasNumber": "010100000000000a", "picSerial": "3030303030303031"})"},
        {"board 69/5/01020304", "/random", R"({"enabled": true, "argument": 67305985})"},
        {"board 94/7 96/7/080805ff; ctl spi reply aa bb", "/spi", R"({"enabled": true, "control": 5,
                "queuedReplies": 2, "rightFrames": 0, "wrongFrames": 0})"},
        {"ctl spi clear",              "/spi/queuedReplies", "0"},
        {"board 97/3/010203016401; line 0 feed 010203; line 0 parity 4; "
         "board 98/3/00010002; line 0 line none; "
         "board 98/3/0003 101/3/00010a 122/3/11 123/3/0207 "
         "103/3/0200010101050500000000050502000001fd0000000000",
            "/serial/0", R"({"line": "none", "configuration": {"type": 1, "parityCode": 2,
                "flagBits2And3": 3, "flagBit1": 1, "rate": "6401"},
                "received": 5, "sent": 1, "dropped": 0,
                "parityErrors": 4, "timeoutMessage": {"message": "0a", "afterMs": 0, "sent": false},
                "sas": {"address": 17, "mode": 2, "value": 7}, "device": null,
                "polls": {"2": {"mode": 0, "option": 1, "periodMs": 50, "hostTimeoutMs": 0,
                    "stopped": false, "messages": 0, "sentPolls": 0, "rightReplies": 0,
                    "wrongReplies": 0, "missingReplies": 0}}})"},
        {"line 0 line sas; line 0 host 17; line 0 long 1f02; await 'lastAnswer.: .1107'",
            "/serial/0/device", R"({"polling": false, "address": 17, "generalPolls": 0,
                "generalAnswers": 0, "longPolls": 1, "longAnswers": 1, "busyAnswers": 0,
                "lastAnswer": "1107"})"},
        {"line 0 host on; await 'generalAnswers.: 1'", "/serial/0/device/polling", "true"},
        {"line 0 host off",            "/serial/0/device/polling", "false"},
        {"line 0 line cctalk; line 0 mute; line 0 insert 3 >/dev/null",
            "/serial/0/device", R"({"muted": true, "master": 1, "mask": 0, "eventCounter": 0,
                "lastCoins": [0, 0, 0, 0, 0], "acceptedCoins": 0, "returnedCoins": 1,
                "wrongFrames": 0})"},
        {"line 0 speak",               "/serial/0/device/muted", "false"},
        {"line 1 line polled; line 1 event aabb",
            "/serial/1/device", R"({"muted": false, "queuedEvents": 1,
                "rightFrames": 0, "wrongFrames": 0})"},
        {"ctl fail 3 ioctl EPIPE",     "/exchangesToSpoil", "3"},
        {"ctl fail off",               "/exchangesToSpoil", "0"},
        {"ctl unplug",                 "/plugged", "false"},
        {"ctl plug",                   "/plugged", "true"},
    };
    // clang-format on
    std::string script = kShortForms;
    for (const Case& c : cases)
        script += std::string(c.script) + "\nctl show | tr -d '\\n'; echo\n";
    const Finished finished = RunSimulated(
        {"--board", "0=k44@12:eeprom=24LC64:serial0=loop", "--firmware-running"}, script);
    EXPECT_EQ(finished.complaints, "");
    std::istringstream lines(finished.output);
    for (const Case& c : cases) {
        std::string line;
        ASSERT_TRUE(std::getline(lines, line)) << c.script;
        EXPECT_EQ(Json::parse(line).at(Json::json_pointer(c.where)), Json::parse(c.shows))
            << c.script << ' ' << c.where;
    }
}

TEST(ControlTest, WordsPrintWhatTheyTakeOffTheBoard) {
    struct Case {
        const char *script, *output;
    };
    // clang-format off
    const Case cases[] = {
        {"board 97/3/00000000d901 97/4/0100000064ff 98/3/41ff 98/4/01800042; "
         "line 0 drain; line 0 drain; line 1 drain",
            "41ff\n-\n0180 0042\n"},
        {"board 97/3/00000000d901 97/4/0100000064ff; line 0 feed 0aFF; "
         "line 1 feed9 1ff 0 2; line 1 parity 258; $CLIENT k44 0 99/3/00 99/3/01 99/4 100/4",
            "0 0aff\n0 -\n0 01ff00000002\n0 0102\n"},
        {"board 97/3/00000000d901; line 0 line cctalk; board 98/3/020201e7ff7f96 99/3/00; "
         "line 0 insert 15; line 0 insert 16",
            "accepted\nreturned\n"},
        {"board 3/2/40027fff51 4/2/021000aabb; ctl eeprom read 16 2; ctl eeprom read 32767 1",
            "aabb\nff\n"},
        {"ctl log --clear >/dev/null; board 114/1/01 75/2; ctl fail 1 ioctl EPIPE; "
         "board 82/1; ctl log; ctl log --clear >/dev/null; ctl log",
            "1 114 01 0 -\n2 75 - 101 -\n1 82 - EPIPE -\n"},
        {"board threads/1/2048/1 74/6; ctl log | sed -n '1p;$='",
            "# 1 earlier exchanges are forgotten\n4097\n"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        EXPECT_EQ(RunSimulated({"--board", "k44:eeprom=24LC256:blank"}, kShortForms + c.script),
                  (Finished{0, c.output, ""}));
    }
}

TEST(ControlTest, WordsThatCannotBeCarriedOutAreRefused) {
    struct Case {
        const char* words;
        int status;
        const char* complaint;
    };
    const Case cases[] = {
        {"0 input 33 on", 2, "the input must be a number from 0 to 32, not '33'"},
        {"0 input 5x on", 2, "the input must be a number from 0 to 32, not '5x'"},
        {"0 input 99999999999999999999 on", 2, "not '99999999999999999999'"},
        {"0 input 5 high", 2, "the level of input must be on or off, not 'high'"},
        {"0 coin 3 1001", 2, "the number of coins must be a number from 1 to 1000"},
        {"0 hopper 3 coins 65536", 2, "the number of coins must be a number from 0 to 65535"},
        {"0 hopper 3 free now", 2, "nothing may follow before 'now'"},
        {"0 hopper 3 shake", 2, "'shake' is not coins, rate, jam or free"},
        {"0 reel 0 position 200", 2, "the position must be a number from 0 to 199"},
        {"0 fail 1 fire", 2, "'fire' is not ioctl, status, echo, short or delay"},
        {"0 fail 1 ioctl EBANANA", 2, "'EBANANA' is no error name such as EIO"},
        {"1 fail 1 status 256", 2, "from -128 to 255"},
        {"0 fail 1 echo", 1, "only a K40 echoes the command"},
        {"0 switch 8 open", 2, "the security switch must be a number from 0 to 7, not '8'"},
        {"0 spi reply 000102030405060708090a0b0c0d0e0f1011121314", 2, "must be 1 to 20 bytes"},
        {"0 eeprom read 32767 2", 2, "the length must be a number from 1 to 1"},
        {"0 serial 2 drain", 2, "the port must be a number from 0 to 1"},
        {"0 serial 0 dance", 2, "nothing on a line is called 'dance'"},
        {"0 serial 0 feed 0", 2, "the bytes must be 1 to 65536 in hex, not '0'"},
        {"0 serial 0 feed9 1ff 200", 2, "a word must be 0 to 1ff in hex, not '200'"},
        {"0 serial 0 line pty", 1, "no other becomes one"},
        {"0 serial 0 insert 1", 1, "on the line hangs none, not cctalk"},
        {"0 serial 0 host on", 1, "not sas"},
        {"0 serial 1 line loop && $SIM ctl 0 serial 1 drain", 1, "goes to loop"},
        {"0 identity 8", 2, "the identity must be a number from 0 to 7"},
        {"0 coin 3 5 101", 2, "the number of coins a second must be a number from 1 to 100"},
        {"0 hopper 3 rate 0", 2, "the number of coins a second must be a number from 1 to 25"},
        {"0 multiplexed 96 on", 2, "from 0 to 95"},
        {"0 reel 3 position 0", 2, "the reel must be a number from 0 to 2"},
        {"0 serial 0 line modem", 2, "nothing of the name 'modem' hangs on a line"},
        {"0 serial 0 event 000102030405060708090a0b0c0d0e0f1011121314", 2, "1 to 20 in hex"},
        {"0 spi reply 0a 0", 2, "an SPI reply must be 1 to 20 bytes in hex, not '0'"},
        {"0 dance", 2, "there is no word 'dance'"},
        {"16 show", 2, "the board must be a number from 0 to 15, not '16'"},
        {"", 2, "what to do is missing"},
        {"--gently 0 show", 2, "there is no option --gently"},
        {"3 show", 1, "there is no board 3"},
        {"0 plug", 1, "the board is plugged in already"},
        {"--pid 1 list", 1, "no simulation runs as process 1"},
        {"0 input 5 on 6 up", 2, "must be on or off, not 'up'"},
    };
    std::string script, statuses;
    for (const Case& c : cases) {
        script += std::string("$SIM ctl ") + c.words + "; echo $?\n";
        statuses += std::to_string(c.status) + "\n";
    }
    // What is refused changes nothing.
    script += "$SIM ctl 0 show | grep '\"image\"'";
    const Finished finished = RunSimulated({"--board", "k44", "--board", "k40"}, script);
    for (const Case& c : cases)
        EXPECT_NE(finished.complaints.find(c.complaint), std::string::npos) << c.words;
    EXPECT_EQ(finished.output, statuses + "    \"image\": \"0000000000\",\n");
}

TEST(ControlTest, SeedDecidesTheRandomNumbersAndEachBoardHasItsOwn) {
    const auto numbers = [](Words words) {
        words.insert(words.end(), {"--board", "k44", "--board", "k44"});
        return RunSimulated(words, "for n in 0 1; do $CLIENT k44 $n 69/5/00000000 68/5 68/5; done")
            .output;
    };
    const std::string seeded = numbers({"--seed", "7"});
    EXPECT_EQ(numbers({"--seed", "7"}), seeded);
    EXPECT_NE(numbers({"--seed", "8"}), seeded);
    EXPECT_NE(numbers({}), numbers({}));
    const std::size_t half = seeded.size() / 2;
    EXPECT_NE(seeded.substr(0, half), seeded.substr(half));
}

TEST(ControlTest, ChannelSurvivesWhateverIsSentToIt) {
    const Finished finished = RunSimulated(
        {"--board", "k44"},
        "python3 - <<'EOF'\n"
        "import os, socket\n"
        "for text in [b'', b'\\n', b'{\\n', b'[]\\n', b'{\"words\":[1]}\\n', b'x' * 200000]:\n"
        "    s = socket.socket(socket.AF_UNIX)\n"
        "    s.connect(os.environ['MARVANE_SIM_CONTROL'])\n"
        "    try: s.sendall(text); s.shutdown(socket.SHUT_WR); print(s.recv(99).decode(), end='')\n"
        "    except OSError: pass\n"
        "EOF\n"
        "$SIM ctl list");
    const std::string refused = "{\"result\":2,\"text\":\"the request is not understood\\n\"}\n";
    EXPECT_EQ(finished, (Finished{0, refused + refused + refused + "0 k44 480 plugged\n", ""}));
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

TEST(TerminalTest, CarriesEveryByteBothWays) {
    Program simulation(Simulated(
        {"--board", "k44:serial1=pty", "--serial", "0=pty", "--board", "k40:serial0=none"},
        "$CLIENT k44 0 97/3/00000000d901 97/4/0100000064ff 98/3/000d0aff 98/4/01800003 >/dev/null\n"
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

TEST(TerminalTest, HoldsNothingUpThoughNobodyReads) {
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
