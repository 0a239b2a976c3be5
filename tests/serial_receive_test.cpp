/**
 * @file serial_receive_test.cpp
 * @brief Receiving on serial ports, bytes and words, into buffers of every size.
 */
#include <algorithm>
#include <deque>
#include <random>

#include "serial_test.h"

namespace {

using Words = std::vector<unsigned short>;

constexpr std::uint8_t kGuard = 0xEE;
constexpr unsigned short kGuardWord = 0xEEEE;

std::size_t LongestReply(Model model) {
    return model == Model::kK40 ? 62 : 256;
}

/** Bytes that count from 0. */
Bytes Count(std::size_t length) {
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<std::uint8_t>(i);
    return bytes;
}

class SerialReceiveTest : public SerialTest {
protected:
    /** What the board has received; each reply is one entry, and then there is no more. */
    void Deliver(std::vector<Bytes> replies) {
        pending.assign(replies.begin(), replies.end());
        driver.AnswerWith([this](const Exchange&) {
            DriverAnswer answer;
            if (!pending.empty()) {
                answer.reply = pending.front();
                pending.pop_front();
            }
            return answer;
        });
    }

    /** The id that the next receive on port 0 sends. */
    std::uint8_t NextMessageId() {
        unsigned char byte = 0;
        unsigned long length = 0;
        driver.ForgetSent();
        driver.AnswerNext({});
        EXPECT_EQ(board.Receive(kPort0, &byte, &length), 1);
        return static_cast<std::uint8_t>(driver.Sent().at(0).payload.at(0) + 1);
    }

    std::deque<Bytes> pending;
};

TEST_F(SerialReceiveTest, ReceivingGoesOnUntilAReplyIsEmpty) {
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        OpenConfigured(model);
        const std::uint8_t id = NextMessageId();
        const auto after = [id](int more) { return static_cast<std::uint8_t>(id + more); };
        StartAfresh();
        Deliver({{1, 2, 3}, Bytes(62, 4), {5}});
        Bytes buffer(70, kGuard);
        unsigned long length = 99;
        EXPECT_EQ(board.Receive(kPort0, buffer.data(), &length), 1);
        EXPECT_EQ(length, 66U);
        Bytes expected = {1, 2, 3};
        expected.insert(expected.end(), 62, 4);
        expected.insert(expected.end(), {5, kGuard, kGuard, kGuard, kGuard});
        EXPECT_EQ(buffer, expected);
        EXPECT_EQ(
            driver.Sent(),
            Exchanges(
                {{99, 3, {id}}, {99, 3, {after(1)}}, {99, 3, {after(2)}}, {99, 3, {after(3)}}}));
        StartAfresh();
        Deliver({{1}});
        EXPECT_EQ(board.Receive(kPort1, buffer.data(), &length), 1);
        EXPECT_EQ(length, 1U);
        EXPECT_EQ(driver.Sent(), Exchanges({{99, 4, {}}, {99, 4, {}}}));
        EXPECT_EQ(NextMessageId(), after(5)) << "port 1 uses up none";
    }
}

TEST_F(SerialReceiveTest, AReceiveThatFailsKeepsWhatCameBefore) {
    OpenConfigured(Model::kK44);
    for (const bool bounded : {false, true}) {
        driver.AnswerNext({.reply = {1, 2, 3}});
        driver.AnswerNext({.status = 9, .reply = {4}});
        Bytes buffer(600, kGuard);
        unsigned long length = 99;
        EXPECT_EQ(bounded ? board.ReceiveEx(kPort0, buffer.data(), 600, &length)
                          : board.Receive(kPort0, buffer.data(), &length),
                  0);
        EXPECT_EQ(board.GetLastError(), 9);
        EXPECT_EQ(length, 3U);
        EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 4), Bytes({1, 2, 3, kGuard}));
    }
}

TEST_F(SerialReceiveTest, MessageIdsAreOneSequenceForAllObjectsAndWrap) {
    OpenConfigured(Model::kK44);
    driver.AddBoard(3, Model::kK50);
    driver.AnswerWith(nullptr);
    MarvaneUSB other;
    ASSERT_EQ(other.InitPort(3), 1);
    AcceptEverything();
    _DCB line = {9600, 0, 0};
    ASSERT_EQ(other.SetConfig(kPort0, &line, USB_PORT_TYPE_0), 1);
    std::uint8_t id = NextMessageId();
    unsigned char byte = 0;
    unsigned short word = 0;
    unsigned long length = 0;
    for (int i = 0; i < 300; ++i) {
        driver.ForgetSent();
        if (i % 7 == 0) driver.AnswerNext({.status = 9});  // a failed exchange uses its id up, too
        switch (i % 3) {
            case 0:
                board.Receive(kPort0, &byte, &length);
                break;
            case 1:
                other.Receive(kPort0, &byte, &length);
                break;
            default:
                board.Receive9BitData(kPort0, &word, &length);
        }
        ASSERT_EQ(driver.Sent(), Exchanges({{99, 3, {id}}})) << i;
        ++id;
    }
}

TEST_F(SerialReceiveTest, AClaimBeyondAnyReplyIsCutToTheLongest) {
    OpenConfigured(Model::kK44);
    for (const std::uint64_t claim : {256UL, 257UL, 300UL, 1UL << 40, ~0UL}) {
        SCOPED_TRACE(claim);
        Bytes buffer(260, kGuard);
        unsigned long length = 0;
        driver.AnswerNext({.reply = {7, 8}, .claimedLength = claim});
        EXPECT_EQ(board.ReceiveEx(kPort0, buffer.data(), 256, &length), 1);
        EXPECT_EQ(length, 256U);
        Bytes expected(256);
        expected[0] = 7;
        expected[1] = 8;
        expected.insert(expected.end(), 4, kGuard);
        EXPECT_EQ(buffer, expected) << "what the board did not send is 0";
    }
}

TEST_F(SerialReceiveTest, WordsPairUpOverAllRepliesAndAnOddByteIsNotCounted) {
    struct Case {
        const char* what;
        std::vector<Bytes> replies;
        Words words;
        unsigned char behind;  // first byte behind the last word
    };
    const Case cases[] = {
        // clang-format off
        {"nothing",       {},                          {},                       kGuard},
        {"high first",    {{0x01, 0x02, 0x03, 0xFF}},  {0x0102, 0x03FF},         kGuard},
        {"over replies",  {{1}, {2, 3}, {4, 5, 6}},    {0x0102, 0x0304, 0x0506}, kGuard},
        {"odd",           {{1, 2, 3, 4, 5}},           {0x0102, 0x0304},         5},
        {"one byte",      {{9}},                       {},                       9},
        // clang-format on
    };
    for (const Model model : kModels) {
        for (const bool bounded : {false, true}) {
            for (const Case& c : cases) {
                SCOPED_TRACE(std::string(ModelName(model)) + ": " + c.what);
                OpenConfigured(model);
                Deliver(c.replies);
                Words words(200, kGuardWord);
                unsigned long count = 99;
                EXPECT_EQ(bounded ? board.Receive9BitDataEx(kPort0, words.data(), 200, &count)
                                  : board.Receive9BitData(kPort0, words.data(), &count),
                          1);
                ASSERT_EQ(count, c.words.size());
                EXPECT_EQ(Words(words.begin(), words.begin() + static_cast<int>(count)), c.words);
                EXPECT_EQ(words[count] & 0xFF, c.behind);
                EXPECT_EQ(words[count] >> 8, kGuard);
                EXPECT_EQ(words[count + 1], kGuardWord);
                EXPECT_EQ(driver.Sent().size(), c.replies.size() + 1);

                Deliver({{0xAB, 0xCD}});
                EXPECT_EQ(board.Receive9BitDataEx(kPort0, words.data(), 200, &count), 1);
                EXPECT_EQ(count, 1U);
                EXPECT_EQ(words[0], 0xABCD) << "an odd byte at the end does not come again";
            }
        }
    }
}

TEST_F(SerialReceiveTest, PlainWordsAreNotCountedWhenAnExchangeFails) {
    OpenConfigured(Model::kK44);
    Words words(200, kGuardWord);
    unsigned long count = 99;
    driver.AnswerNext({.reply = {1, 2, 3}});
    driver.AnswerNext({.status = 9});
    EXPECT_EQ(board.Receive9BitData(kPort0, words.data(), &count), 0);
    EXPECT_EQ(board.GetLastError(), 9);
    EXPECT_EQ(count, 0U);
}

TEST_F(SerialReceiveTest, ABoundedReceiveNeedsRoomForOneReplyAndAsksOnlyWhileThereIsSome) {
    struct Case {
        const char* what;
        Model model;
        unsigned long capacity;
        std::vector<std::size_t> replies;
        int error;
        unsigned length;
        std::size_t exchanges;
    };
    const Case cases[] = {
        // clang-format off
        {"too small",               Model::kK40, 61,  {1},            8, 0,   0},
        {"none",                    Model::kK40, 0,   {1},            8, 0,   0},
        {"one reply",               Model::kK40, 62,  {62, 1},        0, 62,  1},
        {"one short reply",         Model::kK40, 62,  {1, 1},         0, 1,   1},
        {"two replies",             Model::kK40, 124, {62, 62, 1},    0, 124, 2},
        {"room for one and a half", Model::kK40, 123, {62, 1},        0, 62,  1},
        {"short ones",              Model::kK40, 70,  {3, 4, 5, 6},   0, 12,  3},
        {"no more",                 Model::kK40, 70,  {3, 4},         0, 7,   3},
        {"too small",               Model::kK44, 255, {1},            8, 0,   0},
        {"one reply",               Model::kK44, 256, {256, 1},       0, 256, 1},
        {"two replies",             Model::kK50, 512, {256, 256, 1},  0, 512, 2},
        {"as much as you like",     Model::kK50, ~0UL, {256, 256, 1}, 0, 513, 4},
        // clang-format on
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(ModelName(c.model)) + ": " + c.what);
        OpenConfigured(c.model);
        std::vector<Bytes> replies;
        for (const std::size_t length : c.replies)
            replies.emplace_back(length, std::uint8_t{5});
        Deliver(replies);
        Bytes buffer(600, kGuard);
        unsigned long length = 0;
        EXPECT_EQ(board.ReceiveEx(kPort1, buffer.data(), c.capacity, &length), c.error == 0);
        EXPECT_EQ(board.GetLastError(), c.error);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(driver.Sent().size(), c.exchanges);
        EXPECT_EQ(std::count(buffer.begin(), buffer.end(), kGuard),
                  static_cast<std::ptrdiff_t>(600 - c.length));
    }
    for (const Model model : kModels) {
        OpenConfigured(model);
        Words words(128);
        unsigned long count = 0;
        const unsigned long least = LongestReply(model) / 2;
        EXPECT_EQ(board.Receive9BitDataEx(kPort0, words.data(), least - 1, &count), 0);
        EXPECT_EQ(board.GetLastError(), 8);
        EXPECT_EQ(driver.Sent(), Exchanges());
        EXPECT_EQ(board.Receive9BitDataEx(kPort0, words.data(), least, &count), 1);
    }
}

/** How the first half of a word comes to be kept. */
struct Keeping {
    const char* what;
    Bytes first;
    int failure;  // the exchange behind it fails with this status
    unsigned long capacity, count;
    unsigned char kept;
};

const Bytes kLong = Count(255);
const Bytes kLongest(256, 0x22);

TEST_F(SerialReceiveTest, AKeptHalfWordOpensThePortsNextReceiveOfAnyKind) {
    const Keeping keepings[] = {
        {"stopped on half a word", kLong, 0, 128, 127, 254},
        {"failed on half a word", {1, 2, 3}, 9, 150, 1, 3},
    };
    struct Next {
        const char* what;
        std::function<int(_usbSerialPort, unsigned char*, unsigned long*)> receive;
        bool inWords;
    };
    const Next nexts[] = {
        // clang-format off
        {"Receive",           [this](auto port, auto* to, auto* length) { return board.Receive(port, to, length); }, false},
        {"ReceiveEx",         [this](auto port, auto* to, auto* length) { return board.ReceiveEx(port, to, 300, length); }, false},
        {"Receive9BitData",   [this](auto port, auto* to, auto* length) { return board.Receive9BitData(port, reinterpret_cast<unsigned short*>(to), length); }, true},
        {"Receive9BitDataEx", [this](auto port, auto* to, auto* length) { return board.Receive9BitDataEx(port, reinterpret_cast<unsigned short*>(to), 150, length); }, true},
        // clang-format on
    };
    for (const Keeping& keeping : keepings) {
        for (const Next& next : nexts) {
            SCOPED_TRACE(std::string(keeping.what) + ", " + next.what);
            OpenConfigured(Model::kK44);
            Words words(150);
            unsigned long length = 0;
            driver.AnswerNext({.reply = keeping.first});
            if (keeping.failure != 0) driver.AnswerNext({.status = keeping.failure});
            ASSERT_EQ(board.Receive9BitDataEx(kPort1, words.data(), keeping.capacity, &length),
                      keeping.failure == 0);
            ASSERT_EQ(length, keeping.count);

            alignas(2) unsigned char bytes[300] = {};
            EXPECT_EQ(next.receive(kPort0, bytes, &length), 1);
            EXPECT_EQ(length, 0U) << "it is not the other port's";
            Deliver({{7}});
            EXPECT_EQ(next.receive(kPort1, bytes, &length), 1);
            ASSERT_EQ(length, next.inWords ? 1U : 2U);
            EXPECT_EQ(bytes[next.inWords ? 1 : 0], keeping.kept);
            EXPECT_EQ(bytes[next.inWords ? 0 : 1], 7);
            Deliver({});
            EXPECT_EQ(next.receive(kPort1, bytes, &length), 1);
            EXPECT_EQ(length, 0U) << "and it comes once";
        }
    }
}

TEST_F(SerialReceiveTest, AKeptHalfWordNeedsNoRoomBeyondOneReply) {
    OpenConfigured(Model::kK44);
    Words words(130, kGuardWord);
    unsigned long count = 0;
    Deliver({kLong, kLongest, {1}});
    ASSERT_EQ(board.Receive9BitDataEx(kPort0, words.data(), 128, &count), 1);
    ASSERT_EQ(count, 127U);
    ASSERT_EQ(board.Receive9BitDataEx(kPort0, words.data(), 128, &count), 1);
    EXPECT_EQ(count, 128U);
    EXPECT_EQ(words[0], 0xFE22);
    EXPECT_EQ(words[127], 0x2222);
    EXPECT_EQ(words[128], kGuardWord);
    ASSERT_EQ(board.Receive9BitDataEx(kPort0, words.data(), 128, &count), 1);
    ASSERT_EQ(count, 1U);
    EXPECT_EQ(words[0], 0x2201);
}

TEST_F(SerialReceiveTest, BoundedReceivesLoseNothingHoweverRepliesAndRoomFall) {
    const auto seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto upTo = [&random](std::size_t most) {
        return std::uniform_int_distribution<std::size_t>(1, most)(random);
    };
    for (int round = 0; round < 300; ++round) {
        const Model model = kModels[round % 3];
        const std::size_t longest = LongestReply(model);
        OpenConfigured(model);
        Bytes stream(2 * upTo(1000));
        for (std::uint8_t& byte : stream)
            byte = static_cast<std::uint8_t>(random());
        std::vector<Bytes> replies;
        for (auto next = stream.begin(); next != stream.end();) {
            const std::size_t most = std::min<std::size_t>(
                round % 2 == 0 ? 3 : longest, static_cast<std::size_t>(stream.end() - next));
            const auto end = next + static_cast<std::ptrdiff_t>(upTo(most));
            replies.emplace_back(next, end);
            next = end;
        }
        Deliver(replies);

        Bytes received;
        for (std::size_t count = 1; count > 0;) {
            const unsigned long capacity = longest / 2 - 1 + upTo(100);
            Words words(capacity + 1, kGuardWord);
            unsigned long got = 0;
            ASSERT_EQ(board.Receive9BitDataEx(kPort1, words.data(), capacity, &got), 1);
            ASSERT_LE(got, capacity);
            ASSERT_EQ(words[capacity], kGuardWord);
            for (std::size_t i = 0; i < got; ++i) {
                received.push_back(static_cast<std::uint8_t>(words[i] >> 8));
                received.push_back(static_cast<std::uint8_t>(words[i]));
            }
            count = got;
        }
        ASSERT_EQ(received, stream);
    }
}

}  // namespace
