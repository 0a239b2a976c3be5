// Which commands a board knows, on which channel, with which length of payload.
#include "board.h"

#include "model_expectations.h"

namespace simulator {
namespace {

constexpr int kUnknown = 100, kChannel = 101, kMalformed = 102;

TEST(BoardTest, RefusesWhatTheModelDoesNotKnow) {
    struct Case {
        const char* what;
        Model model;
        std::uint8_t command;
        std::uint32_t channel;
        int status;
        Bytes payload;
    };
    const Case cases[] = {
        {"no such command", Model::kK44, 0, 1, kUnknown, {}},
        {"inputs on another channel", Model::kK44, 75, 2, kChannel, {}},
        {"memory on another channel", Model::kK40, 70, 1, kChannel, {1, 0, 0}},
        {"channel 0", Model::kK50, 75, 0, kChannel, {}},
        {"no channel at all", Model::kK50, 75, 0xFFFFFFFF, kChannel, {}},
        {"paged read on a K40", Model::kK40, 116, 6, kUnknown, {1, 0, 1, 0, 0}},
        {"paged write on a K40", Model::kK40, 117, 6, kUnknown, {1, 0, 1, 0, 0, 9}},
        {"flat read on a K44", Model::kK44, 70, 6, kUnknown, {1, 0, 0}},
        {"flat write on a K50", Model::kK50, 71, 6, kUnknown, {1, 0, 0, 9}},
        {"payload where none belongs", Model::kK40, 75, 1, kMalformed, {0}},
        {"payload missing", Model::kK44, 114, 1, kMalformed, {}},
        {"payload too long", Model::kK44, 114, 1, kMalformed, {1, 0}},
        {"read request cut", Model::kK44, 116, 6, kMalformed, {1, 0, 1, 0}},
        {"write request cut", Model::kK40, 71, 6, kMalformed, {1, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Board board({.model = c.model});
        EXPECT_EQ(board.Handle(c.command, c.channel, c.payload), Refused(c.status));
    }
}

TEST(BoardTest, ProgramRunsFromTheEndOfADownloadToTheNextOne) {
    for (const Model model : {Model::kK40, Model::kK44, Model::kK50}) {
        Board board({.model = model});
        const auto send = [&](std::uint8_t command) { return board.Handle(command, 6, {}); };

        EXPECT_EQ(send(74), Accepted({0}));
        EXPECT_EQ(send(73), Refused(105)) << "nothing was begun";
        EXPECT_EQ(send(72), Accepted());
        EXPECT_EQ(send(74), Accepted({0}));
        EXPECT_EQ(send(73), Accepted());
        EXPECT_EQ(send(74), Accepted({1}));
        EXPECT_EQ(send(73), Accepted()) << "the end of a second process's download";
        EXPECT_EQ(send(72), Accepted());
        EXPECT_EQ(send(74), Accepted({0}));
    }
}

TEST(BoardTest, PowerUpKeepsWhatABatteryKeepsAndTheCabinetHolds) {
    Board board({.model = Model::kK44, .identity = 5});
    board.Handle(117, 6, Bytes{1, 0, 1, 0, 0, 77});
    board.Handle(72, 6, {});
    board.Handle(73, 6, {});
    board.Handle(114, 1, Bytes{1});
    board.inputs.Set(0, true);

    board.PowerUp();
    EXPECT_EQ(board.Handle(116, 6, Bytes{1, 0, 1, 0, 0}), Accepted({77}));
    EXPECT_EQ(board.Handle(75, 1, {}), Accepted({1, 0, 0, 5, 0}));
    EXPECT_EQ(board.Handle(81, 1, {}), Accepted({0, 0, 0, 0, 0}));
    EXPECT_EQ(board.Handle(74, 6, {}), Accepted({0}));
    EXPECT_EQ(board.Handle(115, 1, {}), Accepted(Bytes(13, 0)));

    Board running({.model = Model::kK44, .firmwareRunning = true});
    EXPECT_EQ(running.Handle(74, 6, {}), Accepted({1}));
    running.Handle(72, 6, {});
    running.PowerUp();
    EXPECT_EQ(running.Handle(74, 6, {}), Accepted({1}));
}

}  // namespace
}  // namespace simulator
