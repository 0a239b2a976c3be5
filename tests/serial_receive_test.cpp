/**
 * @file serial_receive_test.cpp
 * @brief Receiving on serial ports, bytes and words, into buffers of every size.
 */
#include <algorithm>
#include <numeric>
#include <random>

#include "board_test.h"

namespace {

using Words = std::vector<unsigned short>;

/** What the first receive after the library was loaded sent, before any test. */
const Exchange kFirstReceive = [] {
    InProcessDriver& driver = InProcessDriver::Instance();
    driver.AddBoard(0, Model::kK44);
    MarvaneUSB board;
    _DCB line = {9600, 0, 0};
    unsigned char byte = 0;
    unsigned long length = 0;
    board.InitPort(0);
    board.SetConfig(kPort0, &line, USB_PORT_TYPE_0);
    board.Receive(kPort0, &byte, &length);
    return driver.Sent().back();
}();

constexpr std::uint8_t kGuard = 0xEE;
constexpr unsigned short kGuardWord = 0xEEEE;

class SerialReceiveTest : public BoardTest {
protected:
    /** What the board has received; after these replies there is no more. */
    void Deliver(const std::vector<Bytes>& replies) {
        for (const Bytes& reply : replies)
            driver.AnswerNext({.reply = reply});
    }

    /** The id that the next receive on port 0 sends. */
    std::uint8_t NextMessageId() {
        StartAfresh();
        EXPECT_EQ(board.Receive(kPort0, buffer.data(), &length), 1);
        const auto id = static_cast<std::uint8_t>(driver.Sent().at(0).payload.at(0) + 1);
        StartAfresh();
        return id;
    }

    Bytes buffer = Bytes(600, kGuard);
    Words words = Words(200, kGuardWord);
    unsigned long length = 99;
};

TEST_F(SerialReceiveTest, ReceivingGoesOnUntilAReplyIsEmpty) {
    OpenConfigured(Model::kK40);
    const std::uint8_t id = NextMessageId();
    const auto request = [id](int more) {
        return Exchange{99, 3, {static_cast<std::uint8_t>(id + more)}};
    };
    Deliver({{1, 2, 3}, Bytes(62, 4), {5}});
    const Exchanges requests = {request(0), request(1), request(2), request(3)};
    Expect({{CALL(Receive(kPort0, buffer.data(), &length)), 1, 0, requests}});
    EXPECT_EQ(length, 66U);
    Bytes expected = {1, 2, 3};
    expected.insert(expected.end(), 62, 4);
    expected.insert(expected.end(), {5, kGuard});
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 67), expected);
    Deliver({{1}});
    Expect({{CALL(Receive(kPort1, buffer.data(), &length)), 1, 0, {{99, 4, {}}, {99, 4, {}}}}});
    EXPECT_EQ(length, 1U);
    EXPECT_EQ(NextMessageId(), static_cast<std::uint8_t>(id + 5)) << "port 1 uses up none";
}

TEST_F(SerialReceiveTest, MessageIdsAreOneSequenceForAllObjectsFrom0AndWrap) {
    EXPECT_EQ(kFirstReceive, (Exchange{99, 3, {0}}));
    OpenConfigured(Model::kK44);
    driver.AddBoard(3, Model::kK50);
    driver.AnswerWith(nullptr);
    MarvaneUSB other;
    ASSERT_EQ(other.InitPort(3), 1);
    AcceptEverything();
    _DCB line = {9600, 0, 0};
    ASSERT_EQ(other.SetConfig(kPort0, &line, USB_PORT_TYPE_0), 1);
    std::uint8_t id = NextMessageId();
    for (int i = 0; i < 300; ++i) {
        if (i % 7 == 0) driver.AnswerNext({.status = 9});  // a failed exchange uses its id up, too
        if (i % 3 == 0) board.Receive(kPort0, buffer.data(), &length);
        if (i % 3 == 1) other.Receive(kPort0, buffer.data(), &length);
        if (i % 3 == 2) board.Receive9BitData(kPort0, words.data(), &length);
        ASSERT_EQ(driver.Sent(), Exchanges({{99, 3, {id++}}})) << i;
        driver.ForgetSent();
    }
}

TEST_F(SerialReceiveTest, WhatCameBeforeAFailureIsKeptAndAClaimIsCutToTheLongest) {
    for (const bool bounded : {false, true}) {
        OpenConfigured(Model::kK44);
        const auto receive = [&] {
            return bounded ? board.ReceiveEx(kPort0, buffer.data(), 256, &length)
                           : board.Receive(kPort0, buffer.data(), &length);
        };
        driver.AnswerNext({.reply = {7, 8}, .claimedLength = 1UL << 40});
        EXPECT_EQ(receive(), 1);
        EXPECT_EQ(length, 256U);
        Bytes expected = {7, 8};
        expected.resize(256);  // what the board did not send is 0
        expected.push_back(kGuard);
        EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 257), expected);
    }
    driver.AnswerNext({.reply = {1, 2, 3}});
    driver.AnswerNext({.status = 9, .reply = {4}});
    EXPECT_EQ(board.ReceiveEx(kPort0, buffer.data(), 600, &length), 0);
    EXPECT_EQ(board.GetLastError(), 9);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 4), Bytes({1, 2, 3, 0}));
    driver.AnswerNext({.reply = {1, 2, 3}});
    driver.AnswerNext({.status = 9});
    EXPECT_EQ(board.Receive9BitData(kPort0, words.data(), &length), 0);
    EXPECT_EQ(length, 0U) << "plain words are not counted";
}

TEST_F(SerialReceiveTest, WordsPairUpOverAllRepliesAndAnOddByteIsNotCounted) {
    struct Case {
        const char* what;
        std::vector<Bytes> replies;
        Words words;  // and what lies behind them
    };
    const Case cases[] = {
        // clang-format off
        {"nothing",      {},                         {kGuardWord}},
        {"over replies", {{1}, {2, 3}, {4, 5, 255}}, {0x0102, 0x0304, 0x05FF, kGuardWord}},
        {"odd",          {{1, 2, 3, 4, 5}},          {0x0102, 0x0304, kGuard << 8 | 5}},
        // clang-format on
    };
    for (const bool bounded : {false, true}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(c.what);
            OpenConfigured(Model::kK44);
            words.assign(200, kGuardWord);
            const auto receive = [&] {
                return bounded ? board.Receive9BitDataEx(kPort0, words.data(), 200, &length)
                               : board.Receive9BitData(kPort0, words.data(), &length);
            };
            Deliver(c.replies);
            EXPECT_EQ(receive(), 1);
            ASSERT_EQ(length, c.words.size() - 1);
            EXPECT_TRUE(std::equal(c.words.begin(), c.words.end(), words.begin()));
            EXPECT_EQ(driver.Sent().size(), c.replies.size() + 1);
            Deliver({{0xAB, 0xCD}});
            EXPECT_EQ(receive(), 1);
            EXPECT_EQ(length, 1U);
            EXPECT_EQ(words[0], 0xABCD) << "an odd byte at the end does not come again";
        }
    }
}

TEST_F(SerialReceiveTest, ABoundedReceiveNeedsRoomForOneReplyAndAsksOnlyWhileThereIsSome) {
    struct Case {
        const char* what;
        Model model;
        unsigned long capacity;
        std::vector<int> replies;
        int error;
        unsigned length;
        std::size_t exchanges;
    };
    const Case cases[] = {
        // clang-format off
        {"too small",               Model::kK40, 61,  {1},            8, 0,   0},
        {"one reply",               Model::kK40, 62,  {62, 1},        0, 62,  1},
        {"two replies",             Model::kK40, 124, {62, 62, 1},    0, 124, 2},
        {"room for one and a half", Model::kK40, 123, {62, 1},        0, 62,  1},
        {"short ones",              Model::kK40, 70,  {3, 4, 5, 6},   0, 12,  3},
        {"too small",               Model::kK44, 255, {1},            8, 0,   0},
        {"one reply",               Model::kK44, 256, {256, 1},       0, 256, 1},
        {"as much as you like",     Model::kK50, ~0UL, {256, 256, 1}, 0, 513, 4},
        // clang-format on
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(ModelName(c.model) + ": " + c.what);
        OpenConfigured(c.model);
        for (const int reply : c.replies)
            driver.AnswerNext({.reply = Bytes(static_cast<std::size_t>(reply), 5)});
        buffer.assign(600, kGuard);
        length = 0;
        EXPECT_EQ(board.ReceiveEx(kPort1, buffer.data(), c.capacity, &length), c.error == 0);
        EXPECT_EQ(board.GetLastError(), c.error);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(driver.Sent().size(), c.exchanges);
        EXPECT_EQ(std::count(buffer.begin(), buffer.end(), kGuard), 600 - c.length);
    }
    for (const Model model : kModels) {
        OpenConfigured(model);
        const unsigned long least = model == Model::kK40 ? 31 : 128;
        Expect({{CALL(Receive9BitDataEx(kPort0, words.data(), least - 1, &length)), 0, 8, {}}});
        EXPECT_EQ(board.Receive9BitDataEx(kPort0, words.data(), least, &length), 1);
    }
}

TEST_F(SerialReceiveTest, AKeptHalfWordOpensThePortsNextReceiveOfAnyKind) {
    alignas(2) unsigned char bytes[600] = {};
    auto* asWords = reinterpret_cast<unsigned short*>(bytes);
    Bytes counting(255);
    std::iota(counting.begin(), counting.end(), std::uint8_t{0});
    const std::function<int(_usbSerialPort)> nexts[] = {
        [&](auto port) { return board.Receive(port, bytes, &length); },
        [&](auto port) { return board.ReceiveEx(port, bytes, 300, &length); },
        [&](auto port) { return board.Receive9BitData(port, asWords, &length); },
        [&](auto port) { return board.Receive9BitDataEx(port, asWords, 150, &length); },
    };
    for (const bool fails : {false, true}) {
        for (const auto& next : nexts) {
            const bool inWords = &next >= nexts + 2;
            OpenConfigured(Model::kK44);
            Deliver({fails ? Bytes{1, 2, 3} : counting});
            if (fails) driver.AnswerNext({.status = 9});
            ASSERT_EQ(board.Receive9BitDataEx(kPort1, words.data(), fails ? 150 : 128, &length),
                      fails ? 0 : 1);
            ASSERT_EQ(length, fails ? 1U : 127U);
            EXPECT_EQ(next(kPort0), 1);
            EXPECT_EQ(length, 0U) << "it is not the other port's";
            Deliver({{7}});
            EXPECT_EQ(next(kPort1), 1);
            ASSERT_EQ(length, inWords ? 1U : 2U);
            EXPECT_EQ(bytes[inWords ? 1 : 0], fails ? 3 : 254);
            EXPECT_EQ(bytes[inWords ? 0 : 1], 7);
            EXPECT_EQ(next(kPort1), 1);
            EXPECT_EQ(length, 0U) << "and it comes once";
        }
    }
}

TEST_F(SerialReceiveTest, BoundedReceivesLoseNothingHoweverRepliesAndRoomFall) {
    const auto seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed) + ", or 1 in the first half");
    std::mt19937 random(1);
    const auto upTo = [&random](std::size_t most) {
        return std::uniform_int_distribution<std::size_t>(1, most)(random);
    };
    for (int round = 0; round < 300; ++round) {
        if (round == 150) random.seed(seed);
        const Model model = kModels[round % 3];
        const std::size_t longest = model == Model::kK40 ? 62 : 256;
        OpenConfigured(model);
        Bytes stream(2 * upTo(1000));
        std::generate(stream.begin(), stream.end(), [&] { return random(); });
        for (std::size_t done = 0; done < stream.size();) {
            const std::size_t most = std::min(round % 2 == 0 ? 3 : longest, stream.size() - done);
            const auto next = stream.begin() + static_cast<std::ptrdiff_t>(done);
            const std::size_t size = upTo(most);
            Deliver({Bytes(next, next + static_cast<std::ptrdiff_t>(size))});
            done += size;
        }
        Bytes received;
        do {
            const bool isTight = upTo(2) == 1;  // room for one reply, and not for a kept byte more
            const unsigned long capacity = longest / 2 + (isTight ? 0 : upTo(100));
            words.assign(capacity + 1, kGuardWord);
            ASSERT_EQ(board.Receive9BitDataEx(kPort1, words.data(), capacity, &length), 1);
            ASSERT_LE(length, capacity);
            ASSERT_EQ(words[capacity], kGuardWord);
            for (std::size_t i = 0; i < length; ++i) {
                received.push_back(static_cast<std::uint8_t>(words[i] >> 8));
                received.push_back(static_cast<std::uint8_t>(words[i]));
            }
        } while (length > 0);
        ASSERT_EQ(received, stream);
    }
}

}  // namespace
