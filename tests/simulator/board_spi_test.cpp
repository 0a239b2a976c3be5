// The SPI port: what is sent back, queued replies and SEC frames.
#include "board_spi.h"

#include "model_expectations.h"

namespace simulator {
namespace {

constexpr int kMalformed = 102, kOutOfRange = 103, kSwitchedOff = 108;

class BoardSpiTest : public testing::TestWithParam<Model> {
protected:
    void SetUp() override { ASSERT_EQ(board.Handle(94, 7, {}), Accepted()); }
    Answer Transfer(const Bytes& payload) { return board.Handle(96, 7, payload); }

    Board board{{.model = GetParam()}};
};

INSTANTIATE_TEST_SUITE_P(Models, BoardSpiTest,
                         testing::Values(Model::kK40, Model::kK44, Model::kK50));

Bytes WithZeroes(Bytes bytes, std::size_t count) {
    bytes.resize(bytes.size() + count);
    return bytes;
}

TEST_P(BoardSpiTest, SendsBackWholeBytes) {
    struct Case {
        const char* what;
        Bytes payload;
        Answer answer;
    };
    const Case cases[] = {
        {"as many bits", {8, 8, 0, 7}, Accepted({7})},
        {"9 bits", {9, 9, 0, 7, 8}, Accepted({7, 8})},
        {"fewer bits back", {16, 1, 0, 7, 8}, Accepted({7})},
        {"more bits back", {8, 17, 0, 7}, Accepted({7, 0, 0})},
        {"none back", {8, 0, 0, 7}, Accepted()},
        {"most", WithZeroes({160, 160, 0}, 20), Accepted(Bytes(20, 0))},
        {"nothing sent", {0, 8, 0}, Refused(kOutOfRange)},
        {"too many bits", WithZeroes({161, 8, 0}, 21), Refused(kOutOfRange)},
        {"too many bits back", {8, 161, 0, 7}, Refused(kOutOfRange)},
        {"byte missing", {9, 8, 0, 7}, Refused(kMalformed)},
        {"byte too many", {8, 8, 0, 7, 8}, Refused(kMalformed)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(Transfer(c.payload), c.answer);
    }
}

TEST_P(BoardSpiTest, FramesAreAnsweredWithFrames) {
    struct Case {
        const char* what;
        Bytes payload, reply;
        unsigned right, wrong;
    };
    const Case cases[] = {
        {"same length", {48, 48, 0, 0x90, 0xA0, 2, 5, 6, 0x3D}, {0xA0, 0x90, 2, 5, 6, 0x3D}, 1, 0},
        {"shorter answer", {48, 40, 0, 0x90, 0xA0, 2, 5, 6, 0x3D}, {0xA0, 0x90, 1, 5, 0x36}, 1, 0},
        {"longer answer", {32, 40, 0, 1, 2, 0, 3}, {2, 1, 1, 0, 4}, 1, 0},
        {"no room for a frame", {32, 24, 0, 1, 2, 0, 3}, {2, 1, 0}, 1, 0},
        {"wrong checksum", {32, 32, 0, 1, 2, 0, 4}, {1, 2, 0, 4}, 0, 1},
        {"other number of data", {40, 40, 0, 1, 2, 2, 0, 5}, {1, 2, 2, 0, 5}, 0, 0},
        {"too short", {24, 24, 0, 1, 2, 0}, {1, 2, 0}, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        board.PowerUp();
        board.Handle(94, 7, {});
        EXPECT_EQ(Transfer(c.payload), Accepted(c.reply));
        EXPECT_EQ(board.spi.RightFrames(), c.right);
        EXPECT_EQ(board.spi.WrongFrames(), c.wrong);
    }
    Bytes longest = WithZeroes({160, 160, 0, 1, 2, 16}, 16);
    longest.push_back(19);
    EXPECT_EQ(Transfer(longest).reply.size(), 20u);
    EXPECT_EQ(Transfer(longest).reply[19], 19);
}

TEST_P(BoardSpiTest, QueuedRepliesComeFirstAndInOrder) {
    board.spi.QueueReply({1, 2, 3});
    board.spi.QueueReply({4});
    board.PowerUp();
    board.Handle(94, 7, {});
    EXPECT_EQ(Transfer({32, 16, 0, 1, 2, 0, 3}), Accepted({1, 2})) << "to a frame";
    EXPECT_EQ(Transfer({8, 16, 0, 9}), Accepted({4, 0}));
    EXPECT_EQ(Transfer({8, 16, 0, 9}), Accepted({9, 0}));
}

TEST_P(BoardSpiTest, PortThatIsOffTransfersNothing) {
    board.spi.QueueReply({1});
    EXPECT_EQ(board.Handle(95, 7, {}), Accepted());
    EXPECT_EQ(Transfer({8, 8, 5, 9}), Refused(kSwitchedOff));
    EXPECT_EQ(board.spi.QueuedReplies(), 1u);
    EXPECT_EQ(board.spi.Control(), 0);
    board.Handle(94, 7, {});
    EXPECT_EQ(Transfer({8, 8, 5, 9}), Accepted({1}));
    EXPECT_EQ(board.spi.Control(), 5);
    board.PowerUp();
    EXPECT_EQ(Transfer({8, 8, 5, 9}), Refused(kSwitchedOff));
}

}  // namespace
}  // namespace simulator
