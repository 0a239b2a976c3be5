/**
 * @file discovery_test.cpp
 * @brief Which board opens, as which model, and which board is open after a failed attempt.
 */
#include <fcntl.h>

#include <optional>
#include <string>

#include "board_test.h"

namespace {

class DiscoveryTest : public BoardTest {
protected:
    int FittedBoard() {
        unsigned char type = 0;
        return board.GetFittedBoard(&type) ? type : 0;
    }
    int SpeedCode() {
        unsigned char speed = 99;
        board.GetBoardSpeed(&speed);
        return speed;
    }
    int Identity(MarvaneUSB& opened) {
        usbInput inputs = {};
        return opened.GetInputs(&inputs) ? inputs.bytes[3] & 7 : -1;
    }
    /** The input next to the identity's is on, too. */
    void AddBoardWithIdentity(int deviceNo, unsigned identity) {
        auto& inputs = driver.AddBoard(deviceNo, Model::kK44).inputs;
        inputs.SetIdentity(identity);
        inputs.Set(27, true);
    }
};

TEST_F(DiscoveryTest, ProductTextDecidesTheModel) {
    struct Case {
        const char* what;
        std::optional<std::string> product;
        int type;  // 0: does not open
    };
    const std::string k40 = "Marvane K40 Board";
    const Case cases[] = {
        {"K40 with newline", k40 + "\n", 1},
        {"K44 without", "Marvane K44 Board", 2},
        {"K50 with more behind", "Marvane K50 Board rev 7", 3},
        {"longer than is read", k40 + std::string(4096, 'x'), 1},
        {"one character short", k40.substr(0, k40.size() - 1), 0},
        {"something in front", " " + k40, 0},
        {"wrong case", "marvane k40 board", 0},
        {"zero byte inside", std::string("Marvane\0K40 Board", 17), 0},
        {"empty", "", 0},
        {"missing", std::nullopt, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        driver.Reset();
        driver.AddBoard(4, Model::kK40);
        driver.SetFile(4, "product", c.product);
        board.ClearErrors();
        EXPECT_EQ(board.InitPort(4), c.type == 0 ? 0 : 1);
        EXPECT_EQ(board.GetLastError(), 0);
        EXPECT_EQ(FittedBoard(), c.type);
        board.close();
    }
}

TEST_F(DiscoveryTest, SpeedTextDecidesTheSpeedCode) {
    struct Case {
        std::optional<std::string> speed;
        int code;
    };
    const Case cases[] = {{"12", 1},  {"12\n", 1},  {"480", 2}, {"480\n", 2},     {"4800", 2},
                          {"1.5", 0}, {"5000", 0},  {"48", 0},  {"", 0},          {"1", 0},
                          {" 12", 0}, {"1200x", 1}, {"0", 0},   {std::nullopt, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.speed.value_or("missing"));
        driver.Reset();
        driver.AddBoard(0, Model::kK44);
        driver.SetFile(0, "speed", c.speed);
        EXPECT_EQ(board.InitPort(0), c.code == 0 ? 0 : 1);
        EXPECT_EQ(SpeedCode(), c.code);
        board.close();
    }
}

TEST_F(DiscoveryTest, FailedOpeningClosesThePreviousBoardOnlyOnceSysfsHasAgreed) {
    struct Case {
        const char* what;
        int number;
        bool product, speed, node;
        int error;
        bool stillOpen;
    };
    const Case cases[] = {
        {"no product file", 1, false, true, true, 77, true},
        {"no speed file", 1, true, false, true, 77, true},
        {"no node", 1, true, true, false, 77, false},
        {"number below 0", -1, true, true, true, 8, true},
        {"number above 15", 16, true, true, true, 8, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Open(Model::kK50);
        driver.AddBoard(c.number, Model::kK40);
        if (!c.product) driver.SetFile(c.number, "product", std::nullopt);
        if (!c.speed) driver.SetFile(c.number, "speed", std::nullopt);
        driver.SetNode(c.number, c.node);
        driver.AnswerNext({.status = 77});  // a last error that must survive
        unsigned int bit = 0;
        ASSERT_EQ(board.GetInputBit(USB_INPUT_0, &bit), 0);

        EXPECT_EQ(board.InitPort(c.number), 0);
        EXPECT_EQ(board.GetLastError(), c.error);
        EXPECT_EQ(FittedBoard(), c.stillOpen ? 3 : 0);
        EXPECT_EQ(driver.OpenDescriptors(), c.stillOpen ? 1 : 0);
    }
}

TEST_F(DiscoveryTest, OpeningAnotherBoardClosesTheFirst) {
    Open(Model::kK40);
    driver.AddBoard(15, Model::kK50);
    EXPECT_EQ(board.InitPort(15), 1);
    EXPECT_EQ(FittedBoard(), 3);
    EXPECT_EQ(driver.OpenDescriptors(), 1);
    EXPECT_EQ(driver.LastOpenFlags(), O_RDWR | O_CLOEXEC | O_NOCTTY);
}

TEST_F(DiscoveryTest, InitOpensTheFirstBoardThatOpens) {
    board.InitPort(-1);
    EXPECT_EQ(board.init(5), 0);
    EXPECT_EQ(board.GetLastError(), 0);  // cleared before each attempt

    driver.AddBoard(15, Model::kK44);
    EXPECT_EQ(board.init(0), 1) << "the last number";
    board.close();
    driver.AddBoard(3, Model::kK44);
    driver.SetNode(3, false);
    driver.AddBoard(9, Model::kK50);
    driver.AddBoard(12, Model::kK40);
    EXPECT_EQ(board.init(0), 1);
    EXPECT_EQ(driver.OpenedDevices(), std::vector<int>({15, 9}));
    EXPECT_EQ(FittedBoard(), 3);
}

TEST_F(DiscoveryTest, InitUSBBoardFindsTheIdentityAmongTheFirstEight) {
    AddBoardWithIdentity(0, 1);
    AddBoardWithIdentity(1, 3);
    AddBoardWithIdentity(7, 6);
    AddBoardWithIdentity(8, 5);
    struct Case {
        unsigned char identity;
        int result, error;
        std::vector<int> opened;
    };
    const Case cases[] = {
        {1, 1, 0, {0}},        {3, 1, 0, {0, 1}},     {6, 1, 0, {0, 1, 7}}, {5, 0, 0, {0, 1, 7}},
        {11, 0, 0, {0, 1, 7}}, {15, 0, 0, {0, 1, 7}}, {16, 0, 8, {}},       {255, 0, 8, {}},
    };
    std::size_t openedBefore = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.identity));
        board.close();
        board.ClearErrors();
        EXPECT_EQ(board.InitUSBBoard(c.identity), c.result);
        EXPECT_EQ(board.GetLastError(), c.error);
        const std::vector<int> all = driver.OpenedDevices();
        EXPECT_EQ(std::vector<int>(all.begin() + static_cast<long>(openedBefore), all.end()),
                  c.opened);
        openedBefore = all.size();
        EXPECT_EQ(driver.OpenDescriptors(), c.result);
        if (c.result == 1) {
            EXPECT_EQ(Identity(board), c.identity);
        }
    }
}

TEST_F(DiscoveryTest, InitUSBBoardGoesOnAfterABoardThatDoesNotAnswer) {
    AddBoardWithIdentity(0, 2);
    AddBoardWithIdentity(1, 2);
    AddBoardWithIdentity(2, 2);
    // Board 0 cannot be opened, board 1 does not tell its inputs.
    driver.AnswerWith([this](const Exchange& exchange) {
        const int device = driver.OpenedDevices().back();
        return device == 0 || (device == 1 && exchange.command == 75)
                   ? DriverAnswer{.error = 5}
                   : DriverAnswer{.reply = {0, 0, 0, 2, 0}};
    });
    EXPECT_EQ(board.InitUSBBoard(2), 1);
    EXPECT_EQ(driver.OpenedDevices(), std::vector<int>({0, 1, 2}));
    EXPECT_EQ(driver.OpenDescriptors(), 1);
}

TEST_F(DiscoveryTest, CopiesShareOneBoardUntilTheLastIsClosed) {
    Open(Model::kK44);
    {
        MarvaneUSB copy(board);
        MarvaneUSB assigned;
        assigned = copy;
        EXPECT_EQ(assigned.close(), 1);
        EXPECT_EQ(assigned.close(), 1);
        EXPECT_EQ(Identity(copy), 0);
        board.close();
        EXPECT_EQ(FittedBoard(), 0);
        EXPECT_EQ(Identity(copy), 0);
        EXPECT_EQ(driver.OpenDescriptors(), 1);
    }
    EXPECT_EQ(driver.OpenDescriptors(), 0);
}

TEST_F(DiscoveryTest, AssignmentLetsGoOfTheOldBoardAndKeepsItselfWhole) {
    Open(Model::kK44);
    MarvaneUSB& same = board;
    EXPECT_EQ(&(board = same), &board);
    EXPECT_EQ(driver.OpenDescriptors(), 1);

    driver.AddBoard(1, Model::kK50);
    MarvaneUSB other;
    ASSERT_EQ(other.InitPort(1), 1);
    board = other;
    EXPECT_EQ(driver.OpenDescriptors(), 1);
    EXPECT_EQ(FittedBoard(), 3);

    MarvaneUSB none;
    board = none;
    other = none;
    EXPECT_EQ(FittedBoard(), 0);
}

TEST_F(DiscoveryTest, AnUnpluggedBoardFailsEachCallAndOpensAgainWhenReplugged) {
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        driver.SetNode(0, false);
        for (int round = 0; round < 3; ++round) {
            board.ClearErrors();
            EXPECT_EQ(Identity(board), -1);
            EXPECT_EQ(board.GetLastError(), 6);
        }
        EXPECT_EQ(board.close(), 1);
        EXPECT_EQ(driver.OpenDescriptors(), 0);
        driver.SetNode(0, true);
        EXPECT_EQ(board.InitPort(0), 1);
        EXPECT_EQ(Identity(board), 0);
    }
}

TEST_F(DiscoveryTest, VersionsAndSpeedNeedNoBoardButAPointer) {
    unsigned char text[3] = {9, 9, 9};
    EXPECT_EQ(board.GetProductVersion(text), 1);
    EXPECT_EQ(Bytes(text, text + 3), Bytes({'1', 0, 9}));
    text[0] = 9;
    EXPECT_EQ(board.GetDllVersion(text), 1);
    EXPECT_EQ(Bytes(text, text + 3), Bytes({'1', 0, 9}));
    EXPECT_EQ(SpeedCode(), 0);

    int (MarvaneUSB::*const operations[])(unsigned char*) = {
        &MarvaneUSB::GetProductVersion, &MarvaneUSB::GetDllVersion, &MarvaneUSB::GetBoardSpeed};
    for (const auto operation : operations) {
        board.ClearErrors();
        EXPECT_EQ((board.*operation)(nullptr), 0);
        EXPECT_EQ(board.GetLastError(), 30);
    }
}

}  // namespace
