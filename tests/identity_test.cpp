/**
 * @file identity_test.cpp
 * @brief Replies of any length, Dallas numbers, SPI transfers and SEC frames.
 */
#include <algorithm>
#include <utility>

#include "board_test.h"

namespace {

class IdentityTest : public BoardTest {
protected:
    unsigned char data[2] = {1, 2};
};

// Into buffers whose size the operation is not told: as long as the longest reply.
TEST_F(IdentityTest, WholeRepliesAreCopiedAsFarAsTheyCame) {
    struct Case {
        Model model;
        DriverAnswer answer;
        std::size_t length, sevens;  // behind the sevens: zeroes, which did not come
    };
    const Case cases[] = {
        {Model::kK40, {.reply = Bytes(62, 7)}, 62, 62},
        {Model::kK44, {.reply = Bytes(256, 7)}, 256, 256},
        {Model::kK44, {.reply = Bytes(9, 7), .claimedLength = 2}, 2, 2},
        {Model::kK50, {.reply = Bytes(256, 7), .claimedLength = 257}, 256, 256},
        {Model::kK50, {.reply = Bytes(3, 7), .claimedLength = ~0UL}, 256, 3},
    };
    for (const Case& c : cases) {
        Open(c.model);
        driver.AnswerWith([&](const Exchange&) { return c.answer; });
        Bytes target;
        unsigned long length = 99;
        const auto expect = [&](const std::function<int()>& call) {
            target.assign(c.model == Model::kK40 ? 62 : 256, 0xEE);  // AddressSanitizer guards it
            Bytes expected = target;
            std::fill_n(std::fill_n(expected.begin(), c.sevens, 7), c.length - c.sevens, 0);
            EXPECT_EQ(call(), 1);
            EXPECT_EQ(target, expected);
        };
        expect([&] { return board.Get8051Version(target.data()); });
        expect([&] { return board.SendSPI(8, data, 5, 0, target.data()); });
        if (c.model == Model::kK40) continue;
        expect([&] { return board.ReadDiagnosticData(data, 1, target.data(), &length); });
        EXPECT_EQ(length, c.length);
    }
}

TEST_F(IdentityTest, DiagnosticRequestsGoOutAsTheyAreWhateverTheirLength) {
    Open(Model::kK44);
    AcceptEverything();
    unsigned long length = 99;
    for (const std::size_t size : {0UL, 300UL, 5000UL}) {
        Bytes request(size + 1, 7);
        const Bytes payload(size, 7);
        const Exchanges written = {{129, 1, payload}}, read = {{128, 1, payload}};
        Expect({{CALL(WriteDiagnosticData(request.data(), size)), 1, 0, written},
                {CALL(ReadDiagnosticData(request.data(), size, data, &length)), 1, 0, read}});
        EXPECT_EQ(length, 0U);
    }
}

TEST_F(IdentityTest, DallasNumberHasEightBytesAndIsValidWhenItsCrcIsRight) {
    const Bytes right = {0x02, 0x1C, 0xB8, 0x01, 0x00, 0x00, 0x00, 0xA2};
    const Bytes another = {9, 17, 34, 51, 68, 85, 102, 0x84};
    std::vector<std::pair<Bytes, bool>> replies = {
        {right, true},    {another, true},
        {Bytes(8), true}, {{0x02, 0x1C, 0xB8, 0x01, 0, 0, 0, 0xA2, 5, 6}, true},
        {{}, false},      {Bytes(7), false},  // though the CRC of zeroes is right
    };
    for (unsigned bit = 0; bit < 64; ++bit) {
        Bytes wrong = right;
        wrong[bit / 8] = static_cast<std::uint8_t>(wrong[bit / 8] ^ 1U << bit % 8);
        replies.emplace_back(wrong, false);
    }
    Open(Model::kK44);
    for (auto& [reply, isValid] : replies) {
        driver.AnswerNext({.reply = reply});
        Bytes serial(8, 0xEE);
        unsigned char valid = 99;
        EXPECT_EQ(board.GetDallasSerialNumber(serial.data(), &valid), 1);
        reply.resize(8);
        EXPECT_EQ(serial, reply);
        EXPECT_EQ(valid, isValid ? 1 : 0);
    }
}

TEST_F(IdentityTest, SpiSendsWholeBytesAndSecFramesAreSummedUp) {
    unsigned char reply[256];
    Open(Model::kK40);
    AcceptEverything();
    // clang-format off
    Expect({
        {CALL(SendSPI(1, data, 200, 0, reply)), 1, 0, {{96, 7, {1, 0, 200, 1}}}},
        {CALL(SendSPI(8, data, 200, 3, reply)), 1, 0, {{96, 7, {8, 3, 200, 1}}}},
        {CALL(SendSPI(9, data, 200, 3, reply)), 1, 0, {{96, 7, {9, 3, 200, 1, 2}}}},
        // bits out, bits back, control; then the frame: headers, length, data, checksum
        {CALL(SendSEC(250, 10, 0, data, 77, 0, reply)), 1, 0,
         {{96, 7, {32, 32, 77, 250, 10, 0, 4}}}},
        {CALL(SendSEC(250, 10, 2, data, 77, 3, reply)), 1, 0,
         {{96, 7, {48, 56, 77, 250, 10, 2, 1, 2, 9}}}},
    });
    // clang-format on
}

}  // namespace
