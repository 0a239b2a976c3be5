/**
 * @file polled_messages_test.cpp
 * @brief Reading polled messages that come in several replies, into buffers of every size.
 */
#include <algorithm>

#include "serial_test.h"

namespace {

constexpr std::uint8_t kGuard = 0xEE;

class PolledMessagesTest : public SerialTest {};

struct Message {
    const char* what;
    std::vector<DriverAnswer> answers;
    int result, error;
    Bytes message;
    unsigned status;  // 77: not written
};

// clang-format off
const Message kMessages[] = {
    {"one reply",            {{.reply = {5, 0, 1, 2, 3}}},                    1, 0, {1, 2, 3}, 5},
    {"three replies",        {{.reply = {5, 1, 1, 2}}, {.reply = {6, 255, 3}}, {.reply = {7, 0, 4, 5}}},
                                                                              1, 0, {1, 2, 3, 4, 5}, 7},
    {"one without data",     {{.reply = {5, 1}}, {.reply = {6, 0, 9}}},       1, 0, {9}, 6},
    {"no data",              {{.reply = {200, 0}}},                           1, 0, {}, 200},
    {"status alone",         {{.reply = {200}}},                              1, 0, {}, 200},
    {"nothing",              {{}},                                            1, 0, {}, 77},
    {"more, then nothing",   {{.reply = {200, 1, 5}}, {}},                    1, 0, {5}, 200},
    {"cut short by status",  {{.reply = {5, 1, 1, 2}}, {.reply = {6}}},       1, 0, {1, 2}, 6},
    {"refused at once",      {{.status = 9}},                                 0, 9, {}, 77},
    {"refused half-way",     {{.reply = {5, 1, 1, 2}}, {.status = 9, .reply = {6, 0, 3}}},
                                                                              0, 9, {1, 2}, 5},
    {"failed half-way",      {{.reply = {5, 1, 1, 2}}, {.error = 5}},         0, 6, {1, 2}, 5},
};
// clang-format on

TEST_F(PolledMessagesTest, AMessageIsReadOverAllItsReplies) {
    for (const Model model : kModels) {
        for (const bool bounded : {false, true}) {
            for (const Message& c : kMessages) {
                SCOPED_TRACE(std::string(ModelName(model)) + ": " + c.what);
                OpenConfigured(model);
                for (const DriverAnswer& answer : c.answers)
                    driver.AnswerNext(answer);
                Bytes buffer(16, kGuard);
                unsigned long length = 99;
                unsigned status = 77;
                EXPECT_EQ(bounded ? board.ReceivePolledMessageEx(kPort1, 2, buffer.data(),
                                                                 c.message.size(), &length, &status)
                                  : board.ReceivePolledMessage(kPort1, 2, buffer.data(), &length,
                                                               &status),
                          c.result);
                EXPECT_EQ(board.GetLastError(), c.error);
                EXPECT_EQ(status, c.status);
                ASSERT_EQ(length, c.message.size());
                Bytes expected = c.message;
                expected.resize(16, kGuard);
                EXPECT_EQ(buffer, expected);
                EXPECT_EQ(driver.Sent(), Exchanges(c.answers.size(), Exchange{105, 4, {2}}));
            }
        }
    }
}

TEST_F(PolledMessagesTest, ABoundedMessageEndsWithTheReplyThatDoesNotFit) {
    struct Case {
        unsigned long capacity;
        int error;
        std::size_t length, exchanges;
    };
    // 60 bytes, none, 3, and nothing after that: what a K40 sends at most, too.
    const Case cases[] = {{0, 7, 0, 1},   {59, 7, 0, 1},  {60, 7, 60, 3},
                          {62, 7, 60, 3}, {63, 0, 63, 3}, {~0UL, 0, 63, 3}};
    for (const Model model : kModels) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(ModelName(model)) + " " + std::to_string(c.capacity));
            OpenConfigured(model);
            Bytes first = {1, 1};
            first.insert(first.end(), 60, 5);
            driver.AnswerNext({.reply = first});
            driver.AnswerNext({.reply = {2, 1}});
            driver.AnswerNext({.reply = {3, 0, 6, 6, 6}});
            Bytes buffer(80, kGuard);
            unsigned long length = 99;
            unsigned status = 77;
            EXPECT_EQ(board.ReceivePolledMessageEx(kPort0, 0, buffer.data(), c.capacity, &length,
                                                   &status),
                      c.error == 0);
            EXPECT_EQ(board.GetLastError(), c.error);
            EXPECT_EQ(length, c.length);
            EXPECT_EQ(driver.Sent().size(), c.exchanges);
            EXPECT_EQ(std::count(buffer.begin(), buffer.end(), kGuard),
                      static_cast<std::ptrdiff_t>(80 - c.length));
        }
    }
}

TEST_F(PolledMessagesTest, AClaimBeyondAnyReplyBringsNoMoreThanTheLongest) {
    for (const std::uint64_t claim : {257UL, 300UL, 1UL << 40, ~0UL}) {
        SCOPED_TRACE(claim);
        OpenConfigured(Model::kK44);
        driver.AnswerNext({.reply = {5, 0, 1}, .claimedLength = claim});
        Bytes buffer(260, kGuard);
        unsigned long length = 0;
        unsigned status = 0;
        EXPECT_EQ(board.ReceivePolledMessageEx(kPort0, 0, buffer.data(), 254, &length, &status), 1);
        EXPECT_EQ(length, 254U);
        Bytes expected(254);
        expected[0] = 1;
        expected.resize(260, kGuard);
        EXPECT_EQ(buffer, expected);
    }
}

}  // namespace
