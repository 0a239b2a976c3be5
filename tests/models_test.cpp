/**
 * @file models_test.cpp
 * @brief Boards that the facade never makes: of no model in particular, and without an owner.
 */
#include <fcntl.h>

#include "board_test.h"
#include "k40_implementation.h"
#include "k44_implementation.h"
#include "k50_implementation.h"

namespace {

TEST(UnusualBoards, OneOfNoModelDoesNothingAndHasNoType) {
    char name[] = "";
    unsigned char byte = 99;
    unsigned long length = 0;
    KBaseImplementation board(nullptr, -1, name, 2, 0);
    EXPECT_EQ(board.GetBoardType(&byte), 0);
    EXPECT_EQ(board.PerformUSBIO(75, 1, nullptr, 0, &byte, &length), 0);
    EXPECT_EQ(board.WriteSRAM(0, &byte, 1), 0);
}

template <class Board>
void ExpectNoDownload() {
    InProcessDriver& driver = InProcessDriver::Instance();
    driver.Reset();
    driver.AnswerWith([](const Exchange&) { return DriverAnswer{}; });
    driver.SetNode(0, true);
    char name[] = "";
    Board board(nullptr, open("/dev/Kovar_0", O_RDWR), name, 2, 0);
    EXPECT_EQ(board.DownloadHiCode(), 0);
    EXPECT_EQ(driver.Sent(), Exchanges());
}

TEST(UnusualBoards, OneWithoutAnOwnerGetsNoProgram) {
    ExpectNoDownload<K44_Implementation>();
    ExpectNoDownload<K50_Implementation>();
}

}  // namespace
