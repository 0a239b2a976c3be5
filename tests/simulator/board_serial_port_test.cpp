// The serial ports: configuration, both ways of the line, timestamps and parity errors.
#include "model_expectations.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr int kMalformed = 102, kOutOfRange = 103, kNotConfigured = 106;

const Bytes kEightBits = {0, 0, 0, 0, 0xD9, 1};
const Bytes kNineBits = {1, 0, 0, 0, 0xD9, 1};

class BoardSerialPortTest : public testing::Test {
protected:
    Answer Send(std::uint8_t command, std::uint32_t channel, const Bytes& payload = {}) {
        return board.Handle(command, channel, payload);
    }
    void Feed(std::size_t port, const SerialWords& words) {
        board.Advance();
        board.ports[port].Feed(words);
    }

    Moment now{milliseconds(1'700'000'000'000)};  // 0 modulo 256
    Board board{{.time = [this] { return now; }}};
};

TEST_F(BoardSerialPortTest, RefusesWhatThePortDoesNotKnow) {
    struct Case {
        const char* what;
        bool configured;
        std::uint8_t command;
        std::uint32_t channel;
        int status;
        Bytes payload;
    };
    const Case cases[] = {
        {"type 4", false, 97, 3, kOutOfRange, {4, 0, 0, 0, 0, 0}},
        {"parity code 4", false, 97, 4, kOutOfRange, {0, 4, 0, 0, 0, 0}},
        {"configuration cut", false, 97, 3, kMalformed, {0, 0, 0, 0, 0}},
        {"send", false, 98, 3, kNotConfigured, {1}},
        {"receive", false, 99, 4, kNotConfigured, {}},
        {"parity errors", false, 100, 3, kNotConfigured, {}},
        {"timestamps", false, 102, 4, kNotConfigured, {}},
        {"time-out message", false, 101, 3, kNotConfigured, {1, 1, 7}},
        {"read a poll", false, 105, 4, kNotConfigured, {0}},
        {"SAS address", false, 122, 3, kNotConfigured, {1}},
        {"poll without its messages' lengths", true, 103, 3, kMalformed, Bytes(12, 0)},
        {"two bytes to empty a slot", true, 104, 3, kMalformed, {0, 0}},
        {"index 4", true, 106, 4, kOutOfRange, {4}},
        {"host time-out of index 4", true, 121, 4, kOutOfRange, {4, 1}},
        {"SAS mode without a value", true, 123, 3, kMalformed, {1}},
        {"SAS status with something", true, 124, 3, kMalformed, {0}},
        {"nothing to send", true, 98, 4, kMalformed, {}},
        {"half a word", true, 98, 3, kMalformed, {0, 1, 0}},
        {"receive without its number", true, 99, 3, kMalformed, {}},
        {"a number on port 1", true, 99, 4, kMalformed, {0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        board.PowerUp();
        if (c.configured) {
            EXPECT_EQ(Send(97, 3, kNineBits), Accepted());
            EXPECT_EQ(Send(97, 4, kEightBits), Accepted());
        }
        EXPECT_EQ(Send(c.command, c.channel, c.payload), Refused(c.status));
    }
}

TEST_F(BoardSerialPortTest, WordsGoBothWaysOnThePortTheyAreMeantFor) {
    Feed(0, {9});
    EXPECT_EQ(board.ports[0].DroppedWords(), 1U) << "not configured: nobody hears it";
    Send(97, 3, kEightBits);
    Send(97, 4, kNineBits);
    EXPECT_EQ(Send(98, 3, {0x41, 0xFF}), Accepted());
    EXPECT_EQ(Send(98, 4, {0x01, 0x80, 0xFF, 0x42}), Accepted());
    EXPECT_EQ(board.ports[0].TakeSent(), (SerialWords{0x41, 0xFF}));
    EXPECT_EQ(board.ports[1].TakeSent(), (SerialWords{0x180, 0x142}));
    EXPECT_EQ(board.ports[0].TakeSent(), SerialWords());

    Feed(0, {0x31, 0x132});
    Feed(1, {0x101, 0x02});
    EXPECT_EQ(Send(99, 3, {200}), Accepted({0x31, 0x32}));
    EXPECT_EQ(Send(99, 3, {200}), Accepted());
    EXPECT_EQ(Send(99, 4), Accepted({1, 1, 0, 2}));

    board.ports[0].Attach(SerialLine::kLoop);
    Send(98, 3, {7, 8});
    EXPECT_EQ(Send(99, 3, {0}), Accepted({7, 8}));
    EXPECT_EQ(board.ports[0].SentWords(), 0U);
}

TEST_F(BoardSerialPortTest, RepliesHoldAsMuchAsOneTransferInWholeWordsAndRecords) {
    struct Case {
        Model model;
        int speedMbit;
        Bytes type;
        std::size_t plain, timestamped;
    };
    const Case cases[] = {
        {Model::kK40, 480, kEightBits, 62, 62},  {Model::kK40, 12, kNineBits, 62, 60},
        {Model::kK44, 12, kEightBits, 60, 60},   {Model::kK44, 480, kEightBits, 252, 252},
        {Model::kK50, 480, kNineBits, 252, 252},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << static_cast<int>(c.model) << " at " << c.speedMbit);
        Board one({.model = c.model, .speedMbit = c.speedMbit});
        one.Handle(97, 4, c.type);
        one.ports[1].Feed(SerialWords(600, 0x55));
        EXPECT_EQ(one.Handle(99, 4, {}).reply.size(), c.plain);
        EXPECT_EQ(one.Handle(102, 4, {}).reply.size(), c.timestamped);
    }
}

TEST_F(BoardSerialPortTest, TimestampsAreTheTimesOfArrival) {
    Send(97, 3, kEightBits);
    Send(97, 4, kNineBits);
    now += milliseconds(255);
    Feed(0, {5});
    Feed(1, {0x105});
    now += milliseconds(2);
    Feed(0, {6});
    Feed(1, {6});
    now += milliseconds(40);
    EXPECT_EQ(Send(102, 3), Accepted({5, 255, 6, 1}));
    EXPECT_EQ(Send(102, 4), Accepted({1, 5, 255, 0, 6, 1}));
    EXPECT_EQ(Send(102, 3), Accepted({41}));
}

TEST_F(BoardSerialPortTest, ParityErrorsAreCountedFromTheConfigurationOn) {
    BoardSerialPort& port = board.ports[1];
    port.FeedParityErrors(3);
    Send(97, 4, kEightBits);
    port.FeedParityErrors(65535);
    port.FeedParityErrors(0x0103);
    EXPECT_EQ(Send(100, 4), Accepted({1, 2}));
    EXPECT_EQ(Send(99, 4), Accepted()) << "words with errors are dropped";
    Feed(1, {1});
    Send(97, 4, kEightBits);
    EXPECT_EQ(Send(100, 4), Accepted({0, 0}));
    EXPECT_EQ(Send(99, 4), Accepted({1}));
}

TEST_F(BoardSerialPortTest, QueuesKeepTheLatestAndPowerUpForgets) {
    BoardSerialPort& port = board.ports[0];
    Send(97, 3, kEightBits);
    SerialWords words(65538, 1);
    words.back() = 2;
    port.Feed(words);
    EXPECT_EQ(port.ReceivedWords(), 65536U);
    EXPECT_EQ(port.DroppedWords(), 2U);
    Send(98, 3, {3});
    board.PowerDown();
    port.Feed(words);
    board.PowerUp();
    EXPECT_EQ(Send(99, 3, {0}), Refused(kNotConfigured));
    Send(97, 3, kEightBits);
    EXPECT_EQ(Send(99, 3, {0}), Accepted());
    EXPECT_EQ(port.TakeSent(), SerialWords());
    EXPECT_EQ(port.DroppedWords(), 0U);
}

TEST_F(BoardSerialPortTest, PollsGoToTheAcceptorAndNothingOfThemToTheReceiveQueue) {
    board.ports[1].Attach(SerialLine::kCctalk);
    Send(97, 4, kEightBits);
    Send(98, 4, {2, 2, 1, 231, 0xFF, 0xFF, 22});
    EXPECT_EQ(Send(99, 4), Accepted({1, 0, 2, 0, 253})) << "the mask is acknowledged";
    // Every 50 ms, each reply, read credit as message 1.
    EXPECT_EQ(Send(103, 4, {3, 1, 0, 1, 1, 5, 5, 0, 0, 0, 0, 5, 0, 2, 0, 1, 229, 24}), Accepted());
    std::get<CctalkAcceptor>(board.ports[1].Device()).Insert(7);
    now += milliseconds(49);
    EXPECT_EQ(Send(105, 4, {3}), Accepted({0, 0}));
    now += milliseconds(1);
    EXPECT_EQ(Send(105, 4, {3}),
              Accepted({1, 0, 1, 11, 2, 0, 1, 7, 1, 0, 0, 0, 0, 0, 0, 0, 0, 233}));
    EXPECT_EQ(Send(99, 4), Accepted());
    board.PowerDown();
    now += milliseconds(100);
    board.PowerUp();
    Send(97, 4, kEightBits);
    now += milliseconds(100);
    EXPECT_EQ(Send(105, 4, {3}), Accepted({0, 0})) << "polls are forgotten";
}

TEST_F(BoardSerialPortTest, AnyCommandOfThePortPutsOffItsTimeoutMessage) {
    Send(97, 3, kEightBits);
    Send(97, 4, kEightBits);
    Send(101, 3, {2, 2, 0xAB, 0xCD});  // after 60 ms
    for (const std::uint8_t command : Bytes{97, 100}) {
        now += milliseconds(59);
        Send(command, 3, command == 97 ? kEightBits : Bytes());
    }
    now += milliseconds(59);
    Send(100, 4);
    EXPECT_EQ(board.ports[0].SentWords(), 0U);
    now += milliseconds(1000);
    board.Advance();
    EXPECT_EQ(board.ports[0].TakeSent(), (SerialWords{0xAB, 0xCD})) << "once";
}

TEST_F(BoardSerialPortTest, SasPollsAreAnsweredOrReceived) {
    board.ports[0].Attach(SerialLine::kSas);
    auto& host = std::get<SasHost>(board.ports[0].Device());
    Send(97, 3, kNineBits);
    EXPECT_EQ(Send(122, 3, {5}), Accepted());
    EXPECT_EQ(Send(123, 3, {1, 0x1F}), Accepted());
    host.SetAddress(5);
    host.SendLongPoll(Bytes{0x2F, 0x03});
    host.SetPolling(true);
    now += milliseconds(300);
    EXPECT_EQ(Send(99, 3, {0}), Accepted({1, 5, 0, 0x2F, 0, 3})) << "the long poll is the host's";
    EXPECT_EQ(Send(124, 3), Accepted({3}));
    EXPECT_EQ(host.Seen(),
              (SasHost::Counts{.generalPolls = 1, .generalAnswers = 1, .longPolls = 1}));
    EXPECT_EQ(host.LastAnswer(), SerialWords{0x1F});
    Send(123, 3, {2, 0});
    host.SetPolling(false);
    host.SendLongPoll(Bytes{0x10});
    now += milliseconds(300);
    board.Advance();
    EXPECT_EQ(host.Seen().busyAnswers, 1U);

    Board old({.model = Model::kK40});
    old.Handle(97, 3, kNineBits);
    EXPECT_EQ(old.Handle(122, 3, Bytes{5}), Refused(100));
    Board newer({.model = Model::kK44});
    EXPECT_EQ(newer.Handle(124, 4, {}), Refused(kNotConfigured)) << "not the hopper's 124";
}

}  // namespace
}  // namespace simulator
