// The input images, the report of changes and the multiplexed image.
#include "board_inputs.h"

#include "model_expectations.h"

namespace simulator {
namespace {

class BoardInputsTest : public testing::TestWithParam<Model> {
protected:
    Answer Image() { return board.Handle(75, 1, {}); }
    Answer Changes() { return board.Handle(81, 1, {}); }
    Answer RawImage() { return board.Handle(82, 1, {}); }
    Answer Multiplexed() { return board.Handle(115, 1, {}); }

    Board board{{.model = GetParam()}};
};

INSTANTIATE_TEST_SUITE_P(Models, BoardInputsTest,
                         testing::Values(Model::kK40, Model::kK44, Model::kK50));

TEST_P(BoardInputsTest, InputIsOneBitOfBothImages) {
    struct Case {
        unsigned input;
        Bytes image;
    };
    const Case cases[] = {
        {0, {1, 0, 0, 0, 0}},  {7, {128, 0, 0, 0, 0}},  {8, {0, 1, 0, 0, 0}},
        {24, {0, 0, 0, 1, 0}}, {31, {0, 0, 0, 128, 0}}, {32, {0, 0, 0, 0, 1}},
    };
    for (const Case& c : cases) {
        board.inputs.Set(c.input, true);
        EXPECT_EQ(Image(), Accepted(c.image)) << c.input;
        EXPECT_EQ(RawImage(), Accepted(c.image)) << c.input;
        board.inputs.Set(c.input, false);
        EXPECT_EQ(Image(), Accepted({0, 0, 0, 0, 0})) << c.input;
    }
    board.inputs.Set(33, true);
    board.inputs.Set(0xFFFFFFFF, true);
    EXPECT_EQ(Image(), Accepted({0, 0, 0, 0, 0}));
}

TEST_P(BoardInputsTest, EachChangeIsReportedOnce) {
    EXPECT_EQ(Changes(), Accepted({0, 0, 0, 0, 0}));
    board.inputs.Set(3, true);
    board.inputs.Set(9, true);
    EXPECT_EQ(Changes(), Accepted({8, 2, 0, 0, 0}));
    EXPECT_EQ(Changes(), Accepted({0, 0, 0, 0, 0}));

    board.inputs.Set(3, true);  // is on already
    EXPECT_EQ(Changes(), Accepted({0, 0, 0, 0, 0}));
    board.inputs.Set(9, false);
    board.inputs.Set(9, true);  // as before the first of the two
    EXPECT_EQ(Changes(), Accepted({0, 2, 0, 0, 0}));
}

TEST_P(BoardInputsTest, ShortContactShowsOnlyInTheRawImage) {
    board.inputs.SetContact(5, true);
    EXPECT_EQ(RawImage(), Accepted({32, 0, 0, 0, 0}));
    EXPECT_EQ(Image(), Accepted({0, 0, 0, 0, 0}));
    EXPECT_EQ(Changes(), Accepted({0, 0, 0, 0, 0}));

    board.inputs.Set(5, false);
    EXPECT_EQ(RawImage(), Accepted({0, 0, 0, 0, 0}));
}

TEST_P(BoardInputsTest, IdentityIsInputs24To26) {
    for (std::uint8_t identity = 0; identity < 8; ++identity) {
        board.inputs.SetIdentity(identity);
        EXPECT_EQ(Image(), Accepted({0, 0, 0, identity, 0}));
    }
    board.inputs.SetIdentity(8);
    EXPECT_EQ(Image(), Accepted({0, 0, 0, 7, 0}));
}

TEST_P(BoardInputsTest, MatrixIsScannedWhileMultiplexingIsOn) {
    board.inputs.SetMultiplexed(0, true);
    board.inputs.SetMultiplexed(24, true);
    board.inputs.SetMultiplexed(95, true);
    board.inputs.SetMultiplexed(96, true);
    EXPECT_EQ(Multiplexed(), Accepted(Bytes(13, 0)));

    EXPECT_EQ(board.Handle(114, 1, Bytes{1}), Accepted());
    EXPECT_EQ(Multiplexed(), Accepted({1, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 128}));
    EXPECT_EQ(board.Handle(114, 1, Bytes{2}), Refused(103));
    EXPECT_EQ(Multiplexed(), Accepted({1, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 128}));
    EXPECT_EQ(board.Handle(114, 1, Bytes{0}), Accepted());
    EXPECT_EQ(Multiplexed(), Accepted(Bytes(13, 0)));
}

}  // namespace
}  // namespace simulator
