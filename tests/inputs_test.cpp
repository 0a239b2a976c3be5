/**
 * @file inputs_test.cpp
 * @brief Reading inputs: payloads, order of checks, and replies of every length.
 */
#include <cstring>
#include <functional>

#include "board_test.h"

namespace {

class InputsTest : public BoardTest {};

using ReadImage = int (MarvaneUSB::*)(usbInput*);

struct ImageOperation {
    const char* name;
    int command;
    ReadImage read;
};

constexpr ImageOperation kImageOperations[] = {
    {"GetInputs", 75, static_cast<ReadImage>(&MarvaneUSB::GetInputs)},
    {"GetChangedInputs", 81, &MarvaneUSB::GetChangedInputs},
    {"GetRawInputs", 82, &MarvaneUSB::GetRawInputs},
};

const char* Bits(const void* record, std::size_t size) {
    static char text[64];
    std::size_t used = 0;
    for (std::size_t i = 0; i < size; ++i) {
        used += static_cast<std::size_t>(std::snprintf(
            text + used, sizeof text - used, "%d ", static_cast<const unsigned char*>(record)[i]));
    }
    return text;
}

TEST_F(InputsTest, ImagesHoldTheFirstFiveBytesAndReadZeroWhereNothingCame) {
    struct Case {
        const char* what;
        DriverAnswer answer;
        const char* image;
    };
    const Case cases[] = {
        {"five bytes", {.reply = {1, 2, 3, 4, 255}}, "1 2 3 4 255 "},
        {"more", {.reply = {1, 2, 3, 4, 5, 6, 7}}, "1 2 3 4 5 "},
        {"two", {.reply = {1, 2}}, "1 2 0 0 0 "},
        {"none", {}, "0 0 0 0 0 "},
        {"more sent than claimed", {.reply = {1, 2, 3, 4, 5}, .claimedLength = 1}, "1 0 0 0 0 "},
        {"more claimed than sent", {.reply = {1}, .claimedLength = 1UL << 40}, "1 0 0 0 0 "},
    };
    for (const Model model : kModels) {
        Open(model);
        for (const ImageOperation& operation : kImageOperations) {
            for (const Case& c : cases) {
                SCOPED_TRACE(std::string(ModelName(model)) + operation.name + ": " + c.what);
                if (model == Model::kK40 && c.answer.claimedLength) continue;
                StartAfresh();
                driver.AnswerNext(c.answer);
                usbInput image;
                std::memset(&image, 0xEE, sizeof image);
                EXPECT_EQ((board.*operation.read)(&image), 1);
                EXPECT_STREQ(Bits(&image, sizeof image), c.image);
                EXPECT_EQ(driver.Sent(), Exchanges({{operation.command, 1, {}}}));
            }
        }
    }
}

TEST_F(InputsTest, FailureLeavesTheRecordAlone) {
    Open(Model::kK44);
    for (const ImageOperation& operation : kImageOperations) {
        SCOPED_TRACE(operation.name);
        StartAfresh();
        EXPECT_EQ((board.*operation.read)(nullptr), 0);
        EXPECT_EQ(board.GetLastError(), 30);
        EXPECT_EQ(driver.Sent(), Exchanges());

        driver.AnswerNext({.status = 4, .reply = {9, 9, 9, 9, 9}});
        usbInput image = {{1, 2, 3, 4, 5}};
        EXPECT_EQ((board.*operation.read)(&image), 0);
        EXPECT_EQ(board.GetLastError(), 4);
        EXPECT_STREQ(Bits(&image, sizeof image), "1 2 3 4 5 ");
    }
}

TEST_F(InputsTest, ByteFormWritesAsFarAsTheReplyCameAndNeverPastFive) {
    Open(Model::kK50);
    struct Case {
        DriverAnswer answer;
        int result;
        const char* buffer;
    };
    const Case cases[] = {
        {{.reply = {1, 2, 3, 4, 5}}, 1, "1 2 3 4 5 238 "},
        {{.reply = {1, 2, 3, 4, 5, 6, 7}}, 1, "1 2 3 4 5 238 "},
        {{.reply = {1, 2}}, 1, "1 2 238 238 238 238 "},
        {{.reply = {1, 2}, .claimedLength = ~0UL}, 1, "1 2 0 0 0 238 "},
        {{.status = 9, .reply = {1, 2}}, 0, "238 238 238 238 238 238 "},
    };
    for (const Case& c : cases) {
        StartAfresh();
        driver.AnswerNext(c.answer);
        unsigned char buffer[6];
        std::memset(buffer, 238, sizeof buffer);
        EXPECT_EQ(board.GetInputs(buffer), c.result);
        EXPECT_STREQ(Bits(buffer, sizeof buffer), c.buffer);
    }
    StartAfresh();
    EXPECT_EQ(board.GetInputs(static_cast<unsigned char*>(nullptr)), 0);
    EXPECT_EQ(board.GetLastError(), 30);
    EXPECT_EQ(driver.Sent(), Exchanges());
}

TEST_F(InputsTest, InputBitIsTakenFromItsPlaceInTheImage) {
    Open(Model::kK40);
    const Bytes image = {0x01, 0x80, 0x10, 0x00, 0x01};
    for (unsigned input = 0; input <= 32; ++input) {
        SCOPED_TRACE(input);
        StartAfresh();
        driver.AnswerNext({.reply = image});
        unsigned int value = 77;
        EXPECT_EQ(board.GetInputBit(static_cast<_usbInputBitId>(input), &value), 1);
        EXPECT_EQ(value, input == 0 || input == 15 || input == 20 || input == 32 ? 1U : 0U);
        EXPECT_EQ(driver.Sent(), Exchanges({{75, 1, {}}}));
    }
}

TEST_F(InputsTest, InputBitChecksPointerThenRange) {
    Open(Model::kK44);
    unsigned int value = 77;
    EXPECT_EQ(board.GetInputBit(static_cast<_usbInputBitId>(40), nullptr), 0);
    EXPECT_EQ(board.GetLastError(), 30);
    for (const unsigned input : {33U, 255U, 0x80000000U, 0xFFFFFFFFU}) {
        board.ClearErrors();
        EXPECT_EQ(board.GetInputBit(static_cast<_usbInputBitId>(input), &value), 0);
        EXPECT_EQ(board.GetLastError(), 8);
    }
    EXPECT_EQ(driver.Sent(), Exchanges());
    driver.AnswerNext({.error = 5});
    EXPECT_EQ(board.GetInputBit(USB_INPUT_0, &value), 0);
    EXPECT_EQ(value, 77U);

    driver.AnswerNext({.reply = {0xFF}});  // a bit that did not come is 0
    EXPECT_EQ(board.GetInputBit(USB_INPUT_32, &value), 1);
    EXPECT_EQ(value, 0U);
}

TEST_F(InputsTest, MultiplexingSendsItsModeOrNothing) {
    struct Case {
        int mode, result, error;
        Exchanges sent;
    };
    const Case cases[] = {
        {0, 1, 0, {{114, 1, {0}}}},
        {1, 1, 0, {{114, 1, {1}}}},
        {2, 0, 8, {}},
        {-1, 0, 8, {}},
        {256, 0, 8, {}},
        {INT32_MIN, 0, 8, {}},
    };
    Open(Model::kK44);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.mode);
        StartAfresh();
        EXPECT_EQ(board.InputMultiplexing(static_cast<usbInputMultiplexing>(c.mode)), c.result);
        EXPECT_EQ(board.GetLastError(), c.error);
        EXPECT_EQ(driver.Sent(), c.sent);
    }
}

TEST_F(InputsTest, MultiplexedInputsAreLeadByteAndFourGroups) {
    Open(Model::kK50);
    driver.AnswerNext({.reply = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}});
    usbMultiplexedInput inputs;
    std::memset(&inputs, 0xEE, sizeof inputs);
    EXPECT_EQ(board.GetMultiplexedInputs(&inputs), 1);
    EXPECT_EQ(driver.Sent(), Exchanges({{115, 1, {}}}));
    EXPECT_EQ(inputs.leadByte, 1);
    EXPECT_EQ(inputs.groups[0][0], 2);
    EXPECT_EQ(inputs.groups[3][2], 13);
    static_assert(sizeof inputs == 13);

    driver.AnswerNext({.reply = {1, 2, 3}});
    EXPECT_EQ(board.GetMultiplexedInputs(&inputs), 1);
    EXPECT_STREQ(Bits(&inputs, sizeof inputs), "1 2 3 0 0 0 0 0 0 0 0 0 0 ");
    EXPECT_EQ(board.GetMultiplexedInputs(nullptr), 0);
    EXPECT_EQ(board.GetLastError(), 30);
}

}  // namespace
