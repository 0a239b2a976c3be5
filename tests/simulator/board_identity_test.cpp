// Versions, serial numbers and random numbers.
#include "board_identity.h"

#include "model_expectations.h"

namespace simulator {
namespace {

constexpr int kUnknown = 100, kMalformed = 102, kSwitchedOff = 108;

TEST(BoardIdentityTest, VersionsAreTwoBytesEach) {
    for (const Model model : {Model::kK40, Model::kK44, Model::kK50}) {
        Board board({.model = model});
        EXPECT_EQ(board.Handle(6, 2, {}), Accepted({1, 2}));
        EXPECT_EQ(board.Handle(44, 5, {}), Accepted({2, 5}));
    }
}

TEST(BoardIdentityTest, DallasNumberEndsWithItsCrc) {
    struct Case {
        std::uint32_t number;
        Bytes dallas;
    };
    const Case cases[] = {
        {1, {1, 1, 0, 0, 0, 0, 0, 0x0A}},
        {0x01020304, {1, 4, 3, 2, 1, 0, 0, 0x03}},
    };
    for (const Case& c : cases) {
        Board board({.model = Model::kK44, .serialNumber = c.number});
        EXPECT_EQ(board.Handle(120, 5, {}), Accepted(c.dallas)) << c.number;
    }
    EXPECT_EQ(Board({.model = Model::kK40}).Handle(120, 5, {}), Refused(kUnknown));
}

TEST(BoardIdentityTest, PicSerialIsDigitsUntilItIsSet) {
    Board board({.model = Model::kK40, .serialNumber = 1234567});
    EXPECT_EQ(board.Handle(63, 5, {}), Accepted({'0', '1', '2', '3', '4', '5', '6', '7'}));
    EXPECT_EQ(board.Handle(65, 5, Bytes{9, 8, 7, 6, 5, 4, 3}), Refused(kMalformed));
    EXPECT_EQ(board.Handle(65, 5, Bytes{9, 8, 7, 6, 5, 4, 3, 0}), Accepted());
    board.PowerUp();
    EXPECT_EQ(board.Handle(63, 5, {}), Accepted({9, 8, 7, 6, 5, 4, 3, 0}));
}

TEST(BoardRandomTest, GivesNumbersWhileItIsOn) {
    std::uint16_t next = 0x1234;
    Board board({.random = [&next] { return next++; }});
    EXPECT_EQ(board.Handle(68, 5, {}), Refused(kSwitchedOff));
    EXPECT_EQ(board.Handle(69, 5, Bytes{1, 2, 3, 4}), Accepted());
    EXPECT_EQ(board.random.Argument(), 0x04030201u);
    EXPECT_EQ(board.Handle(68, 5, {}), Accepted({0x34, 0x12}));
    EXPECT_EQ(board.Handle(68, 5, {}), Accepted({0x35, 0x12}));

    EXPECT_EQ(board.Handle(118, 5, {}), Accepted());
    EXPECT_EQ(board.Handle(68, 5, {}), Refused(kSwitchedOff));
    board.Handle(69, 5, Bytes{0, 0, 0, 0});
    board.PowerUp();
    EXPECT_EQ(board.Handle(68, 5, {}), Refused(kSwitchedOff));
}

TEST(BoardRandomTest, SeedDecidesTheNumbers) {
    const auto numbers = [](unsigned seed) {
        std::vector<std::uint16_t> drawn;
        RandomSource source = SeededRandom(seed);
        for (int i = 0; i < 8; ++i)
            drawn.push_back(source());
        return drawn;
    };
    EXPECT_EQ(numbers(7), numbers(7));
    EXPECT_NE(numbers(7), numbers(8));
}

}  // namespace
}  // namespace simulator
