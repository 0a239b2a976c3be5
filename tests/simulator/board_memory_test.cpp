// Reads and writes of the memory: where they land, and what lies outside it.
#include "board_memory.h"

#include "model_expectations.h"

namespace simulator {
namespace {

constexpr int kMalformed = 102, kOutOfRange = 103, kTooLong = 104;

Bytes WithData(Bytes header, std::size_t count, std::uint8_t value) {
    header.insert(header.end(), count, value);
    return header;
}

TEST(BoardMemoryTest, AcceptsWhatItHasAndRefusesTheRest) {
    struct Case {
        const char* what;
        Model model;
        std::uint8_t command;
        Bytes payload;
        int status;
    };
    const Case cases[] = {
        {"K40 first byte", Model::kK40, 71, {1, 0, 0, 9}, 0},
        {"K40 last byte", Model::kK40, 71, {1, 255, 255, 9}, 0},
        {"K40 past the last", Model::kK40, 71, {2, 255, 255, 9, 9}, kOutOfRange},
        {"K40 no data", Model::kK40, 71, {0, 0, 0}, kOutOfRange},
        {"K40 fewer data than said", Model::kK40, 71, {3, 0, 0, 9, 9}, kMalformed},
        {"K40 more data than said", Model::kK40, 71, {1, 0, 0, 9, 9}, kMalformed},
        {"K40 longest read", Model::kK40, 70, {62, 0, 0}, 0},
        {"K40 read longer than a reply", Model::kK40, 70, {63, 0, 0}, kTooLong},
        {"K40 read of nothing", Model::kK40, 70, {0, 0, 0}, kOutOfRange},
        {"K40 read past the last", Model::kK40, 70, {2, 255, 255}, kOutOfRange},

        {"K44 page 0", Model::kK44, 117, {1, 0, 0, 0, 0, 9}, kOutOfRange},
        {"K44 page 1", Model::kK44, 117, {1, 0, 1, 0, 0, 9}, 0},
        {"K44 program page", Model::kK44, 117, {1, 0, 13, 0, 0, 9}, 0},
        {"K44 last page, last byte", Model::kK44, 117, {1, 0, 32, 255, 63, 9}, 0},
        {"K44 past the last page", Model::kK44, 117, {1, 0, 33, 0, 0, 9}, kOutOfRange},
        {"K44 across two pages", Model::kK44, 117, {2, 0, 1, 255, 63, 9, 9}, kOutOfRange},
        {"K44 offset past the page", Model::kK44, 117, {1, 0, 1, 0, 64, 9}, kOutOfRange},
        {"K44 second byte not 0", Model::kK44, 117, {1, 1, 1, 0, 0, 9}, kMalformed},
        {"K44 longest read", Model::kK44, 116, {252, 0, 1, 0, 0}, 0},
        {"K44 read too long", Model::kK44, 116, {253, 0, 1, 0, 0}, kTooLong},
        {"K44 read across two pages", Model::kK44, 116, {2, 0, 1, 255, 63}, kOutOfRange},
        {"K44 read, second byte not 0", Model::kK44, 116, {1, 1, 1, 0, 0}, kMalformed},
        {"K50 last page", Model::kK50, 117, {1, 0, 64, 255, 63, 9}, 0},
        {"K50 past the last page", Model::kK50, 117, {1, 0, 65, 0, 0, 9}, kOutOfRange},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Board board({.model = c.model});
        EXPECT_EQ(board.Handle(c.command, 6, c.payload).status, c.status);
    }
}

TEST(BoardMemoryTest, BusSpeedBoundsATransfer) {
    struct Case {
        Model model;
        int speedMbit;
        std::size_t longestWrite, longestRead;
    };
    const Case cases[] = {
        {Model::kK40, 480, 249, 62}, {Model::kK40, 12, 57, 62},    {Model::kK44, 480, 247, 252},
        {Model::kK44, 12, 55, 60},   {Model::kK50, 480, 247, 252}, {Model::kK50, 12, 55, 60},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << static_cast<int>(c.model) << " at " << c.speedMbit);
        Board board({.model = c.model, .speedMbit = c.speedMbit});
        const bool flat = c.model == Model::kK40;
        const auto header = [&](std::size_t count) {
            const auto length = static_cast<std::uint8_t>(count);
            return flat ? Bytes{length, 0, 0} : Bytes{length, 0, 1, 0, 0};
        };
        const auto write = [&](std::size_t count) {
            return board.Handle(flat ? 71 : 117, 6, WithData(header(count), count, 7)).status;
        };
        const auto read = [&](std::size_t count) {
            return board.Handle(flat ? 70 : 116, 6, header(count));
        };
        EXPECT_EQ(write(c.longestWrite), 0);
        EXPECT_EQ(write(c.longestWrite + 1), kTooLong);
        EXPECT_EQ(read(c.longestRead).reply.size(), c.longestRead);
        EXPECT_EQ(read(c.longestRead + 1), Refused(kTooLong));
    }
}

TEST(BoardMemoryTest, ReadsBackWhatWasWrittenAndNothingElse) {
    Board k40({.model = Model::kK40});
    k40.Handle(71, 6, Bytes{3, 0x34, 0x12, 1, 2, 3});
    EXPECT_EQ(k40.Handle(70, 6, Bytes{5, 0x33, 0x12}), Accepted({0, 1, 2, 3, 0}));
    EXPECT_EQ(k40.memory.Bytes(0, 0x1234, 3)[1], 2);

    Board k44({.model = Model::kK44});
    k44.Handle(117, 6, Bytes{2, 0, 12, 0xFE, 0x3F, 5, 6});
    k44.Handle(117, 6, Bytes{1, 0, 16, 0, 0, 8});
    EXPECT_EQ(k44.Handle(116, 6, Bytes{3, 0, 12, 0xFD, 0x3F}), Accepted({0, 5, 6}));
    EXPECT_EQ(k44.Handle(116, 6, Bytes{2, 0, 13, 0, 0}), Accepted({0, 0}));
    EXPECT_EQ(k44.Handle(116, 6, Bytes{2, 0, 16, 0, 0}), Accepted({8, 0}));
    EXPECT_EQ(k44.memory.Bytes(12, 0x3FFE, 2)[1], 6);
    EXPECT_TRUE(k44.memory.Bytes(12, 0x3FFF, 2).empty());
    EXPECT_TRUE(k44.memory.Bytes(0, 0, 1).empty());
}

}  // namespace
}  // namespace simulator
