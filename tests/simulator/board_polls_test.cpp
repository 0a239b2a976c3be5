// Polls that a board runs by itself, alone and with the devices that answer them.
#include "board_polls.h"

#include <random>
#include <string>

#include "cctalk_acceptor.h"
#include "model_expectations.h"
#include "polled_device.h"

namespace simulator {
namespace {

constexpr int kMalformed = 102;
constexpr int kOutOfRange = 103;

class BoardPollsTest : public testing::Test {
protected:
    // What goes out in that time: "10:A" is 'A' at the tenth millisecond.
    std::string Sent(int milliseconds) {
        std::string text;
        for (int n = 1; n <= milliseconds; ++n) {
            const SerialWords words = polls.Tick();
            if (!words.empty()) {
                text += (text.empty() ? "" : " ") + std::to_string(n) + ":" +
                        std::string(words.begin(), words.end());
            }
        }
        return text;
    }

    // True when a poll took all of them.
    bool Hear(const SerialWords& words) {
        bool taken = true;
        for (const SerialWord word : words)
            taken = polls.Take(word) && taken;
        return taken;
    }

    // What the device answers while no poll waits.
    template <typename Device>
    SerialWords RunWith(Device& device, int milliseconds) {
        SerialWords untaken;
        for (; milliseconds > 0; --milliseconds) {
            for (const SerialWord word : device.Hear(polls.Tick()))
                if (!polls.Take(word)) untaken.push_back(word);
            device.Tick();
        }
        return untaken;
    }

    Answer Read(std::uint8_t slot = 0) { return polls.Read(Bytes{slot}); }

    BoardPolls polls{62};
};

// Frames of the tests below: length 1 + byte 0. Message 1 is "A", message 2 is "B".
Bytes Poll(std::uint8_t slot, std::uint8_t mode, std::uint8_t option, std::uint8_t period,
           std::uint8_t timeout) {
    return {slot, mode, option, 0, 0, 1, period, 0, 0, 0, timeout, 1, 1, 'A', 'B'};
}

TEST_F(BoardPollsTest, WrongPayloadsAreRefusedAndChangeNothing) {
    struct Case {
        const char* what;
        Answer (BoardPolls::*command)(Payload);
        Bytes payload;
        int status;
    };
    Bytes longest(63, 0);
    longest[11] = longest[12] = 25;
    Bytes tooLong(64, 0);
    tooLong[11] = 26;
    tooLong[12] = 25;
    // clang-format off
    const Case cases[] = {
        {"slot 4",          &BoardPolls::Configure, Poll(4, 1, 0, 1, 0), kOutOfRange},
        {"mode 4",          &BoardPolls::Configure, Poll(0, 4, 0, 1, 0), kOutOfRange},
        {"option 5",        &BoardPolls::Configure, Poll(0, 1, 5, 1, 0), kOutOfRange},
        {"message of 26",   &BoardPolls::Configure, tooLong, kOutOfRange},
        {"byte missing",    &BoardPolls::Configure, {0, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 1, 1, 'A'}, kMalformed},
        {"byte too many",   &BoardPolls::Configure, {0, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 'A'}, kMalformed},
        {"empty 4",         &BoardPolls::Empty,  {4}, kOutOfRange},
        {"read 255",        &BoardPolls::Read,   {255}, kOutOfRange},
        {"delete 4",        &BoardPolls::Delete, {4}, kOutOfRange},
        {"host time-out 4", &BoardPolls::SetHostTimeout, {4, 1}, kOutOfRange},
        {"61 bytes",        &BoardPolls::SetTimeoutMessage, {1, 61}, kOutOfRange},
        {"message missing", &BoardPolls::SetTimeoutMessage, {1, 2, 'T'}, kMalformed},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ((polls.*c.command)(c.payload), Refused(c.status));
        EXPECT_TRUE(polls.IsIdle());
    }
    EXPECT_EQ(polls.Configure(longest), Accepted());
    EXPECT_EQ(Read(3), Accepted({0, 0})) << "never configured";
}

TEST_F(BoardPollsTest, ModesDecideWhatGoesOutWhen) {
    struct Case {
        const char* what;
        Bytes payload;
        const char *unanswered, *answered;
    };
    // clang-format off
    const Case cases[] = {
        {"off",                Poll(0, 0, 0, 1, 0), "", ""},
        {"first",              Poll(0, 1, 0, 2, 0), "20:A 40:A", "20:A 40:A"},
        {"in turn",            Poll(0, 2, 0, 1, 0), "10:A 20:B 30:A 40:B", "10:A 20:B 30:A 40:B"},
        {"second after reply", Poll(0, 3, 0, 2, 0), "20:A 40:A", "20:A 21:B 40:A 41:B"},
        {"period 0",           Poll(0, 1, 0, 0, 0), "10:A 20:A 30:A 40:A", "10:A 20:A 30:A 40:A"},
        {"waits 30 ms",        Poll(0, 1, 0, 1, 3), "10:A 40:A", "10:A 20:A 30:A 40:A"},
        {"no first",           {0, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 1, 'B'}, "", ""},
        {"no first, in turn",  {0, 2, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 1, 'B'}, "20:B 40:B", "20:B 40:B"},
        {"no second",          {0, 3, 0, 0, 0, 1, 2, 0, 0, 0, 0, 1, 0, 'A'}, "20:A 40:A", "20:A 40:A"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(polls.Configure(c.payload), Accepted());
        EXPECT_EQ(polls.IsIdle(), *c.unanswered == '\0');
        EXPECT_EQ(Sent(41), c.unanswered);

        polls.Configure(c.payload);
        std::string sent;
        for (int n = 1; n <= 41; ++n) {
            const std::string words = Sent(1);
            if (words.empty()) continue;
            sent += (sent.empty() ? "" : " ") + std::to_string(n) + words.substr(1);
            Hear({1, 'x'});
        }
        EXPECT_EQ(sent, c.answered);
    }
    polls.Configure(Poll(0, 3, 0, 1, 0));
    Sent(10);
    Hear({0});
    polls.Delete(Bytes{0});
    EXPECT_TRUE(polls.IsIdle());
    EXPECT_EQ(Sent(50), "") << "message 2 went with the slot";
}

TEST_F(BoardPollsTest, SlotsWaitForEachOthersRepliesAndTakeTurns) {
    polls.Configure(Poll(0, 1, 0, 1, 0));
    polls.Configure({Bytes{2, 1, 0, 0, 0, 1, 1, 0, 0, 0, 1, 1, 0, 'C'}});
    EXPECT_EQ(Sent(40), "10:A 20:C 30:A 40:C") << "none answered";
    Hear({0});
    EXPECT_EQ(Sent(1), "1:A");
    polls.Delete(Bytes{0});
    EXPECT_FALSE(Hear({0})) << "nobody waits";
    EXPECT_EQ(Sent(9), "9:C");
}

TEST_F(BoardPollsTest, OptionsDecideWhichRepliesAreKept) {
    const std::vector<SerialWords> replies = {{1, 5}, {1, 5}, {1, 6}, {1, 5}, {1, 5}};
    struct Case {
        std::uint8_t option;
        std::vector<Bytes> kept;
    };
    const std::vector<Bytes> all = {{1, 5}, {1, 5}, {1, 6}, {1, 5}, {1, 5}};
    const Case cases[] = {
        {0, all}, {1, {{1, 5}, {1, 6}, {1, 5}}}, {2, {{1, 5}}}, {3, all}, {4, all}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "option " << int{c.option});
        polls.Delete(Bytes{1});
        polls.Configure(Poll(1, 1, c.option, 1, 0));
        for (const SerialWords& reply : replies) {
            Sent(10);
            EXPECT_TRUE(Hear(reply));
        }
        for (const Bytes& kept : c.kept)
            EXPECT_EQ(Read(1), Accepted({1, 0, kept[0], kept[1]}));
        EXPECT_EQ(Read(1), Accepted({0, 0}));
    }
}

TEST_F(BoardPollsTest, RepliesAreFramesOfTheLengthAndSumThatTheSlotNames) {
    struct Case {
        const char* what;
        std::uint8_t variant, lengthOffset, lengthExtra;
        bool taken;
        SerialWords heard;
        Bytes read;
    };
    // clang-format off
    const Case cases[] = {
        {"ccTalk",             1, 1, 5, true, {1, 1, 2, 0, 7, 245}, {1, 0, 1, 1, 2, 0, 7, 245}},
        {"ccTalk, wrong sum",  1, 1, 5, true, {1, 1, 2, 0, 7, 246}, {2, 0}},
        {"ccTalk, unfinished", 1, 1, 5, true, {1, 1, 2, 0, 7}, {2, 0}},
        {"other sum",          0, 1, 3, true, {2, 1, 7, 4}, {1, 0, 2, 1, 7, 4}},
        {"one word more",      0, 1, 3, false, {2, 0, 2, 9}, {1, 0, 2, 0, 2}},
        {"ninth bits",         0, 0, 1, true, {0x101, 0x180}, {1, 0, 1, 0x80}},
        {"length byte last",   0, 3, 0, true, {9, 9, 9, 2}, {1, 0, 9, 9, 9, 2}},
        {"length byte alone",  0, 0, 0, true, {0}, {1, 0, 0}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        polls.Configure(
            Bytes{0, 1, 0, c.variant, c.lengthOffset, c.lengthExtra, 1, 0, 0, 0, 0, 1, 0, 'A'});
        Sent(10);
        EXPECT_EQ(Hear(c.heard), c.taken);
        Sent(10);
        EXPECT_EQ(Read(), Accepted(c.read));
    }
}

TEST_F(BoardPollsTest, ReplyTimeoutEndsTheWait) {
    polls.Configure(Poll(0, 1, 0, 5, 2));
    Sent(50);
    EXPECT_EQ(Read(), Accepted({0, 0})) << "still waits";
    Sent(19);
    EXPECT_TRUE(Hear({1})) << "in time, but not all of it";
    Sent(1);
    EXPECT_FALSE(Hear({7})) << "too late";
    EXPECT_EQ(Read(), Accepted({2, 0}));
    EXPECT_EQ(Read(), Accepted({2, 0})) << "until a right reply";
    EXPECT_EQ(Sent(30), "30:A");
    Hear({1, 7});
    EXPECT_EQ(Read(), Accepted({1, 0, 1, 7}));
    EXPECT_EQ(Read(), Accepted({0, 0}));
    EXPECT_EQ(polls.Slots()[0].missingReplies, 1u);
}

TEST_F(BoardPollsTest, OldestMessagesAreLostBeyond32) {
    polls.Configure(Poll(0, 1, 0, 1, 0));
    for (SerialWord n = 0; n < 34; ++n) {
        Sent(10);
        Hear({1, n});
    }
    EXPECT_EQ(Read(), Accepted({3, 0, 1, 2}));
    for (std::uint8_t n = 3; n < 34; ++n)
        EXPECT_EQ(Read(), Accepted({1, 0, 1, n}));
    EXPECT_EQ(Read(), Accepted({0, 0}));
}

TEST_F(BoardPollsTest, LongMessagesAreReadInParts) {
    polls.Configure(Poll(0, 1, 2, 1, 0));
    const auto brings = [&](SerialWord count, SerialWord value) {
        Sent(10);
        SerialWords reply(count + 1U, value);
        reply[0] = count;
        EXPECT_TRUE(Hear(reply));
    };
    const auto part = [](Bytes start, std::size_t size, std::uint8_t value) {
        start.resize(size, value);
        return Accepted(start);
    };
    brings(59, 7);
    EXPECT_EQ(Read(), part({1, 0, 59}, 62, 7)) << "just fits";
    brings(120, 7);
    EXPECT_EQ(Read(), part({1, 1, 120}, 62, 7));
    brings(1, 8);
    EXPECT_EQ(Read(), part({1, 1}, 62, 7)) << "the latest one does not break into it";
    EXPECT_EQ(Read(), Accepted({1, 0, 7}));
    EXPECT_EQ(Read(), Accepted({1, 0, 1, 8}));

    brings(120, 7);
    Read();
    brings(1, 8);
    EXPECT_EQ(polls.Empty(Bytes{0}), Accepted());
    EXPECT_EQ(Read(), Accepted({0, 0})) << "the rest and the next one are dropped";
}

TEST_F(BoardPollsTest, ConfigurationKeepsMessagesAndHostTimeoutAndDeletionForgetsThem) {
    polls.Configure(Poll(0, 1, 1, 5, 0));
    polls.SetHostTimeout(Bytes{0, 1});
    Sent(50);
    Hear({1, 7});
    polls.Configure(Poll(0, 1, 1, 5, 0));
    EXPECT_EQ(Sent(200), "50:A") << "stopped at 100";
    EXPECT_EQ(Read(), Accepted({4, 0}));
    EXPECT_EQ(Read(), Accepted({1, 0, 1, 7}));

    Sent(50);
    Hear({1, 7});
    EXPECT_EQ(polls.Delete(Bytes{0}), Accepted());
    EXPECT_TRUE(polls.IsIdle());
    EXPECT_EQ(Read(), Accepted({0, 0}));
    polls.Configure(Poll(0, 1, 0, 5, 0));
    EXPECT_EQ(Sent(200), "50:A 100:A 150:A 200:A") << "no host time-out";
}

TEST_F(BoardPollsTest, SlotThatNobodyReadsStopsUntilTheNextRead) {
    polls.Configure(Poll(0, 1, 0, 4, 1));
    polls.Configure(Poll(1, 1, 0, 8, 1));
    EXPECT_EQ(polls.SetHostTimeout(Bytes{0, 1}), Accepted());
    Sent(40);
    Hear({1, 7});
    Sent(20);
    EXPECT_EQ(Read(0), Accepted({1, 0, 1, 7}));
    EXPECT_EQ(Sent(200), "20:A 30:A 60:A 100:A 180:A") << "slot 0 at 20 and 60, slot 1 else";
    EXPECT_EQ(Read(1), Accepted({2, 0}));
    EXPECT_EQ(Read(0), Accepted({4, 0}));
    EXPECT_EQ(Read(0), Accepted({2, 0})) << "said once";
    EXPECT_EQ(Sent(45), "40:A") << "one period after the read";
    polls.SetHostTimeout(Bytes{0, 0});
    Sent(1000);
    EXPECT_EQ(Read(0), Accepted({2, 0}));
}

TEST_F(BoardPollsTest, StopIsToldBehindAMessageThatIsHalfRead) {
    polls = BoardPolls(4);
    polls.Configure(Poll(0, 1, 0, 4, 0));
    polls.SetHostTimeout(Bytes{0, 1});
    Sent(40);
    Hear({2, 7, 8});
    EXPECT_EQ(Read(), Accepted({1, 1, 2, 7}));
    Sent(200);
    EXPECT_TRUE(polls.IsIdle());
    EXPECT_EQ(Read(), Accepted({1, 0, 8}));
    EXPECT_EQ(Read(), Accepted({4, 0}));
    EXPECT_FALSE(polls.IsIdle());
}

TEST_F(BoardPollsTest, TimeoutMessageGoesOutOnceWhenCommandsStayAway) {
    const Bytes message{2, 3, 'b', 'y', 'e'};
    EXPECT_EQ(polls.SetTimeoutMessage(message), Accepted());
    EXPECT_FALSE(polls.IsIdle());
    Sent(59);
    polls.OnCommand();
    EXPECT_EQ(Sent(200), "60:bye");
    EXPECT_TRUE(polls.IsIdle());
    polls.OnCommand();
    EXPECT_EQ(Sent(200), "60:bye") << "armed again";

    polls.SetTimeoutMessage(message);
    polls.Configure(Poll(0, 1, 0, 5, 3));
    EXPECT_EQ(Sent(100), "50:A 80:bye 100:A") << "waits as long as the poll does";
    EXPECT_FALSE(polls.MessageOnTimeout().IsArmed());
    polls.Delete(Bytes{0});

    for (const Bytes& none : {Bytes{0, 1, 'T'}, Bytes{5, 0}}) {
        polls.SetTimeoutMessage(message);
        EXPECT_EQ(polls.SetTimeoutMessage(none), Accepted());
        EXPECT_TRUE(polls.IsIdle());
        EXPECT_EQ(Sent(300), "");
    }
}

TEST_F(BoardPollsTest, PollsAnAcceptorAndAPolledDevice) {
    CctalkAcceptor acceptor;
    acceptor.Hear(SerialWords{2, 2, 1, 231, 0xFF, 0xFF, 22});
    // clang-format off
    polls.Configure(Bytes{0, 1, 1, 1, 1, 5, 2, 0, 0, 0, 1, 5, 0, 2, 0, 1, 229, 24});
    // clang-format on
    EXPECT_EQ(RunWith(acceptor, 100), SerialWords{});
    acceptor.Insert(3);
    RunWith(acceptor, 100);
    EXPECT_EQ(Read(), Accepted({1, 0, 1, 11, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 242}));
    EXPECT_EQ(Read(), Accepted({1, 0, 1, 11, 2, 0, 1, 3, 1, 0, 0, 0, 0, 0, 0, 0, 0, 237}));
    EXPECT_EQ(Read(), Accepted({0, 0})) << "changes only";
    acceptor.Mute(true);
    RunWith(acceptor, 100);
    EXPECT_EQ(Read(), Accepted({2, 0}));

    PolledDevice device;
    device.Queue(Bytes{0x41});
    device.Queue(Bytes{0x42});
    polls.Configure(Bytes{0, 3, 0, 0, 1, 3, 2, 0, 0, 0, 0, 3, 3, 2, 0, 2, 2, 0, 2});
    EXPECT_EQ(RunWith(device, 21), SerialWords{});
    EXPECT_EQ(Read(), Accepted({1, 0, 2, 1, 0x41, 0x42}));
    EXPECT_EQ(Read(), Accepted({1, 0, 2, 1, 0x42, 0x41})) << "answer to message 2";
}

TEST(BoardPollsRandomTest, HostilePayloadsAndRepliesAreSurvived) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    using Command = Answer (BoardPolls::*)(Payload);
    const Command commands[] = {&BoardPolls::Configure,         &BoardPolls::Read,
                                &BoardPolls::SetTimeoutMessage, &BoardPolls::Empty,
                                &BoardPolls::SetHostTimeout,    &BoardPolls::Delete};
    BoardPolls polls(62);
    for (int n = 0; n < 20'000; ++n) {
        Bytes payload(13 + random() % 51);
        for (std::uint8_t& byte : payload)
            byte = static_cast<std::uint8_t>(random() % 4 == 0 ? random() : random() % 5);
        if (random() % 2 == 0) payload.resize(13U + payload[11] + payload[12]);
        const Answer answer = (polls.*commands[random() % 6])(payload);
        EXPECT_LE(answer.reply.size(), 62u);
        for (int tick = 0; tick < 20; ++tick) {
            EXPECT_LE(polls.Tick().size(), 60u);
            polls.Take(static_cast<SerialWord>(random()));
        }
    }
    for (std::uint8_t slot = 0; slot < 4; ++slot) {
        polls.Delete(Bytes{slot});
        EXPECT_EQ(polls.Read(Bytes{slot}), Accepted({0, 0}));
    }
    polls.SetTimeoutMessage(Bytes{0, 0});
    EXPECT_TRUE(polls.IsIdle());
}

}  // namespace
}  // namespace simulator
