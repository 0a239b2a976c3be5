// What a board refuses, its program, and the small families: clock, switches, identity, SPI.
#include "board/board.h"

#include "board_conversation.h"

namespace simulator {
namespace {

// Every command goes to a board of its own, of the model named last, with some of it configured. Of
// the answers counts the status.
class RefusalsTest : public BoardModelTest {
protected:
    RefusalsTest() {
        Kind("K40", Model::kK40);
        Kind("K44", Model::kK44);
        Kind("K50", Model::kK50);
    }
    void Kind(const std::string& name, Model model) {
        Word(name, [this, model](auto&) { kind = {.model = model}; });
        Word(name + "-12", [this, model](auto&) { kind = {.model = model, .speedMbit = 12}; });
    }
    std::string Do(const std::string& word, const Numbers& numbers) override {
        if (word.find('/') == word.npos) return BoardModelTest::Do(word, numbers);
        Use(kind);
        Send("1/86", {1, 0, 20, 4});
        Send("2/3", {64, 2, 0x7F, 0xFF, 0x51});
        Send("3/97", {1, 0, 0, 0, 0xD9, 1});
        Send("4/97", {0, 0, 0, 0, 0x64, 0xFF});
        Send("7/94", {});
        return Text(Answer{Send(word, BytesOf(numbers)).status});
    }

private:
    BoardOptions kind;
};

TEST_F(RefusalsTest, ABoardTakesItsOwnCommandsUpToTheirLimits) {
    Talk(R"(
        K44; 1/0 !100; 2/75 !101; 6/70 1 0 0 !100; 5/220 !100  # other channels and models
        K50; 4294967295/75 !101
        K40; 1/70 1 0 0 !101; 6/116 1 0 1 0 0 !100; 5/119 !100; 1/124 5 !100; 3/122 5 !100
        1/125 0*9 !100

        K40; 6/70 58 0 0; 6/70 59 0 0 !104; 6/70 0 0 0 !103; 6/70 2 254 255 !103  # memory
        6/71 1 0 0 9; 6/71 1 254 255 9; 6/71 1 255 255 9 !103; 6/71 2 255 255 9 9 !103
        6/71 0 0 0 !103; 6/71 3 0 0 9 9 !102; 6/71 1 0 0 9 9 !102; 6/71 1 0 !102
        6/71 250 0 0 0*250 !104
        K40-12; 6/71 57 0 0 0*57; 6/71 58 0 0 0*58 !104
        K44; 6/116 1 0 32 253 63; 6/116 253 0 1 0 0 !104; 6/116 2 0 1 255 63 !103
        6/116 1 0 13 0 0 !103; 6/116 1 0 15 255 63 !103; 6/116 1 0 32 254 63 !103
        6/117 1 0 1 0 0 9; 6/117 1 0 13 0 0 9; 6/117 1 0 32 255 63 9; 6/117 1 1 1 0 0 9 !102
        6/117 1 0 0 0 0 9 !103; 6/117 1 0 33 0 0 9 !103; 6/117 2 0 1 255 63 9 9 !103
        6/117 1 0 1 0 64 9 !103
        K44-12; 6/117 55 0 1 0 0 0*55; 6/117 56 0 1 0 0 0*56 !104
        K50; 6/117 1 0 64 255 63 9; 6/117 1 0 65 0 0 9 !103
        6/117 247 0 1 0 0 0*247; 6/117 248 0 1 0 0 0*248 !104
        K50-12; 6/116 61 0 1 0 0 !104

        K44; 2/3 0 2 127 255 81 !103; 2/3 64 0 127 255 81 !103; 2/3 64 3 127 255 81 !103  # EEPROM
        2/4 57 8 0 0*57; 2/4 1 254 255 9; 2/4 58 8 0 0*58 !104; 2/4 2 8 0 9 !102
        2/4 1 8 0 9 9 !102; 2/4 0 8 0 !103; 2/4 1 7 0 9 !103; 2/4 1 255 255 9 !103
        2/5 58 0 0; 2/5 59 0 0 !104

        1/114 !102; 1/114 1 0 !102; 1/114 2 !103; 1/85 10; 1/85 11 !103; 1/78 5 32 !103
        1/107 32 0 1 0; 1/107 33 0 1 0 !103; 1/108 24 1 !103; 1/108 23 2 !103; 1/110 32 !103
        1/112 33 20 1 0 0 1 0 0 !103; 1/112 0 20 1 38 0 1 0 0 !103; 1/113 23; 1/124 33 !103
        K40; 1/107 32 0 1; 1/107 32 0 1 0 !102; 1/109 24 !103; 1/112 0*8 !102; 1/113 24 !103
        K50; 1/111 24 !103

        K44; 1/86 4 0 20 4 !103; 1/87 3 1 0 1 !103; 1/87 0 3 0 1 !103; 1/87 0 253 0 1 !103  # reels
        1/87 0 128 0 1 !103; 1/87 1 1 0 1 !106; 1/88 3 0 !103; 1/88 1 1 9
        1/88 0 60 0*60; 1/88 0 61 0*61 !102

        1/125 0 23 255 255 1 0 0 255 255; 1/125 255 255 255 7 29 63 254 0 0  # recording, diagnosis
        1/125 255 255 255 7 29 63 254 0 1 !103; 1/125 3 255 255 255 0 0 0 0 9 !103
        1/125 3 255 255 255 1 64 0 0 9 !103; 1/125 24 3 255 255 1 0 0 0 9 !103
        1/125 255*4 1 0 0 0 9 !103; 1/126 0 9 !103; 1/126 0x3A 0x99 !103; 1/128 0*257 !104

        3/97 4 0 0 0 217 1 !103; 3/97 0 4 0 0 217 1 !103; 3/97 1 3 0 0 217 1 !103  # serial ports
        3/97 0 0 4 0 217 1 !103; 3/97 0 0 0 2 217 1 !103; 3/97 0 0 0 0 217 0 !103
        3/97 0 0 0 0 100 255 !103; 4/97 0 0 0 0 217 1 !103; 4/97 0 0 0 0 255 100 !103
        3/98 !102; 3/98 0 1 0 !102; 4/98 0*253 !104; 4/98 0*600 !104; 3/99 !102; 4/99 0 !102
        3/101 1 61 !103; 3/101 1 2 7 !102
        3/103 0*11 25 25 25 0*24 25 0*24; 3/103 0*4 24 0*8; 3/103 0 1 0 0 2 1 1 0*4 2 1 7 7 8
        3/103 0*11 26 0 26 0*25 !103; 3/103 4 0*12 !103; 3/103 0 4 0*11 !103
        3/103 0 1 5 0*10 !103; 3/103 0*4 25 0*8 !103; 3/103 0*12 !102; 3/103 0*14 !102
        3/103 0 1 0 1 1 5 1 0*4 5 0 2 0 1 229 24 !102
        3/103 0 1 0*4 1 0*4 1 1 2 1 !102; 3/103 0 1 0*4 1 0*4 1 1 1 2 !102
        4/104 4 !103; 4/105 255 !103; 4/106 4 !103; 4/121 4 1 !103; 3/122 128 !103; 3/123 3 0 !103
        K40; 4/98 0*252
        K40-12; 4/98 0*60
        K50-12; 4/98 0*61 !104

        K44; 5/65 0*7 !102; 7/96 0 8 0 !103; 7/96 161 8 0 0*21 !103; 7/96 8 161 0 7 !103
        7/96 9 8 0 7 !102; 7/96 8 8 0 7 8 !102)");
}

TEST_F(BoardModelTest, KnowsNothingThatItWasNotTold) {
    Talk(R"(
        2/5 1 0 0 !106; 1/108 5 1 !106; 1/110 5 !106; 1/126 0 10 !106; 3/98 1 !106; 4/99 !106
        3/122 1 !106; 4/124 !106; 5/68 !108; 6/73 !105; 7/96 8 8 5 9 !108)");
}

TEST_F(BoardModelTest, ProgramRunsFromTheEndOfADownloadToTheNextOneOrAPowerUp) {
    for (const Model model : {Model::kK40, Model::kK44, Model::kK50}) {
        Use({.model = model, .identity = 5});
        Talk(R"(
            set 0 1; 6/72; 6/74 = 0; 6/73; 6/74 = 1; 6/73; 6/72; 6/74 = 0; 6/73
            power-up; 6/74 = 0; 1/75 = 1 0 0 5 0)");
    }
    Use({.firmwareRunning = true});
    Talk("6/74 = 1; 6/72; power-up; 6/74 = 1");
}

TEST_F(BoardModelTest, ClockCountsSecondsAndFailuresShowOnce) {
    Use({.model = Model::kK50});
    Talk(R"(
        +999 5/21 = 0 3 2 1; +1 5/21 = 1 3 2 1; 5/20 0xFE 0xFF 0xFF 0xFF; +3000 5/21 = 1 0 0 0
        fail-battery; power-up; 5/119 = 1; 5/119 = 0
        +5000 5/221 = 1 0 0 0; 5/21 = 6 0 0 0; 5/220 = 0
        fail-clock; +2000 5/21 = 2 0 0 0; 5/220 = 1; 5/220 = 0)");
}

TEST_F(BoardModelTest, SecuritySwitchesLeaveALogAndTwoPairsOfFlags) {
    Talk(R"(
        open 0; +1000 open 7; open 7; open 8  # is open already; there is none
        5/64 = 0x81 0; 5/64 = 0 0; +1000 close 0; 5/67 = 0x81 1; 5/67 = 0 0; 5/64 = 0 1
        5/41 = 0 3 2 1 0x81; 5/41 = 1 3 2 1 0x88; 5/41 = 2 3 2 1 1; 5/41 = 0*5; 5/41 = 0*5
        5/40; 5/41 = 0 3 2 1 0x81; power-up; 5/41 = 0 3 2 1 0x81; 5/42; 5/41 = 0*5
        open 1; 5/41 = 2 3 2 1 0x82)");
}

TEST_F(BoardModelTest, TellsVersionsNumbersAndRandomNumbers) {
    std::uint16_t next = 0x1234;
    Use({.serialNumber = 0x01020304, .random = [&next] { return next++; }});
    Talk(R"(
        2/6 = 1 2; 5/44 = 2 5; 5/120 = 1 4 3 2 1 0 0 3; 5/63 = 49 54 57 48 57 48 54 48  # 16909060
        5/65 9*8; power-up; 5/63 = 9*8
        5/69 1 2 3 4; 5/68 = 0x34 0x12; 5/68 = 0x35 0x12; 5/118; 5/68 !108)");
}

TEST_F(BoardModelTest, SpiSendsBackFramesTurnedRoundQueuedRepliesOrWhatCame) {
    Talk("7/94");
    board.spi.QueueReply({1, 2, 3});
    board.spi.QueueReply({4});
    Talk(R"(
        7/96 32 16 0  1 2 0 3                 = 1 2
        7/96  8 16 5  9                       = 4 0
        7/96  8 17 0  7                       = 7 0 0
        7/96  8  0 0  7                       =
        7/96 160 160 0  0*20                  = 0*20
        7/96 48 48 0  0x90 0xA0 2 5 6 0x3D    = 0xA0 0x90 2 5 6 0x3D
        7/96 32 40 0  1 2 0 3                 = 2 1 1 0 4
        7/96 32 24 0  1 2 0 3                 = 2 1 0
        7/96 32 32 0  1 2 0 4                 = 1 2 0 4  # wrong sum
        7/95; 7/96 8 8 0 9 !108)");
    EXPECT_EQ(board.spi.RightFrames(), 4U);
    EXPECT_EQ(board.spi.WrongFrames(), 1U);
}

}  // namespace
}  // namespace simulator
