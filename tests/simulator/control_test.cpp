// The words of "marvane-sim ctl": what they do, what they print and how they are refused.
#include <gtest/gtest.h>

#include "program.h"

namespace {

TEST(ControlTest, WordsChangeWhatTheBoardAnswers) {
    struct Case {
        const char* words;
        const char* step;
        const char* output;
    };
    const Case cases[] = {
        {"input 5 on 32 on 5 off", "75/1", "0 0000000001\n"},
        {"contact 8 on", "75/1", "0 0000000000\n"},
        {"contact 8 on", "82/1", "0 0001000000\n"},
        {"input 3 on", "81/1", "0 0800000000\n"},
        {"reel 1 position 199", "92/1", "0 00000000000000c700000000000000000000\n"},
        {"identity 6", "75/1", "0 0000000600\n"},
        {"switch 0 open 7 open 0 closed", "64/5", "0 8101\n"},
        {"battery fail", "119/5 119/5", "0 01\n0 00\n"},
        {"spi reply 0a0B 0c", "94/7 96/7/101000ffff 96/7/101000ffff 96/7/101000ffff",
         "0 -\n0 0a0b\n0 0c00\n0 ffff\n"},
        {"spi reply 0a && $SIM ctl 0 spi clear", "94/7 96/7/080800ff", "0 -\n0 ff\n"},
        {"multiplexed 0 on 95 on", "114/1/01 115/1", "0 -\n0 01010000000000000000000080\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.words);
        const std::string script = std::string("$SIM ctl 0 ") + c.words + " && $CLIENT k44 0 ";
        EXPECT_EQ(RunSimulated({"--board", "k44"}, script + c.step), (Finished{0, c.output, ""}));
    }
}

TEST(ControlTest, WordsThatCannotBeCarriedOutAreRefused) {
    struct Case {
        const char* words;
        int status;
        const char* complaint;
    };
    const Case cases[] = {
        {"0 input", 2, "the input is missing"},
        {"0 input 33 on", 2, "the input must be a number from 0 to 32, not '33'"},
        {"0 input -1 on", 2, "the input must be a number from 0 to 32, not '-1'"},
        {"0 input 5x on", 2, "the input must be a number from 0 to 32, not '5x'"},
        {"0 input 99999999999999999999 on", 2, "not '99999999999999999999'"},
        {"0 input 5 high", 2, "the level of input must be on or off, not 'high'"},
        {"0 input 5 on 6", 2, "the level of input is missing"},
        {"0 identity 8", 2, "from 0 to 7"},
        {"0 coin 33 1", 2, "the input must be a number from 0 to 32"},
        {"0 coin 3 1001", 2, "the number of coins must be a number from 1 to 1000"},
        {"0 coin 3 5 101", 2, "the number of coins a second must be a number from 1 to 100"},
        {"0 hopper 33 jam", 2, "the hopper's input must be a number from 0 to 32"},
        {"0 hopper 3 coins 65536", 2, "the number of coins must be a number from 0 to 65535"},
        {"0 hopper 3 rate 26", 2, "the number of coins a second must be a number from 1 to 25"},
        {"0 hopper 3 free now", 2, "nothing may follow before 'now'"},
        {"0 hopper 3 shake", 2, "'shake' is not coins, rate, jam or free"},
        {"0 reel 3 position 0", 2, "the reel must be a number from 0 to 2"},
        {"0 reel 0 position 200", 2, "the position must be a number from 0 to 199"},
        {"0 reel 0 turn", 2, "what happens to the reel must be position, not 'turn'"},
        {"0 multiplexed 96 on", 2, "from 0 to 95"},
        {"0 unplug now", 2, "nothing may follow before 'now'"},
        {"0 fail 0 ioctl", 2, "the number of exchanges must be a number from 1 to 1000000"},
        {"0 fail 1 fire", 2, "'fire' is not ioctl, status, echo, short or delay"},
        {"0 fail 1 ioctl EBANANA", 2, "'EBANANA' is no error name such as EIO"},
        {"0 fail 1 status", 2, "the status is missing"},
        {"1 fail 1 status 256", 2, "from -128 to 255"},
        {"1 fail 1 short 63", 2, "from 0 to 62"},
        {"0 fail 1 delay 600001", 2, "from 1 to 600000"},
        {"0 log --clean", 2, "nothing may follow before '--clean'"},
        {"0 switch 8 open", 2, "the security switch must be a number from 0 to 7, not '8'"},
        {"0 switch 1 on", 2, "the level of security switch must be open or closed, not 'on'"},
        {"0 battery", 2, "what happens to the battery is missing"},
        {"0 rtc stop", 2, "what happens to the clock must be fail, not 'stop'"},
        {"0 spi reply", 2, "the SPI reply is missing"},
        {"0 spi reply 0a 0", 2, "an SPI reply must be 1 to 20 bytes in hex, not '0'"},
        {"0 spi reply 000102030405060708090a0b0c0d0e0f1011121314", 2, "must be 1 to 20 bytes"},
        {"0 spi reply -1", 2, "not '-1'"},
        {"0 eeprom read 32768 1", 2, "the address must be a number from 0 to 32767"},
        {"0 eeprom read 32767 2", 2, "the length must be a number from 1 to 1"},
        {"0 dance", 2, "there is no word 'dance'"},
        {"0", 2, "the word after the board is missing"},
        {"16 show", 2, "the board must be a number from 0 to 15, not '16'"},
        {"", 2, "what to do is missing"},
        {"--gently 0 show", 2, "there is no option --gently"},
        {"3 show", 1, "there is no board 3"},
        {"0 plug", 1, "the board is plugged in already"},
        {"0 fail 1 echo", 1, "only a K40 echoes the command"},
        {"--pid 1 list", 1, "no simulation runs as process 1"},
    };
    std::string script;
    for (const Case& c : cases)
        script += std::string("$SIM ctl ") + c.words + "; echo $?\n";
    script += "$SIM ctl 0 unplug; $SIM ctl 0 unplug; echo $?; $SIM ctl 0 input 5 on 6 up\n";
    script += "$SIM ctl 0 show | grep '\"image\"'";

    const Finished finished = RunSimulated({"--board", "k44", "--board", "k40"}, script);
    std::string statuses;
    for (const Case& c : cases) {
        statuses += std::to_string(c.status) + "\n";
        EXPECT_NE(finished.complaints.find(c.complaint), std::string::npos) << c.words;
    }
    EXPECT_EQ(finished.output, statuses + "1\n    \"image\": \"0000000000\",\n");
}

TEST(ControlTest, LogTellsWhatTheBoardReceivedAndAnswered) {
    const Finished finished = RunSimulated(
        {"--board", "k44"},
        "$CLIENT k44 0 114/1/01 75/1 75/2 >/dev/null; $SIM ctl 0 fail 1 ioctl EPIPE; "
        "$CLIENT k44 0 82/1 request/0x8401 >/dev/null; $SIM ctl 0 log --clear; $SIM ctl 0 log; "
        "$CLIENT k44 0 74/6 >/dev/null; $SIM ctl 0 log; "
        "$CLIENT k44 0 threads/1/2048/1 >/dev/null; $SIM ctl 0 log | sed -n '1p;$='");
    EXPECT_EQ(finished,
              (Finished{0,
                        "1 114 01 0 -\n1 75 - 0 0000000000\n2 75 - 101 -\n1 82 - EPIPE -\n"
                        "6 74 - 0 00\n"
                        "# 1 earlier exchanges are forgotten\n4097\n",
                        ""}));
}

TEST(ControlTest, ShowTellsOfEveryFamily) {
    const Finished finished = RunSimulated(
        {"--board", "k44:eeprom=24LC64"},
        "$CLIENT k44 0 83/1/0802000000 84/1/1000000020 77/1/00100000000000000000 85/1/03 "
        "78/1/ff05 79/1/0001 79/1/0001 86/1/02003007 90/1/010203 91/1/01 87/1/0001012c "
        "125/1/0503ffff0c3fff0064 126/1/3a98 3/2/20021fff51 69/5/01020304 94/7 96/7/080805ff "
        ">/dev/null; "
        "$SIM ctl 0 reel 0 position 47; $SIM ctl 0 switch 2 open 2 closed; $SIM ctl 0 rtc fail; "
        "$SIM ctl 0 spi reply aa; $SIM ctl 0 show | "
        "sed '1,/^  \"outputs\"/d; /^  \"serial\"/,$d; s/\"value\": [0-9]*/\"value\": T/; "
        "s/\"clock\": [0-9]\\+/\"clock\": T/'");
    EXPECT_EQ(finished, (Finished{0, R"(    "on": [5, 12],
    "onPeriod": [3, 9],
    "offPeriod": [4, 37],
    "pulsing": [5],
    "driven": [],
    "brightness": 3,
    "onPeriodPattern": "0812000000",
    "offPeriodPattern": "1010000020",
    "onPulses": {"5": 1},
    "offPulses": {"1": 2}
  },
  "pulsedInputs": {},
  "hoppers": {},
  "reels": {
    "synchronised": true,
    "dutyCycle": [1, 2, 3],
    "0": {"configured": true, "steps": 48, "stepMs": 7, "position": 47, "turning": false, "stepsLeft": 0, "ramp": "none", "waiting": 300},
    "1": {"configured": true, "steps": 48, "stepMs": 7, "position": 0, "turning": false, "stepsLeft": 0, "ramp": "none", "waiting": null},
    "2": {"configured": false, "steps": 200, "stepMs": 5, "position": 0, "turning": false, "stepsLeft": 0, "ramp": "none", "waiting": null}
  },
  "recording": {
    "inputs": [5, 3, null, null],
    "address": 196607,
    "length": 100,
    "periodMs": 15000,
    "status": 1,
    "samples": 0
  },
  "eeprom": {
    "part": "24LC64",
    "told": {"pageSize": 32, "addressBytes": 2, "highestAddress": 8191, "busAddress": 81}
  },
  "clock": {
    "value": T,
    "clockFailed": true,
    "batteryFailed": false,
    "clockAtBatteryFailure": 0,
    "openSwitches": [],
    "opened": [2],
    "closed": [2],
    "cachedOpened": [2],
    "cachedClosed": [2],
    "log": [
      {"clock": T, "switchByte": 131},
      {"clock": T, "switchByte": 3}
    ]
  },
  "identity": {"dallasNumber": "010100000000000a", "picSerial": "3030303030303031"},
  "random": {"enabled": true, "argument": 67305985},
  "spi": {"enabled": true, "control": 5, "queuedReplies": 1, "rightFrames": 0, "wrongFrames": 0},
)",
                                  ""}));
}

TEST(ControlTest, ShowTellsOfCoinsAndHoppers) {
    const Finished finished = RunSimulated(
        {"--board", "k40"},
        "$SIM ctl 0 hopper 4 coins 3 && $SIM ctl 0 hopper 4 rate 25 && $SIM ctl 0 hopper 5 jam && "
        "$SIM ctl 0 hopper 9 rate 1 && $CLIENT k40 0 107/1/030a01 108/1/0301 >/dev/null && "
        "$SIM ctl 0 coin 3 1 && "
        "$CLIENT k40 0 112/1/0914010700ff00 112/1/04140106000300 >/dev/null && "
        "until $SIM ctl 0 show | grep -q '\"paid\": 3'; do :; done; $SIM ctl 0 show | "
        "sed -n '/\"driven\"/p; /^  \"pulsedInputs/,/^  }/p; "
        "/^  \"hoppers/,/^  }/{/\"9\"/s/\\(coins\\|dropped\\|paid\\)\": [0-9]*/\\1\": N/g;p}'");
    EXPECT_EQ(finished, (Finished{0, R"(    "driven": [7],
  "pulsedInputs": {
    "3": {"pulseParameter": 10, "activeState": 1, "extendedPulseParameter": 0, "checking": true, "counter": 1}
  },
  "hoppers": {
    "4": {"coins": 0, "rate": 25, "jammed": false, "dropped": 3, "status": 2, "output": 6, "wanted": 3, "paid": 3},
    "5": {"coins": 500, "rate": 10, "jammed": true, "dropped": 0, "status": 0, "output": null, "wanted": 0, "paid": 0},
    "9": {"coins": N, "rate": 1, "jammed": false, "dropped": N, "status": 1, "output": 7, "wanted": 255, "paid": N}
  },
)",
                                  ""}));
}

TEST(ControlTest, SeedDecidesTheRandomNumbers) {
    const auto numbers = [](const Words& options) {
        Words words = {"--board", "k44", "--board", "k44"};
        words.insert(words.end(), options.begin(), options.end());
        return RunSimulated(words,
                            "for n in 0 1; do $CLIENT k44 $n 69/5/00000000 68/5 68/5 68/5 "
                            "68/5 | xargs; done")
            .output;
    };
    const std::string seeded = numbers({"--seed", "7"});
    EXPECT_EQ(numbers({"--seed", "7"}), seeded);
    EXPECT_NE(numbers({"--seed", "8"}), seeded);
    const std::string unseeded = numbers({});
    EXPECT_NE(numbers({}), unseeded);
    for (const std::string& two : {seeded, unseeded}) {
        const auto middle = two.find('\n');
        ASSERT_EQ(two.size(), 2 * (middle + 1)) << two;
        EXPECT_NE(two.substr(0, middle), two.substr(middle + 1, middle));
    }
}

TEST(ControlTest, ShowPrintsTheStateAsJson) {
    const Finished finished =
        RunSimulated({"--board", "2=k40@12:id=1", "--firmware-running"},
                     "$SIM ctl 2 input 0 on; $SIM ctl 2 contact 1 on; $SIM ctl 2 multiplexed 7 on; "
                     "$SIM ctl 2 fail 3 ioctl; $SIM ctl 2 unplug; "
                     "$SIM ctl 2 show | sed '/outputs/,$d' | tr -d ' \\n'");
    EXPECT_EQ(finished,
              (Finished{0,
                        R"({"number":2,"model":"k40","speedMbit":12,"plugged":false,)"
                        R"("firmwareRunning":true,"exchangesToSpoil":3,"inputs":{"on":[0,24],)"
                        R"("image":"0100000100","rawImage":"0300000100",)"
                        R"("unreportedChanges":"0100000000","multiplexing":false,)"
                        R"("multiplexedOn":[7],"pulsesToCome":{}},)",
                        ""}));
}

TEST(ControlTest, ChannelSurvivesWhateverIsSentToIt) {
    const Finished finished = RunSimulated(
        {"--board", "k44"},
        "python3 - <<'EOF'\n"
        "import os, socket\n"
        "for text in [b'', b'\\n', b'{\\n', b'[]\\n', b'{\"words\":1}\\n', b'{\"words\":[1]}\\n',\n"
        "             b'\\xff\\xfe\\n', b'x' * 200000, b'{\"words\":[\"list\"]}']:\n"
        "    s = socket.socket(socket.AF_UNIX)\n"
        "    s.connect(os.environ['MARVANE_SIM_CONTROL'])\n"
        "    try:\n"
        "        s.sendall(text); s.shutdown(socket.SHUT_WR); print(s.recv(1000).decode(), "
        "end='')\n"
        "    except OSError: pass\n"
        "EOF\n"
        "$SIM ctl list");
    const std::string refused = R"({"result":2,"text":"the request is not understood\n"})"
                                "\n";
    EXPECT_EQ(
        finished,
        (Finished{0, refused + refused + refused + refused + refused + "0 k44 480 plugged\n", ""}));
}

TEST(ControlTest, HelpNamesEveryWord) {
    const Finished finished = RunProgram({MARVANE_SIM, "ctl", "--help"});
    EXPECT_EQ(finished.status, 0);
    for (const char* word :
         {"list", "BOARD input", "BOARD contact", "BOARD multiplexed", "BOARD identity",
          "BOARD hopper", "BOARD reel", "BOARD switch", "BOARD battery fail", "BOARD rtc fail",
          "BOARD spi reply", "BOARD spi clear", "BOARD eeprom read", "BOARD unplug", "BOARD plug",
          "BOARD fail N delay", "BOARD log", "BOARD show"}) {
        EXPECT_NE(finished.output.find(word), std::string::npos) << word;
    }
}

}  // namespace
