/**
 * @file models_test.cpp
 * @brief What no caller of the library reaches: boards that the facade never makes, and links of
 *   chains that are taken out in another order than they were put in.
 */
#include <fcntl.h>

#include "board_test.h"
#include "chain.h"
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

TEST(Chain, GivesUpAnyOfItsNodes) {
    struct Node {
        Node* next;
    };
    Node last{nullptr}, middle{&last}, first{&middle}, other{&last};
    Node* head = &first;
    EXPECT_FALSE(Unlink(head, &Node::next, &other));
    EXPECT_TRUE(Unlink(head, &Node::next, &middle));
    EXPECT_EQ(first.next, &last);
    EXPECT_TRUE(Unlink(head, &Node::next, &first) && Unlink(head, &Node::next, &last));
    EXPECT_EQ(head, nullptr);
}

}  // namespace
