// The serial ports: both ways of the line, the polls that a board runs by itself, and SAS.
#include <string>

#include "board_conversation.h"
#include "port/polls.h"
#include "port/sas.h"

namespace simulator {
namespace {

using Counts = SasHost::Counts;

const Bytes kEightBits = {0, 0, 0, 0, 0xD9, 1};
const Bytes kPort1EightBits = {0, 0, 0, 0, 0x64, 0xFF}, kPort1NineBits = {1, 0, 0, 0, 0x64, 0xFF};

// The first eleven bytes of a poll's record, and its messages.
Bytes Poll(Bytes record, const Bytes& first, const Bytes& second) {
    record.push_back(static_cast<std::uint8_t>(first.size()));
    record.push_back(static_cast<std::uint8_t>(second.size()));
    for (const Bytes& message : {first, second})
        record.insert(record.end(), message.begin(), message.end());
    return record;
}

class SerialPortTest : public BoardTest {
protected:
    void Feed(std::size_t port, const SerialWords& words) {
        board.Advance();
        board.ports[port].Feed(words);
    }
};

TEST_F(SerialPortTest, WordsGoBothWaysOnTheirPortAndTimestampsAreTimesOfArrival) {
    Feed(0, {9});
    EXPECT_EQ(board.ports[0].DroppedWords(), 1U) << "not configured: nobody hears it";
    Talk({{0, 3, 97, kEightBits}, {0, 4, 97, kPort1NineBits}});
    Talk({{0, 3, 98, {0x41, 0xFF}}, {0, 4, 98, {0x01, 0x80, 0xFF, 0x42}}});
    EXPECT_EQ(board.ports[0].TakeSent(), (SerialWords{0x41, 0xFF}));
    EXPECT_EQ(board.ports[1].TakeSent(), (SerialWords{0x180, 0x142}));
    EXPECT_EQ(board.ports[0].TakeSent(), SerialWords());

    Feed(0, {0x31, 0x132});
    Feed(1, {0x101, 0x02});
    Talk({{0, 3, 99, {200}, {0x31, 0x32}}, {0, 3, 99, {200}}, {0, 4, 99, {}, {1, 1, 0, 2}}});
    Wait(255);
    Feed(0, {5});
    Feed(1, {0x105});
    Wait(2);
    Feed(0, {6});
    Feed(1, {6});
    Talk({{40, 3, 102, {}, {5, 255, 6, 1}}, {0, 4, 102, {}, {1, 5, 255, 0, 6, 1}}});
    Talk({{0, 3, 102, {}, {41}}});

    board.ports[1].FeedParityErrors(65535);
    board.ports[1].FeedParityErrors(0x0103);
    Talk({{0, 4, 100, {}, {1, 2}}, {0, 4, 99}});
    Feed(1, {1});
    Talk({{0, 4, 97, kPort1EightBits}, {0, 4, 100, {}, {0, 0}}, {0, 4, 99, {}, {1}}});
    board.ports[0].Attach(SerialLine::kLoop);
    Talk({{0, 3, 98, {7, 8}}, {0, 3, 99, {0}, {7, 8}}});
}

TEST_F(SerialPortTest, OnlyAPortOfNineBitsHearsSasPolls) {
    Talk({{0, 3, 97, kEightBits}, {0, 4, 97, kPort1NineBits}});
    for (const std::uint32_t channel : {3U, 4U}) {
        Talk({{0, channel, 122, {1}}, {0, channel, 123, {1, 7}}});
        Feed(channel - 3, {0x181});
    }
    EXPECT_EQ(board.ports[0].TakeSent(), SerialWords());
    EXPECT_EQ(board.ports[1].TakeSent(), SerialWords{7});
    Talk({{0, 3, 99, {0}, {0x81}}, {0, 3, 124, {}, {0}}, {0, 4, 124, {}, {1}}});
}

TEST_F(SerialPortTest, PollsGoToTheAcceptorAndNothingOfThemToTheReceiveQueue) {
    board.ports[1].Attach(SerialLine::kCctalk);
    Talk({{0, 4, 97, kPort1EightBits}, {0, 4, 98, {2, 2, 1, 231, 0xFF, 0xFF, 22}}});
    Talk({{0, 4, 99, {}, {1, 0, 2, 0, 253}}});  // the mask is acknowledged
    // Every 50 ms, each reply, read credit as message 1.
    Talk({{0, 4, 103, Poll({3, 1, 0, 1, 1, 5, 5, 0, 0, 0, 0}, {2, 0, 1, 229, 24}, Bytes(5))}});
    std::get<CctalkAcceptor>(board.ports[1].Device()).Insert(7);
    Talk({{49, 4, 105, {3}, {0, 0}}});
    Talk({{1, 4, 105, {3}, {1, 0, 1, 11, 2, 0, 1, 7, 1, 0, 0, 0, 0, 0, 0, 0, 0, 233}}});
    Talk({{0, 4, 99}});
    board.PowerUp();
    Talk({{0, 4, 97, kPort1EightBits}, {100, 4, 105, {3}, {0, 0}}});
}

TEST_F(SerialPortTest, AnyCommandOfThePortPutsOffItsTimeoutMessage) {
    Talk({{0, 3, 97, kEightBits}, {0, 4, 97, kPort1EightBits}, {0, 3, 101, {2, 2, 0xAB, 0xCD}}});
    Talk({{59, 3, 97, kEightBits}, {59, 3, 100, {}, {0, 0}}, {59, 4, 100, {}, {0, 0}}});
    EXPECT_EQ(board.ports[0].SentWords(), 0U);
    Wait(1000);
    EXPECT_EQ(board.ports[0].TakeSent(), (SerialWords{0xAB, 0xCD})) << "once";
}

class PollsTest : public testing::Test {
protected:
    // The letters that go out in that time: "10:A" is 'A' at the tenth millisecond. Each message
    // is answered with the reply.
    std::string Sent(int milliseconds, const SerialWords& reply = {}) {
        std::string text;
        for (int n = 1; n <= milliseconds; ++n) {
            const SerialWords words = polls.Tick();
            if (words.empty()) continue;
            text += (text.empty() ? "" : " ") + std::to_string(n) + ":";
            std::ranges::copy_if(words, std::back_inserter(text), [](int c) { return c >= 'A'; });
            Hear(reply);
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
    Bytes Read(std::uint8_t slot = 0) { return polls.Read(Bytes{slot}).reply; }

    BoardPolls polls{62};
};

// Frames of the tests below: length 1 + byte 0. Message 1 is "A", message 2 is "B".
Bytes Poll(std::uint8_t slot, std::uint8_t mode, std::uint8_t option, std::uint8_t period,
           std::uint8_t timeout) {
    return Poll({slot, mode, option, 0, 0, 1, period, 0, 0, 0, timeout}, {1, 'A'}, {1, 'B'});
}

TEST_F(PollsTest, ModesDecideWhatGoesOutWhen) {
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
        {"no first",           Poll({0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0}, {}, {2, 'B'}), "", ""},
        {"no first, in turn",  Poll({0, 2, 0, 0, 0, 0, 1, 0, 0, 0, 0}, {}, {2, 'B'}),
                               "20:B 40:B", "20:B 40:B"},
        {"no second",          Poll({0, 3, 0, 0, 0, 0, 2, 0, 0, 0, 0}, {2, 'A'}, {}),
                               "20:A 40:A", "20:A 40:A"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(polls.Configure(c.payload).status, 0);
        EXPECT_EQ(polls.IsIdle(), *c.unanswered == '\0');
        EXPECT_EQ(Sent(41), c.unanswered);
        polls.Configure(c.payload);
        EXPECT_EQ(Sent(41, {1, 'x'}), c.answered);
    }
    polls.Configure(Poll(0, 3, 0, 1, 0));
    Sent(10, {0});
    polls.Delete(Bytes{0});
    EXPECT_EQ(Sent(50), "") << "message 2 went with the slot";
}

TEST_F(PollsTest, SlotsWaitForEachOthersRepliesAndTakeTurns) {
    polls.Configure(Poll(0, 1, 0, 1, 0));
    polls.Configure(Poll({2, 1, 0, 0, 0, 1, 1, 0, 0, 0, 1}, {1, 'C'}, {0}));
    EXPECT_EQ(Sent(40), "10:A 20:C 30:A 40:C") << "none answered";
    Hear({0});
    EXPECT_EQ(Sent(1), "1:A");
    polls.Delete(Bytes{0});
    EXPECT_FALSE(Hear({0})) << "nobody waits";
    EXPECT_EQ(Sent(9), "9:C");
}

TEST_F(PollsTest, OptionsDecideWhichRepliesAreKept) {
    const std::vector<std::uint8_t> all = {5, 5, 6, 5, 5};
    const std::vector<std::uint8_t> kept[] = {all, {5, 6, 5}, {5}, all, all};
    for (std::uint8_t option = 0; option <= 4; ++option) {
        SCOPED_TRACE(testing::Message() << "option " << int{option});
        polls.Delete(Bytes{1});
        polls.Configure(Poll(1, 1, option, 1, 0));
        for (const std::uint8_t reply : all)
            Sent(10, {1, reply});
        for (const std::uint8_t reply : kept[option])
            EXPECT_EQ(Read(1), (Bytes{1, 0, 1, reply}));
        EXPECT_EQ(Read(1), (Bytes{0, 0}));
    }
}

TEST_F(PollsTest, RepliesAreFramesOfTheLengthAndSumThatTheSlotNames) {
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
        Bytes message(std::max(c.lengthOffset + 1, int{c.lengthExtra}));
        message[c.lengthOffset] = static_cast<std::uint8_t>(message.size() - c.lengthExtra);
        const Answer configured = polls.Configure(Poll(
            {0, 1, 0, c.variant, c.lengthOffset, c.lengthExtra, 1, 0, 0, 0, 0}, message, message));
        EXPECT_EQ(configured.status, 0);
        Sent(10);
        EXPECT_EQ(Hear(c.heard), c.taken);
        Sent(10);
        EXPECT_EQ(Read(), c.read);
    }
}

TEST_F(PollsTest, ReplyTimeoutEndsTheWait) {
    polls.Configure(Poll(0, 1, 0, 5, 2));
    Sent(50);
    EXPECT_EQ(Read(), (Bytes{0, 0})) << "still waits";
    Sent(19);
    EXPECT_TRUE(Hear({1})) << "in time, but not all of it";
    Sent(1);
    EXPECT_FALSE(Hear({7})) << "too late";
    EXPECT_EQ(Read(), (Bytes{2, 0}));
    EXPECT_EQ(Read(), (Bytes{2, 0})) << "until a right reply";
    EXPECT_EQ(Sent(30, {1, 7}), "30:A");
    EXPECT_EQ(Read(), (Bytes{1, 0, 1, 7}));
    EXPECT_EQ(Read(), (Bytes{0, 0}));
}

TEST_F(PollsTest, MessagesQueueUpTo32AndLongOnesAreReadInParts) {
    polls.Configure(Poll(0, 1, 0, 1, 0));
    for (SerialWord n = 0; n < 34; ++n)
        Sent(10, {1, n});
    for (std::uint8_t n = 2; n < 34; ++n)
        EXPECT_EQ(Read(), (Bytes{n == 2 ? std::uint8_t{3} : std::uint8_t{1}, 0, 1, n}));
    EXPECT_EQ(Read(), (Bytes{0, 0}));

    polls.Configure(Poll(0, 1, 2, 1, 0));
    const auto part = [](Bytes start, std::size_t size) {
        start.resize(size, 7);
        return start;
    };
    for (const std::uint8_t count : {std::uint8_t{59}, std::uint8_t{120}}) {
        SerialWords reply(count + 1U, 7);
        reply[0] = count;
        Sent(10, reply);
        EXPECT_EQ(Read(), part({1, count == 59 ? std::uint8_t{0} : std::uint8_t{1}, count}, 62));
    }
    Sent(10, {1, 8});
    EXPECT_EQ(Read(), part({1, 1}, 62)) << "the latest one does not break into it";
    EXPECT_EQ(Read(), (Bytes{1, 0, 7}));
    EXPECT_EQ(Read(), (Bytes{1, 0, 1, 8}));
    Sent(10, {1, 8});
    polls.Empty(Bytes{0});
    EXPECT_EQ(Read(), (Bytes{0, 0}));
}

TEST_F(PollsTest, SlotThatNobodyReadsStopsUntilTheNextRead) {
    polls = BoardPolls(4);
    polls.Configure(Poll(0, 1, 0, 4, 1));
    polls.Configure(Poll(1, 1, 0, 8, 1));
    polls.SetHostTimeout(Bytes{0, 1});
    Sent(40, {2, 7, 8});
    polls.Configure(Poll(0, 1, 0, 4, 1));  // keeps messages and host time-out
    EXPECT_EQ(Read(0), (Bytes{1, 1, 2, 7}));
    EXPECT_EQ(Sent(200), "40:A 50:A 80:A 120:A 200:A") << "slot 0 at 40 and 80, slot 1 else";
    EXPECT_EQ(Read(0), (Bytes{1, 0, 8})) << "the message that is half read comes first";
    EXPECT_EQ(Read(0), (Bytes{4, 0}));
    EXPECT_EQ(Read(0), (Bytes{2, 0})) << "said once";
    polls.Delete(Bytes{1});
    EXPECT_EQ(Sent(45), "40:A") << "one period after the read";
    polls.Delete(Bytes{0});
    EXPECT_EQ(Read(0), (Bytes{0, 0}));
    polls.Configure(Poll(0, 1, 0, 5, 0));
    EXPECT_EQ(Sent(200), "50:A 100:A 150:A 200:A") << "no host time-out";
}

TEST_F(PollsTest, TimeoutMessageGoesOutOnceWhenCommandsStayAway) {
    const Bytes message{2, 3, 'b', 'y', 'e'};
    polls.SetTimeoutMessage(message);
    Sent(59);
    polls.OnCommand();
    EXPECT_EQ(Sent(200), "60:bye");
    polls.OnCommand();
    EXPECT_EQ(Sent(200), "60:bye") << "armed again";
    polls.SetTimeoutMessage(message);
    polls.Configure(Poll(0, 1, 0, 5, 3));
    EXPECT_EQ(Sent(100), "50:A 80:bye 100:A") << "waits as long as the poll does";
    polls.Delete(Bytes{0});
    for (const Bytes& none : {Bytes{0, 1, 'T'}, Bytes{5, 0}}) {
        polls.SetTimeoutMessage(message);
        polls.SetTimeoutMessage(none);
        EXPECT_TRUE(polls.IsIdle());
        EXPECT_EQ(Sent(300), "");
    }
}

// A port's receive queue, a board's side and a host, on one line.
struct SasLine {
    void Run(int ms) {
        for (int i = 0; i < ms; ++i) {
            Deliver(host.Tick());
            host.Hear(board.Tick());
        }
    }
    void Deliver(const SerialWords& words) {
        for (const SerialWord word : words) {
            const BoardSas::Heard heard = board.Hear(word);
            if (!heard.taken) received.push_back(word);
            host.Hear(heard.reply);
        }
    }
    int Status() { return board.ReportStatus({}).reply.at(0); }

    BoardSas board;
    SasHost host;
    SerialWords received;
};

TEST(SasTest, TheModeDecidesWhichPollsAreAnswered) {
    struct Case {
        std::uint8_t mode, value;
        int status;
        Counts counts;
        SerialWords lastAnswer, received;
    };
    const Case cases[] = {
        {0, 7, 2, {1, 0, 1, 0, 0}, {}, {0x181, 0x101, 0x1F, 0x02}},
        {1, 7, 3, {1, 1, 1, 0, 0}, {7}, {0x101, 0x1F, 0x02}},
        {2, 7, 1, {1, 1, 1, 1, 0}, {1, 7}, {}},
        {2, 0, 1, {1, 1, 1, 1, 1}, {1, 0}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.mode * 100 + c.value);
        SasLine line;
        line.board.SetAddress(Bytes{1});
        line.board.SetAutoReply(Bytes{c.mode, c.value});
        line.host.SetPolling(true);
        line.Run(230);
        line.host.SetPolling(false);
        line.host.SendLongPoll(Bytes{0x1F, 0x02});
        line.Run(30);
        EXPECT_EQ(line.host.Seen(), c.counts);
        EXPECT_EQ(line.host.LastAnswer(), c.lastAnswer);
        EXPECT_EQ(line.received, c.received);
        EXPECT_EQ(line.Status(), c.status);
        EXPECT_EQ(line.Status(), 0) << "once told, forgotten";
        EXPECT_TRUE(line.host.IsIdle() && line.board.IsIdle());
    }
}

TEST(SasTest, PollsForOthersGoNowhereAndWithoutAnAddressEverythingPasses) {
    SasLine line;
    line.board.SetAutoReply(Bytes{2, 5});
    line.Deliver({0x181, 0x101, 0x20});
    EXPECT_EQ(line.received, (SerialWords{0x181, 0x101, 0x20}));
    line.received.clear();
    line.board.SetAddress(Bytes{127});
    line.Deliver({0x181, 0x101, 0x20});
    line.Run(6);
    line.Deliver({0x41});
    EXPECT_EQ(line.received, SerialWords{0x41}) << "the poll before it has ended";
    EXPECT_EQ(line.Status(), 4);
    line.Deliver({0x17F, 0x20});
    line.Run(4);
    line.Deliver({0x21});  // the silence begins anew
    line.Run(4);
    EXPECT_EQ(line.Status(), 0);
    line.Run(1);
    EXPECT_EQ(line.Status(), 1);
    line.Deliver({0x17F, 0x20, 0x181});
    line.Run(6);
    EXPECT_EQ(line.Status(), 4) << "a poll that another cuts short has no answer";
}

TEST(SasTest, AHostWaits20MsForAnAnswer) {
    for (const auto& [ms, answers] : {std::pair{19, 1u}, {20, 0u}}) {
        SasHost host;
        host.SendLongPoll(Bytes{1});
        EXPECT_EQ(host.Tick(), (SerialWords{0x101, 1}));
        for (int i = 0; i < ms + 5; ++i) {
            if (i == ms) host.Hear(SerialWords{1, 0});
            host.Tick();
        }
        EXPECT_EQ(host.Seen(), (Counts{0, 0, 1, answers, answers})) << ms;
    }
}

}  // namespace
}  // namespace simulator
