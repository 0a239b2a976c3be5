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

    template <class Pointer>
    static std::uint64_t Address(Pointer* pointer) {
        return reinterpret_cast<std::uint64_t>(pointer);
    }

    unsigned char reply[256] = {};
    unsigned long replyLength = 0;
    unsigned int bitOfOtherThread = 0;
};

TEST_F(TransportTest, K40RecordHoldsCommandAndPayloadAndTakesTheReplyInTheirPlace) {
    Open(Model::kK40);
    driver.AnswerNext({.reply = {0xA1, 0xA2, 0xA3}});
    unsigned char payload[] = {9, 8, 7};
    ASSERT_EQ(board.PerformUSBIO(0x6B, 5, payload, 3, reply, &replyLength), 1);

    EXPECT_EQ(driver.LastRequest(), 0xC2108100UL);
    EXPECT_EQ(driver.LastRecord().size(), 528U);
    EXPECT_EQ(Field(0, 4), 5U);    // write channel
    EXPECT_EQ(Field(4, 4), 5U);    // read channel
    EXPECT_EQ(Field(8, 4), 4U);    // command and payload
    EXPECT_EQ(Field(12, 4), 64U);  // longest reply
    EXPECT_EQ(Field(16, 4), 0x0708096BU);
    EXPECT_EQ(replyLength, 3U);
    EXPECT_EQ(Bytes(reply, reply + 4), Bytes({0xA1, 0xA2, 0xA3, 0}));
}

TEST_F(TransportTest, K44AndK50RecordsHoldPointersIntoTheCallersMemory) {
    for (const Model model : {Model::kK44, Model::kK50}) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        driver.AnswerNext({.reply = {0xA1, 0xA2}});
        unsigned char payload[] = {9, 8, 7};
        ASSERT_EQ(board.PerformUSBIO(0x80, 7, payload, 3, reply, &replyLength), 1);

        EXPECT_EQ(driver.LastRequest(), 0x8400UL);
        EXPECT_NE(Field(0, 8), 0U);  // status word
        EXPECT_EQ(Field(8, 4), 6U);  // channel 7
        EXPECT_EQ(Field(16, 8), Address(payload));
        EXPECT_EQ(Field(24, 8), 3U);
        EXPECT_EQ(Field(32, 8), Address(reply));
        EXPECT_EQ(Field(40, 8), Address(&replyLength));
        EXPECT_EQ(Field(48, 1), 0x80U);
        EXPECT_EQ(replyLength, 2U);
        EXPECT_EQ(Bytes(reply, reply + 3), Bytes({0xA1, 0xA2, 0}));
    }
}

TEST_F(TransportTest, K40ReplyIsCheckedForLengthThenEchoThenStatus) {
    Open(Model::kK40);
    struct Case {
        const char* what;
        DriverAnswer answer;
        int result, error;
        unsigned long length;
    };
    const Case cases[] = {
        // clang-format off
        {"empty",                  {.claimedLength = 2},                             1,    0,  0},
        {"longest",                {.reply = Bytes(62, 1)},                          1,    0, 62},
        {"one byte",               {.claimedLength = 1},                             0,    7, 99},
        {"no byte",                {.claimedLength = 0},                             0,    7, 99},
        {"65 bytes",               {.claimedLength = 65},                            0,    7, 99},
        {"huge",                   {.claimedLength = 0xFFFFFFFF},                    0,    7, 99},
        {"wrong echo",             {.echo = 76},                                     0,    6, 99},
        {"length before echo",     {.claimedLength = 65, .echo = 76},                0,    7, 99},
        {"echo before status",     {.status = 5, .echo = 76},                        0,    6, 99},
        {"status",                 {.status = 5},                                    0,    5, 99},
        {"status is signed",       {.status = 0xF0},                                 0,  -16, 99},
        {"status is signed, low",  {.status = 0x9C},                                 0, -100, 99},
        {"ioctl fails",            {.error = ENODEV},                                0,    6, 99},
        {"interrupted",            {.error = EINTR},                                 0,    6, 99},
        // clang-format on
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        StartAfresh();
        driver.AnswerNext(c.answer);
        replyLength = 99;
        EXPECT_EQ(board.PerformUSBIO(75, 1, nullptr, 0, reply, &replyLength), c.result);
        EXPECT_EQ(board.GetLastError(), c.error);
        EXPECT_EQ(replyLength, c.length);
        EXPECT_EQ(driver.Sent(), Exchanges({{75, 1, {}}}));  // once, whatever came of it
    }
}

TEST_F(TransportTest, K44AndK50PassTheStatusWordOn) {
    struct Case {
        const char* what;
        DriverAnswer answer;
        int result, error;
        unsigned long length;
    };
    const Case cases[] = {
        {"accepted", {.reply = {1, 2, 3}}, 1, 0, 3},
        {"status", {.status = 5, .reply = {1}}, 0, 5, 1},
        {"32-bit status", {.status = 0x12345678}, 0, 0x12345678, 0},
        {"negative status", {.status = -2}, 0, -2, 0},
        {"ioctl fails", {.error = EIO}, 0, 6, 0},
        {"interrupted", {.error = EINTR}, 0, 6, 0},
    };
    for (const Model model : {Model::kK44, Model::kK50}) {
        Open(model);
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(ModelName(model)) + ": " + c.what);
            StartAfresh();
            driver.AnswerNext(c.answer);
            replyLength = 99;
            EXPECT_EQ(board.PerformUSBIO(75, 1, nullptr, 0, reply, &replyLength), c.result);
            EXPECT_EQ(board.GetLastError(), c.error);
            EXPECT_EQ(replyLength, c.length);
            EXPECT_EQ(driver.Sent().size(), 1U);
        }
    }
}

TEST_F(TransportTest, BadCallsAreRefusedBeforeAnythingIsSent) {
    unsigned char payload[512] = {};
    struct Case {
        const char* what;
        int channel;
        unsigned char* in;
        unsigned long inLength;
        unsigned long* outLength;
        int k40Error, k44Error;
    };
    const Case cases[] = {
        {"no reply length", 8, payload, 512, nullptr, 30, 30},
        {"no payload", 8, nullptr, 1, &replyLength, 30, 30},
        {"channel 8", 8, nullptr, 0, &replyLength, 0, 3},
        {"512 bytes", 1, payload, 512, &replyLength, 7, 0},
        {"511 bytes", 7, payload, 511, &replyLength, 0, 0},
    };
    for (const Model model : kModels) {
        Open(model);
        driver.AnswerWith([](const Exchange&) { return DriverAnswer{}; });
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(ModelName(model)) + ": " + c.what);
            StartAfresh();
            const int error = model == Model::kK40 ? c.k40Error : c.k44Error;
            EXPECT_EQ(board.PerformUSBIO(75, c.channel, c.in, c.inLength, reply, c.outLength),
                      error == 0 ? 1 : 0);
            EXPECT_EQ(board.GetLastError(), error);
            EXPECT_EQ(driver.Sent().size(), error == 0 ? 1U : 0U);
        }
    }
}

TEST_F(TransportTest, K40NeedsNoReplyBuffer) {
    Open(Model::kK40);
    driver.AnswerNext({.reply = {1, 2, 3}});
    EXPECT_EQ(board.PerformUSBIO(75, 1, nullptr, 0, nullptr, &replyLength), 1);
    EXPECT_EQ(replyLength, 3U);
}

TEST_F(TransportTest, SuccessClearsTheLastErrorOnAllButTheK40) {
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        unsigned int bit = 0;
        ASSERT_EQ(board.GetInputBit(static_cast<_usbInputBitId>(33), &bit), 0);
        ASSERT_EQ(board.GetLastError(), 8);
        ASSERT_EQ(board.GetInputBit(USB_INPUT_0, &bit), 1);
        EXPECT_EQ(board.GetLastError(), model == Model::kK40 ? 8 : 0);
        EXPECT_EQ(board.ClearErrors(), 1);
        EXPECT_EQ(board.GetLastError(), 0);
    }
}

TEST_F(TransportTest, EachThreadHasItsOwnLastError) {
    Open(Model::kK44);
    EXPECT_EQ(board.GetInputs(static_cast<usbInput*>(nullptr)), 0);
    int fresh = -1;
    int failed = -1;
    std::thread other([&] {
        fresh = board.GetLastError();
        board.GetInputBit(static_cast<_usbInputBitId>(99), &bitOfOtherThread);
        failed = board.GetLastError();
    });
    other.join();
    EXPECT_EQ(fresh, 0);
    EXPECT_EQ(failed, 8);
    EXPECT_EQ(board.GetLastError(), 30);
}

}  // namespace
