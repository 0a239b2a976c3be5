/**
 * @file transport_test.cpp
 * @brief The two transfer records byte for byte, and every way in which an exchange fails.
 */
#include <cerrno>
#include <cstring>
#include <thread>

#include "board_test.h"

namespace {

class TransportTest : public BoardTest {
protected:
    std::uint64_t Field(std::size_t offset, std::size_t size) const {
        std::uint64_t value = 0;
        const Bytes record = driver.LastRecord();
        std::memcpy(&value, record.data() + offset, size);
        return value;
    }
    /** The field holds the address of a caller's variable. */
    bool PointsTo(std::size_t offset, const void* target) const {
        return Field(offset, 8) == reinterpret_cast<std::uint64_t>(target);
    }

    unsigned char payload[512] = {9, 8, 7};
    unsigned char reply[256] = {};
    unsigned long length = 99;
    unsigned bit = 0;
};

TEST_F(TransportTest, K40RecordHoldsCommandAndPayloadAndTakesTheReplyInTheirPlace) {
    Open(Model::kK40);
    driver.AnswerNext({.reply = {0xA1, 0xA2, 0xA3}});
    ASSERT_EQ(board.PerformUSBIO(0x6B, 5, payload, 3, reply, &length), 1);
    EXPECT_EQ(driver.LastRequest(), 0xC2108100UL);
    EXPECT_EQ(Field(0, 4), 5U);    // write channel
    EXPECT_EQ(Field(4, 4), 5U);    // read channel
    EXPECT_EQ(Field(8, 4), 4U);    // command and payload
    EXPECT_EQ(Field(12, 4), 64U);  // longest reply
    EXPECT_EQ(Field(16, 4), 0x0708096BU);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(Bytes(reply, reply + 4), Bytes({0xA1, 0xA2, 0xA3, 0}));
    EXPECT_EQ(board.PerformUSBIO(75, 1, nullptr, 0, nullptr, &length), 1) << "needs no buffer";
}

TEST_F(TransportTest, K44AndK50RecordsHoldPointersIntoTheCallersMemory) {
    for (const Model model : {Model::kK44, Model::kK50}) {
        Open(model);
        driver.AnswerNext({.reply = {0xA1, 0xA2}});
        ASSERT_EQ(board.PerformUSBIO(0x80, 7, payload, 3, reply, &length), 1);
        EXPECT_EQ(driver.LastRequest(), 0x8400UL);
        EXPECT_NE(Field(0, 8), 0U);  // status word
        EXPECT_EQ(Field(8, 4), 6U);  // channel 7
        EXPECT_TRUE(PointsTo(16, payload));
        EXPECT_EQ(Field(24, 8), 3U);
        EXPECT_TRUE(PointsTo(32, reply));
        EXPECT_TRUE(PointsTo(40, &length));
        EXPECT_EQ(Field(48, 1), 0x80U);
        EXPECT_EQ(length, 2U);
        EXPECT_EQ(Bytes(reply, reply + 3), Bytes({0xA1, 0xA2, 0}));
    }
}

TEST_F(TransportTest, WhatComesBackIsCheckedForLengthThenEchoThenStatus) {
    struct Case {
        const char* what;
        Model model;
        DriverAnswer answer;
        int error;
        unsigned long length;
    };
    const Case cases[] = {
        // clang-format off
        {"empty",                 Model::kK40, {.claimedLength = 2},              0,          0},
        {"longest",               Model::kK40, {.reply = Bytes(62, 1)},           0,          62},
        {"one byte",              Model::kK40, {.claimedLength = 1},              7,          99},
        {"65 bytes",              Model::kK40, {.claimedLength = 65},             7,          99},
        {"huge",                  Model::kK40, {.claimedLength = 0xFFFFFFFF},     7,          99},
        {"length before echo",    Model::kK40, {.claimedLength = 65, .echo = 76}, 7,          99},
        {"echo before status",    Model::kK40, {.status = 5, .echo = 76},         6,          99},
        {"status",                Model::kK40, {.status = 5},                     5,          99},
        {"status is signed",      Model::kK40, {.status = 0xF0},                  -16,        99},
        {"ioctl is interrupted",  Model::kK40, {.error = EINTR},                  6,          99},
        {"accepted",              Model::kK44, {.reply = {1, 2, 3}},              0,          3},
        {"status",                Model::kK44, {.status = 5, .reply = {1}},       5,          1},
        {"status of 32 bits",     Model::kK50, {.status = 0x12345678},            0x12345678, 0},
        {"negative status",       Model::kK44, {.status = -2},                    -2,         0},
        {"ioctl is interrupted",  Model::kK50, {.error = EINTR},                  6,          0},
        // clang-format on
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(ModelName(c.model) + ": " + c.what);
        Open(c.model);
        driver.AnswerNext(c.answer);
        length = 99;
        Expect({{CALL(PerformUSBIO(75, 1, nullptr, 0, reply, &length)),
                 c.error == 0,
                 c.error,
                 {{75, 1, {}}}}});  // once, whatever came of it
        EXPECT_EQ(length, c.length);
    }
}

TEST_F(TransportTest, BadCallsAreRefusedBeforeAnythingIsSent) {
    const Exchanges nothing;
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        AcceptEverything();
        const bool k40 = model == Model::kK40;
        const Exchanges onChannel8 = {{75, 8, {}}};
        const Exchanges whole = {{75, 7, Bytes(payload, payload + 512)}};
        const Exchanges lessOne = {{75, 7, Bytes(payload, payload + 511)}};
        // clang-format off
        Expect({
            {CALL(PerformUSBIO(75, 8, payload, 512, reply, nullptr)), 0, 30, {}},
            {CALL(PerformUSBIO(75, 8, nullptr, 1, reply, &length)),   0, 30, {}},
            {CALL(PerformUSBIO(75, 8, nullptr, 0, reply, &length)),
             k40, k40 ? 0 : 3, k40 ? onChannel8 : nothing},
            {CALL(PerformUSBIO(75, 7, payload, 512, reply, &length)),
             !k40, k40 ? 7 : 0, k40 ? nothing : whole},
            {CALL(PerformUSBIO(75, 7, payload, 511, reply, &length)), 1, 0, lessOne},
        });
        // clang-format on
    }
}

TEST_F(TransportTest, SuccessClearsTheLastErrorOnAllButTheK40) {
    for (const Model model : kModels) {
        Open(model);
        ASSERT_EQ(board.GetInputBit(static_cast<_usbInputBitId>(33), &bit), 0);
        ASSERT_EQ(board.GetInputBit(USB_INPUT_0, &bit), 1);
        EXPECT_EQ(board.GetLastError(), model == Model::kK40 ? 8 : 0);
        EXPECT_EQ(board.ClearErrors(), 1);
        EXPECT_EQ(board.GetLastError(), 0);
    }
}

TEST_F(TransportTest, EachThreadHasItsOwnLastError) {
    Open(Model::kK44);
    EXPECT_EQ(board.GetInputs(static_cast<usbInput*>(nullptr)), 0);
    std::thread([&] {
        EXPECT_EQ(board.GetLastError(), 0);
        board.GetInputBit(static_cast<_usbInputBitId>(99), &bit);
        EXPECT_EQ(board.GetLastError(), 8);
    }).join();
    EXPECT_EQ(board.GetLastError(), 30);
}

}  // namespace
