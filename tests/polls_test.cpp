/**
 * @file polls_test.cpp
 * @brief Polled messages: both forms of configuration, times and their rounding, and checks.
 */
#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>

#include "serial_test.h"

namespace {

/** A message of 25 bytes that count from `first`, but for the one that tells its length. */
template <std::size_t kRoom>
void FillMessage(unsigned char (&message)[kRoom], int first, std::size_t lengthAt, int length) {
    for (std::size_t i = 0; i < kRoom; ++i)
        message[i] = static_cast<unsigned char>(first + static_cast<int>(i));
    if (lengthAt < kRoom) message[lengthAt] = static_cast<unsigned char>(length);
}

/** Data bytes 2 and 0: messages of 7 and 5 bytes. */
CCTalkConfig CcTalk() {
    CCTalkConfig config = {};
    config.Index = 3;
    config.Mode = 2;
    config.Option = 4;
    config.Param = 0x77;
    config.TimeMs = 250;
    config.Word = 0x1234;
    config.Byte = 0x56;
    FillMessage(config.Message1, 10, 1, 2);
    FillMessage(config.Message2, 100, 1, 0);
    return config;
}

/** Lengths at offset 2: messages of 3 + 4 and 1 + 4 bytes. */
RS232PollConfig Rs232() {
    RS232PollConfig config = {};
    config.Index = 1;
    config.Mode = 3;
    config.Option = 0;
    config.Param = 0x88;
    config.TimeMs = 19;
    config.Variant = 0x99;
    config.LengthOffset = 2;
    config.LengthExtra = 4;
    config.Word = 0xFE01;
    config.Byte = 0xAA;
    FillMessage(config.Message1, 10, 2, 3);
    FillMessage(config.Message2, 100, 2, 1);
    return config;
}

unsigned char someBytes[256];
unsigned long someLength;
unsigned someStatus;
CCTalkConfig someCcTalk;
RS232PollConfig someRs232;

class PollsTest : public SerialTest {
protected:
    PollsTest() {
        someCcTalk = CcTalk();
        someRs232 = Rs232();
    }

    // clang-format off
    const std::vector<PortOperation> operations = {
        {"ConfigureCCTalkPort",    [this](auto port) { return board.ConfigureCCTalkPort(port, &someCcTalk); },
                                   [this](auto port) { return board.ConfigureCCTalkPort(port, nullptr); }},
        {"ConfigureRS232Poll",     [this](auto port) { return board.ConfigureRS232Poll(port, &someRs232); },
                                   [this](auto port) { return board.ConfigureRS232Poll(port, nullptr); }},
        {"SetTimeoutMessage",      [this](auto port) { return board.SetTimeoutMessage(port, someBytes, 3, 1); },
                                   [this](auto port) { return board.SetTimeoutMessage(port, nullptr, 0, 1); }},
        {"SetPolledHostTimeout",   [this](auto port) { return board.SetPolledHostTimeout(port, 3, 1); }},
        {"EmptyPolledBuffer",      [this](auto port) { return board.EmptyPolledBuffer(port, 3); }},
        {"DeletePolledMessage",    [this](auto port) { return board.DeletePolledMessage(port, 3); }},
        {"ReceivePolledMessage",   [this](auto port) { return board.ReceivePolledMessage(port, 3, someBytes, &someLength, &someStatus); },
                                   [this](auto port) { return board.ReceivePolledMessage(port, 4, nullptr, &someLength, &someStatus); }},
        {"its length",             [this](auto port) { return board.ReceivePolledMessage(port, 3, someBytes, &someLength, &someStatus); },
                                   [this](auto port) { return board.ReceivePolledMessage(port, 4, someBytes, nullptr, &someStatus); }},
        {"its status",             [this](auto port) { return board.ReceivePolledMessage(port, 3, someBytes, &someLength, &someStatus); },
                                   [this](auto port) { return board.ReceivePolledMessage(port, 4, someBytes, &someLength, nullptr); }},
        {"ReceivePolledMessageEx", [this](auto port) { return board.ReceivePolledMessageEx(port, 3, someBytes, 0, &someLength, &someStatus); },
                                   [this](auto port) { return board.ReceivePolledMessageEx(port, 4, nullptr, 0, &someLength, &someStatus); }},
        {"its length",             [this](auto port) { return board.ReceivePolledMessageEx(port, 3, someBytes, 0, &someLength, &someStatus); },
                                   [this](auto port) { return board.ReceivePolledMessageEx(port, 4, someBytes, 0, nullptr, &someStatus); }},
        {"its status",             [this](auto port) { return board.ReceivePolledMessageEx(port, 3, someBytes, 0, &someLength, &someStatus); },
                                   [this](auto port) { return board.ReceivePolledMessageEx(port, 4, someBytes, 0, &someLength, nullptr); }},
    };
    // clang-format on
};

TEST_F(PollsTest, PointersThenPortThenConfiguration) {
    ExpectPortChecks(operations);
}

TEST_F(PollsTest, ARefusalIsPassedOn) {
    ExpectStatusPassedOn(operations);
}

TEST_F(PollsTest, BothFormsSendThirteenBytesAndTheirMessages) {
    // clang-format off
    const Bytes ccTalk = {3, 2, 4,  1, 1, 5,  25, 0x12, 0x34, 0x56, 0x77,  7, 5,
                          10, 2, 12, 13, 14, 15, 16,  100, 0, 102, 103, 104};
    const Bytes rs232 = {1, 3, 0,  0x99, 2, 4,  1, 0xFE, 0x01, 0xAA, 0x88,  7, 5,
                         10, 11, 3, 13, 14, 15, 16,  100, 101, 1, 103, 104};
    // clang-format on
    for (const Model model : kModels) {
        OpenConfigured(model);
        Expect({
            // clang-format off
            {"ccTalk, port 0", [this] { return board.ConfigureCCTalkPort(kPort0, &someCcTalk); }, 1, 0, {{103, 3, ccTalk}}},
            {"ccTalk, port 1", [this] { return board.ConfigureCCTalkPort(kPort1, &someCcTalk); }, 1, 0, {{103, 4, ccTalk}}},
            {"RS232, port 0",  [this] { return board.ConfigureRS232Poll(kPort0, &someRs232); },   1, 0, {{103, 3, rs232}}},
            {"RS232, port 1",  [this] { return board.ConfigureRS232Poll(kPort1, &someRs232); },   1, 0, {{103, 4, rs232}}},
            // clang-format on
        });
    }
}

TEST_F(PollsTest, CcTalkRangesAreCheckedAfterThePort) {
    struct Case {
        const char* what;
        void (*change)(CCTalkConfig&);
        int error;
        std::size_t length;  // of the request
    };
    const Case cases[] = {
        // clang-format off
        {"message 1 of 25 bytes", [](CCTalkConfig& c) { c.Message1[1] = 20; },  0, 13 + 25 + 5},
        {"message 2 of 25 bytes", [](CCTalkConfig& c) { c.Message2[1] = 20; },  0, 13 + 7 + 25},
        {"both of 25 bytes",      [](CCTalkConfig& c) { c.Message1[1] = c.Message2[1] = 20; }, 0, 63},
        {"message 1 of 26 bytes", [](CCTalkConfig& c) { c.Message1[1] = 21; },  8, 0},
        {"message 2 of 26 bytes", [](CCTalkConfig& c) { c.Message2[1] = 21; },  8, 0},
        {"8-bit sum is 0",        [](CCTalkConfig& c) { c.Message1[1] = 251; }, 8, 0},
        {"8-bit sum is 4",        [](CCTalkConfig& c) { c.Message2[1] = 255; }, 8, 0},
        {"index",                 [](CCTalkConfig& c) { c.Index = 4; },         8, 0},
        {"mode",                  [](CCTalkConfig& c) { c.Mode = 4; },          8, 0},
        {"mode, low byte 0",      [](CCTalkConfig& c) { c.Mode = 256; },        8, 0},
        {"mode, largest",         [](CCTalkConfig& c) { c.Mode = 0xFFFFFFFF; }, 8, 0},
        {"option",                [](CCTalkConfig& c) { c.Option = 5; },        8, 0},
        {"zeroes",                [](CCTalkConfig& c) { c.Index = 0; c.Mode = 0; c.Option = 0; }, 0, 13 + 7 + 5},
        // clang-format on
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        OpenConfigured(Model::kK44);
        CCTalkConfig config = CcTalk();
        config.TimeMs = 9999;
        c.change(config);
        EXPECT_EQ(board.ConfigureCCTalkPort(kPort0, &config), c.error == 0);
        EXPECT_EQ(board.GetLastError(), c.error);
        ASSERT_EQ(driver.Sent().size(), c.error == 0 ? 1U : 0U);
        if (c.error == 0) {
            EXPECT_EQ(driver.Sent()[0].payload.size(), c.length);
        }
        EXPECT_EQ(config.TimeMs, c.error == 0 ? 2550 : 9999) << "a refusal changes nothing";
    }
    Open(Model::kK44);
    CCTalkConfig wrong = CcTalk();
    wrong.Index = 4;
    EXPECT_EQ(board.ConfigureCCTalkPort(kPort0, &wrong), 0);
    EXPECT_EQ(board.GetLastError(), 38) << "configuration before ranges";
}

TEST_F(PollsTest, Rs232MessagesAreAsLongAsTheirFramingSays) {
    struct Case {
        const char* what;
        unsigned char offset, extra, length1, length2;
        int error;
        std::size_t request;
    };
    const Case cases[] = {
        // clang-format off
        {"none",                 0,   0,   0,   0,   0, 13},
        {"only the second",      24,  0,   0,   25,  0, 13 + 25},
        {"last offset",          24,  5,   20,  20,  0, 63},
        {"offset behind it",     25,  0,   0,   0,   8, 0},
        {"far behind it",        255, 0,   0,   0,   8, 0},
        {"message 1 of 26",      2,   6,   20,  0,   8, 0},
        {"message 2 of 26",      2,   6,   0,   20,  8, 0},
        {"extra alone of 26",    2,   26,  0,   0,   8, 0},
        {"8-bit sum is 0",       2,   255, 1,   1,   8, 0},
        {"8-bit sum is 25",      2,   200, 81,  81,  8, 0},
        // clang-format on
    };
    OpenConfigured(Model::kK40);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        StartAfresh();
        RS232PollConfig config = Rs232();
        config.LengthOffset = c.offset;
        config.LengthExtra = c.extra;
        FillMessage(config.Message1, 10, c.offset, c.length1);
        FillMessage(config.Message2, 100, c.offset, c.length2);
        EXPECT_EQ(board.ConfigureRS232Poll(kPort0, &config), c.error == 0);
        EXPECT_EQ(board.GetLastError(), c.error);
        ASSERT_EQ(driver.Sent().size(), c.error == 0 ? 1U : 0U);
        if (c.error == 0) {
            EXPECT_EQ(driver.Sent()[0].payload.size(), c.request);
        }
    }
    for (void (*change)(RS232PollConfig&) :
         {+[](RS232PollConfig& c) { c.Index = 4; }, +[](RS232PollConfig& c) { c.Mode = 4; },
          +[](RS232PollConfig& c) { c.Option = 5; }}) {
        RS232PollConfig config = Rs232();
        change(config);
        StartAfresh();
        EXPECT_EQ(board.ConfigureRS232Poll(kPort0, &config), 0);
        EXPECT_EQ(board.GetLastError(), 8);
        EXPECT_EQ(driver.Sent(), Exchanges());
    }
}

TEST_F(PollsTest, TheTimeIsSentInTensAndCutInTheCallersRecord) {
    struct Case {
        int timeMs, sent, kept;
    };
    const Case cases[] = {
        // clang-format off
        {0, 0, 0},       {9, 0, 9},        {10, 1, 10},      {19, 1, 19},   {2549, 254, 2549},
        {2550, 255, 2550}, {2551, 255, 2550}, {2555, 255, 2550}, {INT_MAX, 255, 2550},
        {-1, 0, -1},     {-9, 0, -9},      {-10, 255, -10},  {-19, 255, -19}, {-2560, 0, -2560},
        {INT_MIN, 0x34, INT_MIN},
        // clang-format on
    };
    OpenConfigured(Model::kK44);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.timeMs);
        for (const int status : {0, 9}) {  // also when the board then refuses
            CCTalkConfig ccTalk = CcTalk();
            RS232PollConfig rs232 = Rs232();
            ccTalk.TimeMs = rs232.TimeMs = c.timeMs;
            StartAfresh();
            driver.AnswerNext({.status = status});
            EXPECT_EQ(board.ConfigureCCTalkPort(kPort0, &ccTalk), status == 0);
            driver.AnswerNext({.status = status});
            EXPECT_EQ(board.ConfigureRS232Poll(kPort0, &rs232), status == 0);
            ASSERT_EQ(driver.Sent().size(), 2U);
            EXPECT_EQ(driver.Sent()[0].payload[6], c.sent);
            EXPECT_EQ(driver.Sent()[1].payload[6], c.sent);
            EXPECT_EQ(ccTalk.TimeMs, c.kept);
            EXPECT_EQ(rs232.TimeMs, c.kept);
        }
    }
    CCTalkConfig ccTalk = CcTalk();
    ccTalk.TimeMs = 9999;
    EXPECT_EQ(board.ConfigureCCTalkPort(static_cast<_usbSerialPort>(2), &ccTalk), 0);
    EXPECT_EQ(ccTalk.TimeMs, 9999) << "a port that there is not changes nothing";
}

TEST_F(PollsTest, ATimeoutMessageGoesOutWithItsTimeInUnitsOf30Ms) {
    struct Case {
        float seconds;
        int units;  // -1: refused
    };
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const Case cases[] = {
        // clang-format off
        {0.0F, 0},    {-0.0F, 0},    {0.029F, 0},  {0.03F, 0},   {0.031F, 1}, {0.06F, 1}, {0.061F, 2},
        {7.64F, 254}, {7.6499996F, 254},
        {7.65F, -1},  {7.66F, -1},   {-0.001F, -1}, {-1e-45F, -1}, {1e30F, -1}, {kInfinity, -1},
        {-kInfinity, -1}, {NAN, -1}, {-NAN, -1},
        // clang-format on
    };
    OpenConfigured(Model::kK44);
    unsigned char message[] = {7, 8, 9};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.seconds);
        StartAfresh();
        EXPECT_EQ(board.SetTimeoutMessage(kPort1, message, 3, c.seconds), c.units >= 0);
        EXPECT_EQ(board.GetLastError(), c.units >= 0 ? 0 : 8);
        Exchanges sent;
        if (c.units >= 0) sent = {{101, 4, {static_cast<std::uint8_t>(c.units), 3, 7, 8, 9}}};
        EXPECT_EQ(driver.Sent(), sent);
    }
}

TEST_F(PollsTest, ATimeoutMessageIsCheckedForLengthTimePointerAndPort) {
    Open(Model::kK44);
    AcceptEverything();
    constexpr auto kNoPort = static_cast<_usbSerialPort>(2);
    Expect({
        // clang-format off
        {"length first",  [this] { return board.SetTimeoutMessage(kNoPort, nullptr, 61, -1); },  0, 7,  {}},
        {"then the time", [this] { return board.SetTimeoutMessage(kNoPort, nullptr, 60, -1); },  0, 8,  {}},
        {"pointer",       [this] { return board.SetTimeoutMessage(kNoPort, nullptr, 60, 1); },   0, 30, {}},
        {"port",          [this] { return board.SetTimeoutMessage(kNoPort, someBytes, 60, 1); }, 0, 8,  {}},
        {"configuration", [this] { return board.SetTimeoutMessage(kPort0, someBytes, 60, 1); },  0, 38, {}},
        // clang-format on
    });
    OpenConfigured(Model::kK40);
    std::fill_n(someBytes, 60, static_cast<unsigned char>(5));
    Bytes longest = {33, 60};
    longest.insert(longest.end(), 60, 5);
    Expect({
        // clang-format off
        {"longest", [this] { return board.SetTimeoutMessage(kPort0, someBytes, 60, 1); }, 1, 0, {{101, 3, longest}}},
        {"empty",   [this] { return board.SetTimeoutMessage(kPort0, someBytes, 0, 1); },  1, 0, {{101, 3, {33, 0}}}},
        // clang-format on
    });
}

TEST_F(PollsTest, AHostTimeoutGoesOutInTenths) {
    struct Case {
        double seconds;
        int units;  // -1: refused
    };
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const Case cases[] = {
        // clang-format off
        {0, 0},       {-0.0, 0},      {0.09, 0},     {0.1, 1},   {0.29, 2},   {25.4999, 254}, {25.5, 255},
        {25.500001, -1}, {26, -1},    {-0.0001, -1}, {-5e-324, -1}, {1e300, -1}, {kInfinity, -1},
        {-kInfinity, -1}, {NAN, -1},
        // clang-format on
    };
    OpenConfigured(Model::kK50);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.seconds);
        StartAfresh();
        EXPECT_EQ(board.SetPolledHostTimeout(kPort0, 2, c.seconds), c.units >= 0);
        EXPECT_EQ(board.GetLastError(), c.units >= 0 ? 0 : 8);
        Exchanges sent;
        if (c.units >= 0) sent = {{121, 3, {2, static_cast<std::uint8_t>(c.units)}}};
        EXPECT_EQ(driver.Sent(), sent);
    }
}

TEST_F(PollsTest, IndexRequestsCheckTheIndexBeforeTheConfiguration) {
    Open(Model::kK44);
    Expect({
        // clang-format off
        {"time-out", [this] { return board.SetPolledHostTimeout(kPort0, 4, 1); }, 0, 8, {}},
        {"empty",    [this] { return board.EmptyPolledBuffer(kPort0, 4); },       0, 8, {}},
        {"delete",   [this] { return board.DeletePolledMessage(kPort0, 255); },   0, 8, {}},
        {"receive",  [this] { return board.ReceivePolledMessage(kPort0, 4, someBytes, &someLength, &someStatus); }, 0, 8, {}},
        {"bounded",  [this] { return board.ReceivePolledMessageEx(kPort0, 4, someBytes, 9, &someLength, &someStatus); }, 0, 8, {}},
        // clang-format on
    });
    for (const Model model : kModels) {
        OpenConfigured(model);
        Expect({
            // clang-format off
            {"time-out", [this] { return board.SetPolledHostTimeout(kPort1, 3, 1); }, 1, 0, {{121, 4, {3, 10}}}},
            {"empty",    [this] { return board.EmptyPolledBuffer(kPort0, 3); },       1, 0, {{104, 3, {3}}}},
            {"empty",    [this] { return board.EmptyPolledBuffer(kPort1, 0); },       1, 0, {{104, 4, {0}}}},
            {"delete",   [this] { return board.DeletePolledMessage(kPort0, 3); },     1, 0, {{106, 3, {3}}}},
            {"delete",   [this] { return board.DeletePolledMessage(kPort1, 0); },     1, 0, {{106, 4, {0}}}},
            // clang-format on
        });
    }
}

}  // namespace
