// The serial ports: both ways of the line, the polls that a board runs by itself, and SAS.
#include "board_conversation.h"
#include "port/polls.h"
#include "port/sas.h"

namespace simulator {
namespace {

class SerialPortTest : public BoardModelTest {
protected:
    SerialPortTest() {
        Word("feed", [this](auto& n) { Port(n).Feed(SerialWords(n.begin() + 1, n.end())); });
        Word("damaged", [this](auto& n) { Port(n).FeedParityErrors(n.at(1)); });
        Word("sent", [this](auto& n) { return Port(n).TakeSent(); });
        Word("waiting", [this](auto& n) { return Port(n).SentWords(); });
        Word("dropped", [this](auto& n) { return Port(n).DroppedWords(); });
        Word("idle", [this](auto& n) { return Port(n).IsIdle(); });
    }
    BoardSerialPort& Port(const Numbers& numbers) { return board.ports.at(numbers.at(0)); }
};

TEST_F(SerialPortTest, WordsGoBothWaysOnTheirPortAndTimestampsAreTimesOfArrival) {
    Talk(R"(
        feed 0 9; dropped 0 = 1  # not configured: nobody hears it
        3/97 0 0 0 0 0xD9 1; 4/97 1 0 0 0 0x64 0xFF
        3/98 0x41 0xFF; 4/98 0x01 0x80 0xFF 0x42
        sent 0 = 0x41 0xFF; sent 1 = 0x180 0x142; sent 0

        feed 0 0x31 0x132; feed 1 0x101 0x02
        3/99 200 = 0x31 0x32; 3/99 200; 4/99 = 1 1 0 2
        +255 feed 0 5; feed 1 0x105; +2 feed 0 6; feed 1 6
        +40 3/102 = 5 255 6 1; 4/102 = 1 5 255 0 6 1; 3/102 = 41

        damaged 1 65535; damaged 1 0x0103; 4/100 = 1 2; 4/99
        feed 1 1; 4/97 0 0 0 0 0x64 0xFF; 4/100 = 0 0; 4/99 = 1)");
    board.ports[0].Attach(SerialLine::kLoop);
    Talk("3/98 7 8; 3/99 0 = 7 8");
}

TEST_F(SerialPortTest, OnlyAPortOfNineBitsHearsSasPolls) {
    Talk(R"(
        3/97 0 0 0 0 0xD9 1; 3/122 1; 3/123 1 7; feed 0 0x181
        4/97 1 0 0 0 0x64 0xFF; 4/122 1; 4/123 1 7; feed 1 0x181
        sent 0; sent 1 = 7; 3/99 0 = 0x81; 3/124 = 0; 4/124 = 1)");
}

TEST_F(SerialPortTest, PollsGoToTheAcceptorAndNothingOfThemToTheReceiveQueue) {
    board.ports[1].Attach(SerialLine::kCctalk);
    Word("insert",
         [this](auto& n) { std::get<CctalkAcceptor>(board.ports[1].Device()).Insert(n.at(0)); });
    Talk(R"(
        4/97 0 0 0 0 0x64 0xFF; 4/98 2 2 1 231 0xFF 0xFF 22
        4/99 = 1 0 2 0 253  # the mask is acknowledged
        # Every 50 ms, each reply, read credit as message 1.
        4/103 3 1 0 1 1 5 5 0 0 0 0  5 5  2 0 1 229 24  0 0 0 0 0; insert 7; +49 4/105 3 = 0 0
        +1 4/105 3 = 1 0 1 11 2 0 1 7 1 0 0 0 0 0 0 0 0 233; 4/99
        power-up; 4/97 0 0 0 0 0x64 0xFF; +100 4/105 3 = 0 0)");
}

TEST_F(SerialPortTest, AnyCommandOfThePortPutsOffItsTimeoutMessage) {
    Talk(R"(
        3/97 0 0 0 0 0xD9 1; 4/97 0 0 0 0 0x64 0xFF; 3/101 2 2 0xAB 0xCD
        +59 3/97 0 0 0 0 0xD9 1; +59 3/100 = 0 0; +59 4/100 = 0 0; waiting 0 = 0
        +1000 waiting 0 = 2; sent 0 = 0xAB 0xCD  # once)");
}

// Polls on port 0, which has nine bits: what no poll takes is received as two bytes a word.
class PollsTest : public SerialPortTest {
protected:
    PollsTest() {
        Use({.model = Model::kK40});  // 62 bytes a reply
        Talk("3/97 1 0 0 0 0xD9 1");
        // Slot, mode, option, period, time-out. Message 1 is A, message 2 is B, behind a length.
        Word("poll", [this](auto& n) {
            return Send("3/103", BytesOf({n.at(0), n.at(1), n.at(2), 0, 0, 1, n.at(3), 0, 0, 0,
                                          n.at(4), 2, 2, 1, 'A', 1, 'B'}));
        });
        // What every message is answered with from then on.
        Word("answer", [this](auto& n) { answer = SerialWords(n.begin(), n.end()); });
        // Milliseconds pass. When something goes out, and the letters of it.
        Word("hear", [this](auto& n) { return Pass(n.at(0)); });
        Word("pass", [this](auto& n) { Pass(n.at(0)); });
    }

    Numbers Pass(unsigned milliseconds) {
        Numbers sent;
        for (unsigned n = 1; n <= milliseconds; ++n) {
            Do("+", {1});
            board.Advance();
            const SerialWords out = board.ports[0].TakeSent();
            if (out.empty()) continue;
            sent.push_back(n);
            std::ranges::copy_if(out, std::back_inserter(sent), [](int c) { return c >= 'A'; });
            board.ports[0].Feed(answer);
        }
        return sent;
    }

    SerialWords answer;
};

TEST_F(PollsTest, ModesDecideWhatGoesOutWhen) {
    struct Case {
        const char* what;
        std::string poll, unanswered, answered;
    };
    // clang-format off
    const Case cases[] = {
        {"off",                "poll 0 0 0 1 0", "", ""},
        {"first",              "poll 0 1 0 2 0", "20 A 40 A", "20 A 40 A"},
        {"in turn",            "poll 0 2 0 1 0", "10 A 20 B 30 A 40 B", "10 A 20 B 30 A 40 B"},
        {"second after reply", "poll 0 3 0 2 0", "20 A 40 A", "20 A 21 B 40 A 41 B"},
        {"period 0",           "poll 0 1 0 0 0", "10 A 20 A 30 A 40 A", "10 A 20 A 30 A 40 A"},
        {"waits 30 ms",        "poll 0 1 0 1 3", "10 A 40 A", "10 A 20 A 30 A 40 A"},
        {"no first",           "3/103 0 1 0*4 1 0*4 0 2 2 B", "", ""},
        {"no first, in turn",  "3/103 0 2 0*4 1 0*4 0 2 2 B", "20 B 40 B", "20 B 40 B"},
        {"no second",          "3/103 0 3 0*4 2 0*4 2 0 2 A", "20 A 40 A", "20 A 40 A"},
    };
    // clang-format on
    for (const auto& [what, poll, unanswered, answered] : cases) {
        SCOPED_TRACE(what);
        Talk("answer; " + poll);
        Talk(unanswered.empty() ? "idle 0 = 1" : "idle 0 = 0");
        Talk("hear 41 = " + unanswered);
        Talk(poll + "; answer 1 x; hear 41 = " + answered);
    }
    Talk("poll 0 3 0 1 0; answer 0; pass 10; 3/106 0; hear 50");  // message 2 went with the slot
}

TEST_F(PollsTest, SlotsWaitForEachOthersRepliesAndTakeTurns) {
    Talk(R"(
        poll 0 1 0 1 0; 3/103 2 1 0 0 0 1 1 0 0 0 1 2 1 1 C 0
        hear 40 = 10 A 20 C 30 A 40 C  # none answered
        feed 0 0; hear 1 = 1 A; 3/106 0
        feed 0 0; hear 9 = 9 C; 3/99 0 = 0 0  # nobody waits)");
}

TEST_F(PollsTest, OptionsDecideWhichRepliesAreKept) {
    const std::string kept[] = {"55655", "565", "5", "55655", "55655"};
    for (std::size_t option = 0; option <= 4; ++option) {
        Talk("3/106 1; poll 1 1 " + std::to_string(option) + " 1 0");
        Talk("answer 1 5; pass 20; answer 1 6; pass 10; answer 1 5; pass 20");
        for (const char reply : kept[option])
            Talk("3/105 1 = 1 0 1 "s + reply);
        Talk("3/105 1 = 0 0");
    }
}

TEST_F(PollsTest, RepliesAreFramesOfTheLengthAndSumThatTheSlotNames) {
    struct Case {
        const char* what;
        std::string poll, reply, read;
    };
    const std::string cctalk = "0 1 0 1 1 5 1 0*4 5 5 0*10", otherSum = "0 1 0 0 1 3 1 0*4 3 3 0*6";
    // clang-format off
    const Case cases[] = {
        {"ccTalk",             cctalk,   "1 1 2 0 7 245", "1 0 1 1 2 0 7 245"},
        {"ccTalk, wrong sum",  cctalk,   "1 1 2 0 7 246", "2 0"},
        {"ccTalk, unfinished", cctalk,   "1 1 2 0 7",     "2 0"},
        {"other sum",          otherSum, "2 1 7 4",       "1 0 2 1 7 4"},
        {"one word more",      otherSum, "2 0 2 9",       "1 0 2 0 2; 3/99 0 = 0 9"},
        {"ninth bits",         "0 1 0 0 0 1 1 0*4 1 1 0 0", "0x101 0x180", "1 0 1 0x80"},
        {"length byte last",   "0 1 0 0 3 0 1 0*4 4 4 0 0 0 4 0 0 0 4", "9 9 9 2", "1 0 9 9 9 2"},
        {"length byte alone",  "0 1 0 0 0 0 1 0*4 1 1 1 1", "0", "1 0 0"},
    };
    // clang-format on
    for (const auto& [what, poll, reply, read] : cases) {
        SCOPED_TRACE(what);
        Talk("3/103 " + poll + "; pass 10");
        Talk("feed 0 " + reply + "; pass 10");
        Talk("3/105 0 = " + read + "; 3/99 0");
    }
}

TEST_F(PollsTest, ReplyTimeoutEndsTheWait) {
    Talk(R"(
        poll 0 1 0 5 2; pass 50; 3/105 0 = 0 0  # still waits
        pass 19; feed 0 1; 3/99 0               # in time, but not all of it
        pass 1; feed 0 7; 3/99 0 = 0 7          # too late
        3/105 0 = 2 0; 3/105 0 = 2 0            # until a right reply
        answer 1 7; hear 30 = 30 A; 3/105 0 = 1 0 1 7; 3/105 0 = 0 0)");
}

TEST_F(PollsTest, MessagesQueueUpTo32AndLongOnesAreReadInParts) {
    Talk("poll 0 1 0 1 0");
    for (int n = 0; n < 34; ++n)
        Talk("answer 1 " + std::to_string(n) + "; pass 10");
    for (int n = 2; n < 34; ++n)
        Talk((n == 2 ? "3/105 0 = 3 0 1 " : "3/105 0 = 1 0 1 ") + std::to_string(n));
    Talk(R"(
        3/105 0 = 0 0; poll 0 1 2 1 0
        answer 59 7*59; pass 10; 3/105 0 = 1 0 59 7*59
        answer 120 7*120; pass 10; 3/105 0 = 1 1 120 7*59; answer 1 8; pass 10
        3/105 0 = 1 1 7*60; 3/105 0 = 1 0 7; 3/105 0 = 1 0 1 8  # which has not broken into it
        pass 10; 3/104 0; 3/105 0 = 0 0)");
}

TEST_F(PollsTest, SlotThatNobodyReadsStopsUntilTheNextRead) {
    Talk(R"(
        poll 0 1 0 4 1; poll 1 1 0 8 1; 3/121 0 1; answer 61 7*61; pass 40; answer
        poll 0 1 0 4 1; 3/105 0 = 1 1 61 7*59  # keeps messages and host time-out
        hear 200 = 40 A 50 A 80 A 120 A 200 A  # slot 0 at 40 and 80, slot 1 else
        3/105 0 = 1 0 7 7                      # the message that is half read comes first
        3/105 0 = 4 0; 3/105 0 = 2 0           # said once
        3/106 1; hear 45 = 40 A                # one period after the read
        3/106 0; 3/105 0 = 0 0; poll 0 1 0 5 0; hear 200 = 50 A 100 A 150 A 200 A)");
}

TEST_F(PollsTest, TimeoutMessageGoesOutOnceWhenCommandsStayAway) {
    Talk(R"(
        3/101 2 3 b y e; hear 59; 3/100 = 0 0; hear 200 = 60 b y e
        3/100 = 0 0; hear 200 = 60 b y e  # armed again
        3/101 2 3 b y e; poll 0 1 0 5 3; hear 100 = 50 A 80 b y e 100 A; 3/106 0
        3/101 2 3 b y e; 3/101 0 1 T; idle 0 = 1; hear 300
        3/101 2 3 b y e; 3/101 5 0; idle 0 = 1; hear 300)");
}

// A host on port 1, and the polls that it sends or that come from elsewhere.
class SasTest : public SerialPortTest {
protected:
    SasTest() {
        Word("polling", [this](auto& n) { Host().SetPolling(n.at(0) != 0); });
        Word("long-poll", [this](auto& n) { Host().SendLongPoll(BytesOf(n)); });
        // Polls and answers, general ones and long ones; busy answers.
        Word("counts", [this](auto&) {
            const auto& [polls, answers, longPolls, longAnswers, busy] = Host().Seen();
            return Numbers{polls, answers, longPolls, longAnswers, busy};
        });
        Word("silence", [this](auto&) { Host().Hear({}); });
        Word("last-answer", [this](auto&) { return Host().LastAnswer(); });
        Connect();
    }
    void Connect() {
        Use({.serialLines = {SerialLine::kNone, SerialLine::kSas}});
        Talk("4/97 1 0 0 0 0x64 0xFF");
    }
    SasHost& Host() { return std::get<SasHost>(board.ports[1].Device()); }
};

TEST_F(SasTest, TheModeDecidesWhichPollsAreAnswered) {
    const std::pair<const char*, const char*> cases[] = {
        {"0 7", "counts = 1 0 1 0 0; last-answer; 4/124 = 2; 4/99 = 1 0x81 1 1 0 0x1F 0 2"},
        {"1 7", "counts = 1 1 1 0 0; last-answer = 7; 4/124 = 3; 4/99 = 1 1 0 0x1F 0 2"},
        {"2 7", "counts = 1 1 1 1 0; last-answer = 1 7; 4/124 = 1; 4/99"},
        {"2 0", "counts = 1 1 1 1 1; last-answer = 1 0; 4/124 = 1; 4/99"},
    };
    for (const auto& [mode, outcome] : cases) {
        Connect();
        Talk("4/122 1; 4/123 "s + mode + "; polling 1; +230 polling 0; long-poll 0x1F 0x02");
        Talk("+30 "s + outcome + "; 4/124 = 0; idle 1 = 1");  // a status is told once
    }
}

TEST_F(SasTest, PollsForOthersGoNowhereAndWithoutAnAddressEverythingPasses) {
    Talk(R"(
        4/123 2 5; feed 1 0x181 0x101 0x20; 4/99 = 1 0x81 1 1 0 0x20
        4/122 127; feed 1 0x181 0x101 0x20; +6 feed 1 0x41
        4/99 = 0 0x41; 4/124 = 4                       # the poll before it has ended
        feed 1 0x17F 0x20; +4 feed 1 0x21; +4 4/124 = 0; +1 4/124 = 1  # silence begins anew
        feed 1 0x17F 0x20 0x181; +6 4/124 = 4  # a poll that another cuts short has no answer)");
}

TEST_F(SasTest, AHostWaits20MsForAnAnswer) {
    Talk(R"(
        long-poll 1; +10 silence; +10 4/99 = 1 1 0 1; 4/98 0 1 0 0; +5 counts = 0 0 1 1 1
        long-poll 1; +10 silence; +11 4/99 = 1 1 0 1; 4/98 0 1 0 0; +5 counts = 0 0 2 1 1)");
}

}  // namespace
}  // namespace simulator
