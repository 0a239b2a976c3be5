/**
 * @file polls_test.cpp
 * @brief Polled messages: configuration, times and their rounding, and reading in several replies.
 */
#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>

#include "board_test.h"

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::uint8_t kGuard = 0xEE;

/** Counts from `first`, but for the byte that tells the length. */
void FillMessage(unsigned char (&message)[25], int first, std::size_t lengthAt, int length) {
    for (int i = 0; i < 25; ++i)
        message[i] = static_cast<unsigned char>(first + i);
    if (lengthAt < 25) message[lengthAt] = static_cast<unsigned char>(length);
}

/** Data bytes 2 and 0: messages of 7 and 5 bytes. */
CCTalkConfig CcTalk() {
    CCTalkConfig config = {};
    config.Index = 3;
    config.Mode = 2;
    config.Option = 4;
    config.Param = 0x77;
    config.TimeMs = 9999;
    config.Word = 0x1234;
    config.Byte = 0x56;
    FillMessage(config.Message1, 10, 1, 2);
    FillMessage(config.Message2, 100, 1, 0);
    return config;
}

/** By default messages of 3 + 4 and 1 + 4 bytes. */
RS232PollConfig Rs232(int lengthAt = 2, int extra = 4, int length1 = 3, int length2 = 1) {
    RS232PollConfig config = {};
    config.Index = 1;
    config.Mode = 3;
    config.Param = 0x88;
    config.TimeMs = 19;
    config.Variant = 0x99;
    config.LengthOffset = static_cast<unsigned char>(lengthAt);
    config.LengthExtra = static_cast<unsigned char>(extra);
    config.Word = 0xFE01;
    config.Byte = 0xAA;
    FillMessage(config.Message1, 10, config.LengthOffset, length1);
    FillMessage(config.Message2, 100, config.LengthOffset, length2);
    return config;
}

class PollsTest : public BoardTest {
protected:
    /** The length of the one request, or nothing sent and out of range. */
    void ExpectRequest(const std::function<int()>& configure, std::size_t size) {
        StartAfresh();
        EXPECT_EQ(configure(), size > 0 ? 1 : 0);
        EXPECT_EQ(board.GetLastError(), size > 0 ? 0 : 8);
        const Exchanges sent = driver.Sent();
        EXPECT_EQ(sent.empty() ? 0 : sent[0].payload.size(), size);
    }

    unsigned char bytes[80] = {7, 8, 9};
    unsigned long length = 99;
    unsigned status = 77;
};

TEST_F(PollsTest, BothFormsSendThirteenBytesAndTheirMessages) {
    CCTalkConfig ccTalk = CcTalk();
    RS232PollConfig rs232 = Rs232();
    // clang-format off
    const Bytes ccTalkSent = {3, 2, 4,  1, 1, 5,  255, 0x12, 0x34, 0x56, 0x77,  7, 5,
                              10, 2, 12, 13, 14, 15, 16,  100, 0, 102, 103, 104};
    const Bytes rs232Sent = {1, 3, 0,  0x99, 2, 4,  1, 0xFE, 0x01, 0xAA, 0x88,  7, 5,
                             10, 11, 3, 13, 14, 15, 16,  100, 101, 1, 103, 104};
    // clang-format on
    for (const _usbSerialPort port : kPorts) {
        OpenConfigured(Model::kK40);
        Expect({
            {CALL(ConfigureCCTalkPort(port, &ccTalk)), 1, 0, {{103, ChannelOf(port), ccTalkSent}}},
            {CALL(ConfigureRS232Poll(port, &rs232)), 1, 0, {{103, ChannelOf(port), rs232Sent}}},
        });
    }
}

TEST_F(PollsTest, RangesAreCheckedAndMessagesAreAsLongAsTheirFramingSays) {
    OpenConfigured(Model::kK44);
    // clang-format off
    struct CcTalkCase { void (*change)(CCTalkConfig&); std::size_t request; };
    const CcTalkCase ccTalks[] = {
        {[](auto& c) { c.Message1[1] = c.Message2[1] = 20; },  13 + 25 + 25},
        {[](auto& c) { c.Message1[1] = 21; },                  0},
        {[](auto& c) { c.Message2[1] = 21; },                  0},
        {[](auto& c) { c.Message1[1] = 251; },                 0},  // 0 in eight bits
        {[](auto& c) { c.Index = c.Option = 0; c.Mode = 0; },  13 + 7 + 5},
        {[](auto& c) { c.Index = 4; },                         0},
        {[](auto& c) { c.Mode = 4; },                          0},
        {[](auto& c) { c.Mode = 256; },                        0},
        {[](auto& c) { c.Option = 5; },                        0},
    };
    // clang-format on
    for (const CcTalkCase& c : ccTalks) {
        CCTalkConfig config = CcTalk();
        c.change(config);
        SCOPED_TRACE(&c - ccTalks);
        ExpectRequest([&] { return board.ConfigureCCTalkPort(kPort0, &config); }, c.request);
        EXPECT_EQ(config.TimeMs, c.request > 0 ? 2550 : 9999) << "a refusal changes nothing";
    }
    // clang-format off
    struct Rs232Case { int lengthAt, extra, length1, length2; std::size_t request; };
    const Rs232Case rs232s[] = {
        {0, 0, 0, 0, 13}, {24, 0, 0, 25, 38}, {24, 5, 20, 20, 63}, {25, 0, 0, 0, 0},
        {2, 6, 20, 0, 0}, {2, 6, 0, 20, 0}, {2, 26, 0, 0, 0}, {2, 255, 1, 1, 0},
    };
    // clang-format on
    for (const Rs232Case& c : rs232s) {
        RS232PollConfig config = Rs232(c.lengthAt, c.extra, c.length1, c.length2);
        if (c.lengthAt == 25) config.Message2[0] = 0;  // what lies behind message 1
        SCOPED_TRACE(&c - rs232s);
        ExpectRequest([&] { return board.ConfigureRS232Poll(kPort0, &config); }, c.request);
    }
}

TEST_F(PollsTest, TheTimeIsSentInTensAndCutInTheCallersRecord) {
    // clang-format off
    struct Case { int timeMs, sent, kept; };
    const Case cases[] = {
        {0, 0, 0}, {9, 0, 9}, {10, 1, 10}, {2549, 254, 2549}, {2550, 255, 2550}, {2551, 255, 2550},
        {INT_MAX, 255, 2550}, {-9, 0, -9}, {-10, 255, -10}, {INT_MIN, 0x34, INT_MIN},
    };
    // clang-format on
    OpenConfigured(Model::kK44);
    for (const Case& c : cases) {
        CCTalkConfig config = CcTalk();
        config.TimeMs = c.timeMs;
        StartAfresh();
        driver.AnswerNext({.status = 9});  // cut also when the board then refuses
        EXPECT_EQ(board.ConfigureCCTalkPort(kPort0, &config), 0);
        EXPECT_EQ(driver.Sent().at(0).payload[6], c.sent) << c.timeMs;
        EXPECT_EQ(config.TimeMs, c.kept);
    }
}

TEST_F(PollsTest, TimeoutsGoOutInTheirUnits) {
    struct Case {
        double seconds;
        int units;  // -1: refused
    };
    const Case messages[] = {{0, 0},      {-0.0, 0},   {0.029, 0},      {0.031, 1},      {0.061, 2},
                             {7.64, 254}, {7.65F, -1}, {-0.001, -1},    {-1e-45, -1},    {1e30, -1},
                             {NAN, -1},   {-NAN, -1},  {kInfinity, -1}, {-kInfinity, -1}};
    const Case hosts[] = {{0, 0},         {0.09, 0},   {0.1, 1},        {0.29, 2},
                          {25.4999, 254}, {25.5, 255}, {25.500001, -1}, {-0.0001, -1},
                          {1e300, -1},    {NAN, -1},   {kInfinity, -1}, {-kInfinity, -1}};
    OpenConfigured(Model::kK44);
    const auto expect = [&](const Case& c, const std::function<int()>& call, Exchange sent) {
        if (c.units < 0) return Expect({{std::to_string(c.seconds), call, 0, 8, {}}});
        Expect({{std::to_string(c.seconds), call, 1, 0, {std::move(sent)}}});
    };
    for (const Case& c : messages) {
        const auto seconds = static_cast<float>(c.seconds);
        expect(c, [&] { return board.SetTimeoutMessage(kPort1, bytes, 3, seconds); },
               {101, 4, {static_cast<std::uint8_t>(c.units), 3, 7, 8, 9}});
    }
    for (const Case& c : hosts) {
        expect(c, [&] { return board.SetPolledHostTimeout(kPort0, 2, c.seconds); },
               {121, 3, {2, static_cast<std::uint8_t>(c.units)}});
    }
}

TEST_F(PollsTest, AMessageIsReadOverAllItsRepliesWhereThereIsRoom) {
    struct Case {
        const char* what;
        std::vector<DriverAnswer> answers;
        unsigned long capacity;
        int error;
        Bytes message;
        unsigned status;  // 77: not written
    };
    const Bytes sixty(62, 1);  // a status and a "more" before them
    const Bytes message(60, 1);
    const auto repeated = [](std::size_t times, std::vector<DriverAnswer> last) {
        std::vector<DriverAnswer> answers(times, {.reply = {4, 1}});
        answers.insert(answers.end(), last.begin(), last.end());
        return answers;
    };
    const std::vector<DriverAnswer> tellsTwo = {{.reply = {5, 1, 1, 2}}, {.reply = {6, 0}}};
    auto afterTwo = repeated(8, {});
    afterTwo.insert(afterTwo.begin(), tellsTwo[0]);
    const Case cases[] = {
        // clang-format off
        {"three replies",
         {{.reply = {5, 1, 1, 2}}, {.reply = {6, 255, 3}}, {.reply = {7, 0, 4, 5}}},
         ~0UL, 0, {1, 2, 3, 4, 5}, 7},
        {"one without data", {{.reply = {5, 1}}, {.reply = {6, 0, 9}}}, 1, 0, {9}, 6},
        {"status alone", {{.reply = {200}}}, 0, 0, {}, 200},
        {"nothing", {{}}, 0, 0, {}, 77},
        {"cut short by status", {{.reply = {5, 1, 1, 2}}, {.reply = {6}}}, 2, 0, {1, 2}, 6},
        {"refused half-way", {{.reply = {5, 1, 1, 2}}, {.status = 9, .reply = {6, 0, 3}}},
         9, 9, {1, 2}, 5},
        {"no room", {{.reply = sixty}}, 59, 7, {}, 1},
        {"room for the first", {{.reply = sixty}, {.reply = {2, 0, 3, 3}}}, 61, 7, message, 2},
        {"seven empty in a row", repeated(7, tellsTwo), 9, 0, {1, 2}, 6},
        {"eight", afterTwo, 9, 6, {1, 2}, 4},
        {"the plain form has patience", repeated(9, tellsTwo), ~0UL, 0, {1, 2}, 6},
        {"just enough", {{.reply = sixty}, {.reply = {2, 0}}}, 60, 0, message, 2},
        // clang-format on
    };
    for (const Model model : {Model::kK40, Model::kK44}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(c.what);
            OpenConfigured(model);
            for (const DriverAnswer& answer : c.answers)
                driver.AnswerNext(answer);
            std::fill_n(bytes, sizeof bytes, kGuard);
            length = 99;
            status = 77;
            const auto receive = [&] {
                return c.capacity == ~0UL
                           ? board.ReceivePolledMessage(kPort1, 2, bytes, &length, &status)
                           : board.ReceivePolledMessageEx(kPort1, 2, bytes, c.capacity, &length,
                                                          &status);
            };
            Expect({{c.what, receive, c.error == 0, c.error,
                     Exchanges(c.answers.size(), Exchange{105, 4, {2}})}});
            EXPECT_EQ(status, c.status);
            EXPECT_EQ(length, c.message.size());
            Bytes expected = c.message;
            expected.resize(sizeof bytes, kGuard);
            EXPECT_EQ(Bytes(bytes, bytes + sizeof bytes), expected);
        }
    }
}

TEST_F(PollsTest, AClaimBeyondAnyReplyBringsNoMoreThanTheLongest) {
    OpenConfigured(Model::kK44);
    driver.AnswerNext({.reply = {5, 0, 1}, .claimedLength = 1UL << 40});
    Bytes buffer(260, kGuard);
    EXPECT_EQ(board.ReceivePolledMessageEx(kPort0, 0, buffer.data(), 254, &length, &status), 1);
    EXPECT_EQ(length, 254U);
    Bytes expected = {1};
    expected.resize(254);
    expected.resize(260, kGuard);
    EXPECT_EQ(buffer, expected);
}

}  // namespace
