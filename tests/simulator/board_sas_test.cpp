// How a board and a SAS host speak with each other.
#include "board_sas.h"

#include "model_expectations.h"
#include "sas_host.h"

namespace simulator {
namespace {

using Counts = SasHost::Counts;

// A port's receive queue, a board's side and a host, on one line.
struct Line {
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

TEST(BoardSasTest, TheModeDecidesWhichPollsAreAnswered) {
    struct Case {
        int mode, value, status;
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
        Line line;
        EXPECT_EQ(line.board.SetAddress(Bytes{1}), Accepted());
        EXPECT_EQ(line.board.SetAutoReply(
                      Bytes{static_cast<std::uint8_t>(c.mode), static_cast<std::uint8_t>(c.value)}),
                  Accepted());
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

TEST(BoardSasTest, PollsForOthersGoNowhereAndWithoutAnAddressEverythingPasses) {
    Line line;
    line.board.SetAutoReply(Bytes{2, 5});
    line.Deliver({0x181, 0x101, 0x20});
    EXPECT_EQ(line.received, (SerialWords{0x181, 0x101, 0x20}));
    EXPECT_EQ(line.Status(), 0);

    line.received.clear();
    line.board.SetAddress(Bytes{127});
    line.Deliver({0x181, 0x101, 0x20});
    line.Run(6);
    line.Deliver({0x41});
    EXPECT_EQ(line.received, SerialWords{0x41}) << "the poll before it has ended";
    EXPECT_EQ(line.Status(), 4);

    line.Deliver({0x17F, 0x20});
    line.Run(4);
    line.Deliver({0x21});
    line.Run(4);
    EXPECT_EQ(line.Status(), 0) << "the silence begins anew with each byte";
    line.Run(1);
    EXPECT_EQ(line.Status(), 1);

    line.Deliver({0x17F, 0x20, 0x181});
    line.Run(6);
    EXPECT_EQ(line.Status(), 4) << "a poll that another cuts short has no answer";

    EXPECT_EQ(line.board.SetAddress(Bytes{128}), Refused(103));
    EXPECT_EQ(line.board.SetAutoReply(Bytes{3, 0}), Refused(103));
}

TEST(BoardSasTest, AHostGoesOnWithoutAnswers) {
    SasHost host;
    host.SetAddress(9);
    host.SetPolling(true);
    SerialWords sent;
    for (int ms = 0; ms < 1000; ++ms) {
        for (const SerialWord word : host.Tick())
            sent.push_back(word);
    }
    EXPECT_EQ(sent, SerialWords(5, 0x189));
    EXPECT_EQ(host.Seen(), (Counts{5, 0, 0, 0, 0}));

    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(host.SendLongPoll(Bytes{1}));
    EXPECT_FALSE(host.SendLongPoll(Bytes{1}));
}

TEST(BoardSasTest, AHostWaits20MsForAnAnswer) {
    for (const auto& [ms, answers] : {std::pair{19, 1u}, {20, 0u}}) {
        SCOPED_TRACE(ms);
        SasHost host;
        host.SendLongPoll(Bytes{1});
        EXPECT_EQ(host.Tick(), (SerialWords{0x101, 1}));
        for (int i = 0; i < ms; ++i)
            host.Tick();
        host.Hear(SerialWords{1, 0});
        for (int i = 0; i < 5; ++i)
            host.Tick();
        EXPECT_EQ(host.Seen(), (Counts{0, 0, 1, answers, answers}));
        EXPECT_TRUE(host.IsIdle());
    }
}

}  // namespace
}  // namespace simulator
