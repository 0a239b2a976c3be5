/**
 * @file discovery_test.cpp
 * @brief Which board opens, as which model, and which board is open after a failed attempt.
 */
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <utility>

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
        auto fitted = driver.AddBoard(deviceNo, Model::kK44);
        fitted.SetIdentity(static_cast<int>(identity));
        fitted.SetInput(27, true);
    }
};

TEST_F(DiscoveryTest, ProductAndSpeedDecideModelAndSpeedCode) {
    struct Case {
        const char* what;
        std::optional<std::string> product, speed;
        int type, code;  // 0: does not open
    };
    const std::string k40 = "Marvane K40 Board";
    const Case cases[] = {
        // clang-format off
        {"with newlines",       k40 + "\n",                            "12\n",       1, 1},
        {"without",             "Marvane K44 Board",                   "480",        2, 2},
        {"with more behind",    "Marvane K50 Board rev 7",             "4800",       3, 2},
        {"longer than is read", k40 + std::string(4096, 'x'),          "1200x",      1, 1},
        {"one character short", k40.substr(0, 16),                     "480",        0, 0},
        {"something in front",  " " + k40,                             "480",        0, 0},
        {"zero byte inside",    std::string("Marvane\0K40 Board", 17), "480",        0, 0},
        {"empty product",       "",                                    "480",        0, 0},
        {"no product",          std::nullopt,                          "480",        0, 0},
        {"half a speed",        k40,                                   "48",         0, 0},
        {"blank before speed",  k40,                                   " 12",        0, 0},
        {"another speed",       k40,                                   "5000",       0, 0},
        {"empty speed",         k40,                                   "",           0, 0},
        {"no speed",            k40,                                   std::nullopt, 0, 0},
        // clang-format on
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        driver.Reset();
        driver.AddBoard(4, Model::kK40);
        driver.SetFile(4, "product", c.product);
        driver.SetFile(4, "speed", c.speed);
        EXPECT_EQ(board.InitPort(4), c.type == 0 ? 0 : 1);
        EXPECT_EQ(board.GetLastError(), 0);
        EXPECT_EQ(FittedBoard(), c.type);
        EXPECT_EQ(SpeedCode(), c.code);
        board.close();
    }
}

TEST_F(DiscoveryTest, FailedOpeningClosesThePreviousBoardOnlyOnceSysfsHasAgreed) {
    struct Case {
        int number;
        const char* missing;
        int error;
        bool stillOpen;
    };
    for (const Case& c :
         {Case{1, "product", 77, true}, Case{1, "speed", 77, true}, Case{1, "node", 77, false},
          Case{-1, "", 8, true}, Case{16, "", 8, true}}) {
        SCOPED_TRACE(std::to_string(c.number) + c.missing);
        Open(Model::kK50);
        if (c.error != 8) {
            driver.AddBoard(c.number, Model::kK40);
            driver.SetFile(c.number, c.missing, std::nullopt);
            driver.SetNode(c.number, c.missing != std::string("node"));
        }
        driver.AnswerNext({.status = 77});  // a last error that must survive
        ASSERT_EQ(Identity(board), -1);
        EXPECT_EQ(board.InitPort(c.number), 0);
        EXPECT_EQ(board.GetLastError(), c.error);
        EXPECT_EQ(FittedBoard(), c.stillOpen ? 3 : 0);
        EXPECT_EQ(driver.OpenDescriptors(), c.stillOpen ? 1 : 0);
    }
}

std::string Description() {
    char text[2000];
    const unsigned long length = MarvaneUSB::DescribeFailure(text, sizeof text);
    EXPECT_EQ(length, std::strlen(text));
    return text;
}

TEST_F(DiscoveryTest, EachFailedOpeningSaysWhyAndWhatMendsIt) {
    const std::string unreachable =
        "no such file or directory; the driver knows the board: does this process see the "
        "machine's own /dev?";
    const std::string download =
        "/dev/Kovar_2 could be opened, but its program could not be downloaded: ";
    const std::string query = "command 74 on channel 6 of /dev/Kovar_2";
    // clang-format off
    struct Case { std::function<void()> spoil; std::string described; };
    const Case cases[] = {
        {[&] { driver.SetFile(2, "product", "Mouse\x1b\nX"); },
         "/sys/class/Kovar/Kovar_2/device/product says 'Mouse?', no board of this library"},
        {[&] { driver.SetFile(2, "speed", "5000\n"); },
         "/sys/class/Kovar/Kovar_2/device/speed says '5000', neither 12 nor 480"},
        {[&] { driver.SetNode(2, false); },       "cannot open /dev/Kovar_2: " + unreachable},
        {[&] { driver.RefuseNode(2, EACCES); },   "cannot open /dev/Kovar_2: permission denied"},
        {[&] { driver.AnswerNext({.error = ENODEV}); },
         download + "USB_ERR_TRANSFER_FAILED: " + query + ": no such device; the board was "
         "unplugged: close it, and open it once it is back"},
        {[&] { driver.AnswerNext({.status = 77}); },
         download + "status 77 of the board: " + query + " was refused"},
    };
    // clang-format on
    for (const Case& c : cases) {
        for (const bool any : {false, true}) {
            driver.Reset();
            driver.AddBoard(2, Model::kK44);
            c.spoil();
            EXPECT_EQ(any ? board.init(0) : board.InitPort(2), 0);
            EXPECT_EQ(Description(), c.described);
        }
    }
    driver.Reset();
    EXPECT_EQ(board.init(0), 0);
    EXPECT_EQ(Description(), "no /sys/class/Kovar: is the driver loaded?");
    driver.AddBoard(0, Model::kK44);
    driver.SetNode(0, false);
    AddBoardWithIdentity(2, 5);
    EXPECT_EQ(board.InitUSBBoard(1), 0);
    EXPECT_EQ(Description(), "cannot open /dev/Kovar_0: " + unreachable +
                                 "; the board of /dev/Kovar_2 has identity 5");
}

TEST_F(DiscoveryTest, TheLastFailedCallIsDescribedWhateverSucceedsAfterIt) {
    EXPECT_EQ(Description(), "no call of this thread has failed");
    EXPECT_EQ(board.GetInputs(static_cast<usbInput*>(nullptr)), 0);
    EXPECT_EQ(Description(), "no board is open on this object");
    Open(Model::kK40);
    board.InitPort(16);
    EXPECT_EQ(Identity(board), 0);
    EXPECT_EQ(Description(), MarvaneUSB::ErrorText(8));
    board.BeginPulsedInputCheck(USB_INPUT_3);
    EXPECT_EQ(Description(),
              "USB_ERR_NOT_CONFIGURED: the input, reel or port has not been configured since the "
              "board was opened");
    const std::string exchange = ": command 75 on channel 1 of /dev/Kovar_0";
    const std::pair<DriverAnswer, std::string> cases[] = {
        // clang-format off
        {{.status = -16},       "status -16 of the board" + exchange + " was refused"},
        {{.claimedLength = 1},
         "USB_ERR_DATA_TOO_LONG" + exchange + ": the board's reply is of impossible length"},
        {{.echo = 9},
         "USB_ERR_TRANSFER_FAILED" + exchange + ": the board answered another command"},
        // clang-format on
    };
    for (const auto& [answer, described] : cases) {
        driver.AnswerNext(answer);
        EXPECT_EQ(Identity(board), -1);
        EXPECT_EQ(Description(), described);
    }
    char part[8] = "1234567";
    EXPECT_GT(MarvaneUSB::DescribeFailure(part, 4), 80U);
    EXPECT_EQ(Bytes(part, part + 6), Bytes({'U', 'S', 'B', 0, '5', '6'}));
    EXPECT_GT(MarvaneUSB::DescribeFailure(nullptr, 99), 80U);
}

TEST(ErrorText, NamesEachCodeAndTellsAnyOtherNumberForAStatus) {
    const std::pair<int, std::string> cases[] = {
        // clang-format off
        {0, "USB_ERR_NONE: "},               {2, "USB_ERR_BAD_LENGTH: "},
        {3, "USB_ERR_BAD_CHANNEL: "},        {6, "USB_ERR_TRANSFER_FAILED: "},
        {7, "USB_ERR_DATA_TOO_LONG: "},      {8, "USB_ERR_OUT_OF_RANGE: "},
        {10, "USB_ERR_BAD_BAUD_RATE: "},     {11, "USB_ERR_BAD_PORT_TYPE: "},
        {16, "USB_ERR_BAD_REEL: "},          {25, "USB_ERR_NOT_SUPPORTED_K40: "},
        {26, "USB_ERR_NOT_SUPPORTED_K44: "}, {30, "USB_ERR_NULL_POINTER: "},
        {37, "USB_ERR_THREAD_START: "},      {77, "status 77 of the board"},
        {38, "USB_ERR_NOT_CONFIGURED: input, reel or port not configured, or no shared state"},
        // clang-format on
    };
    for (const auto& [code, start] : cases)
        EXPECT_EQ(std::string(MarvaneUSB::ErrorText(code)).rfind(start, 0), 0U) << code;
    EXPECT_NE(MarvaneUSB::ErrorText(77), MarvaneUSB::ErrorText(78)) << "two in one line";
}

TEST_F(DiscoveryTest, AnUnpluggedBoardFailsEachCallAndOpeningAnotherClosesIt) {
    Open(Model::kK40);
    driver.SetNode(0, false);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(Identity(board), -1);
        EXPECT_EQ(board.GetLastError(), 6);
    }
    driver.SetNode(0, true);
    EXPECT_EQ(board.InitPort(0), 1) << "plugged in again";
    driver.AddBoard(15, Model::kK50);
    EXPECT_EQ(board.InitPort(15), 1);
    EXPECT_EQ(FittedBoard(), 3);
    EXPECT_EQ(driver.OpenDescriptors(), 1);
    EXPECT_EQ(driver.LastOpenFlags(), O_RDWR | O_CLOEXEC | O_NOCTTY);
}

TEST_F(DiscoveryTest, WithoutAStandardInputABoardLeavesDescriptor0Free) {
    Open(Model::kK44);  // the driver's own file
    board.close();
    const int input = dup(0);
    close(0);
    EXPECT_EQ(board.InitPort(0), 1);
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "used for the board, or left open";
    EXPECT_EQ(driver.OpenedDevices(), std::vector<int>({0, 0})) << "opened twice";
    EXPECT_EQ(driver.OpenDescriptors(), 1);
    EXPECT_EQ(Identity(board), 0);
    board.close();
    EXPECT_EQ(driver.OpenDescriptors(), 0);
    dup2(input, 0);
    close(input);
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
        std::size_t opened;  // so many of boards 0, 1 and 7
    };
    for (const Case& c : {Case{1, 1, 0, 1}, Case{3, 1, 0, 2}, Case{6, 1, 0, 3}, Case{5, 0, 0, 3},
                          Case{11, 0, 0, 3}, Case{15, 0, 0, 3}, Case{16, 0, 8, 0}}) {
        SCOPED_TRACE(+c.identity);
        board.close();
        board.ClearErrors();
        const std::size_t openedBefore = driver.OpenedDevices().size();
        EXPECT_EQ(board.InitUSBBoard(c.identity), c.result);
        EXPECT_EQ(board.GetLastError(), c.error);
        EXPECT_EQ(driver.OpenedDevices().size() - openedBefore, c.opened);
        EXPECT_EQ(driver.OpenDescriptors(), c.result);
        EXPECT_EQ(Identity(board), c.result == 1 ? c.identity : -1);
    }
}

TEST_F(DiscoveryTest, InitUSBBoardGoesOnAfterABoardThatDoesNotAnswer) {
    for (const int device : {0, 1, 2})
        driver.AddBoard(device, Model::kK44);
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
        board.close();
        EXPECT_EQ(FittedBoard(), 0);
        EXPECT_EQ(Identity(copy), 0);
        EXPECT_EQ(driver.OpenDescriptors(), 1);
        MarvaneUSB& same = copy;
        EXPECT_EQ(&(copy = same), &copy);
        EXPECT_EQ(Identity(copy), 0) << "assigned to itself";
        driver.AddBoard(1, Model::kK50);
        ASSERT_EQ(board.InitPort(1), 1);
        copy = board;
        EXPECT_EQ(driver.OpenDescriptors(), 1) << "lets go of the old one";
        board = assigned;
        EXPECT_EQ(FittedBoard(), 0);
        EXPECT_EQ(Identity(copy), 0);
    }
    EXPECT_EQ(driver.OpenDescriptors(), 0);
}

TEST_F(DiscoveryTest, VersionsAndSpeedNeedNoBoardButAPointer) {
    unsigned char product[] = {9, 9, 9}, library[] = {9, 9, 9};
    EXPECT_EQ(board.GetProductVersion(product), 1);
    EXPECT_EQ(Bytes(product, product + 3), Bytes({'1', 0, 9}));
    EXPECT_EQ(board.GetDllVersion(library), 1);
    EXPECT_EQ(Bytes(library, library + 3), Bytes({'1', 0, 9}));
    EXPECT_EQ(SpeedCode(), 0);
    Open(Model::kK40, 12);
    Expect({{CALL(GetProductVersion(nullptr)), 0, 30, {}},
            {CALL(GetDllVersion(nullptr)), 0, 30, {}},
            {CALL(GetBoardSpeed(nullptr)), 0, 30, {}},
            {CALL(GetChangedInputsCallbackState(nullptr)), 0, 30, {}},
            {CALL(GetChangedInputsCallbackError(nullptr)), 0, 30, {}},
            {CALL(GetFittedBoard(nullptr)), 0, 30, {}}});
}

}  // namespace
