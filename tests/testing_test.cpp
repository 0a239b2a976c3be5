/**
 * @file testing_test.cpp
 * @brief What tests of cabinet software rely on: that boards in the test's own process do what they
 *   are told, and say what is wrong with what they are told.
 */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "marvaneusb.h"
#include "marvaneusb_testing.h"
#include "testing/transfer_records.h"

namespace {

using marvaneusb::testing::Board;
using marvaneusb::testing::Boards;
using marvaneusb::testing::Bytes;
using marvaneusb::testing::Exchange;
using marvaneusb::testing::Fitting;
using marvaneusb::testing::Model;
using marvaneusb::testing::OutputState;

class TestingTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(board.InitPort(0), 1); }

    /** The error of reading an input; 0: it was read. */
    int ErrorOfRead() {
        unsigned int level = 0;
        return board.GetInputBit(USB_INPUT_5, &level) == 1 ? 0 : board.GetLastError();
    }
    unsigned Level(int input) {
        unsigned int level = 9;
        EXPECT_EQ(board.GetInputBit(static_cast<_usbInputBitId>(input), &level), 1);
        return level;
    }

    Boards boards;
    Board cabinet = boards.AddBoard(0, Model::kK44);
    MarvaneUSB board;
};

TEST_F(TestingTest, InputsAndOutputsAreTheCabinets) {
    cabinet.SetInput(32, true);
    cabinet.SetIdentity(5);
    EXPECT_EQ(Level(32), 1u);
    EXPECT_EQ(Level(24) + 2 * Level(25) + 4 * Level(26), 5u);
    cabinet.SetInput(32, false);
    cabinet.SetContact(4, true);
    EXPECT_EQ(Level(32) + Level(4), 0u);
    usbInput raw = {};
    EXPECT_EQ(board.GetRawInputs(&raw), 1);
    EXPECT_EQ(raw.bytes[0], 1 << 4);

    EXPECT_EQ(board.SetOutputBit(USB_OUTPUT_37, 1), 1);
    EXPECT_EQ(board.SetOnPeriodOutputBit(USB_OUTPUT_BYTE_1, 0, 1), 1);
    EXPECT_EQ(board.SetOffPeriodOutputBit(USB_OUTPUT_BYTE_1, 1, 1), 1);
    const OutputState states[] = {cabinet.Output(37), cabinet.Output(8), cabinet.Output(9),
                                  cabinet.Output(0)};
    const OutputState wanted[] = {OutputState::kOn, OutputState::kOnPeriod, OutputState::kOffPeriod,
                                  OutputState::kOff};
    EXPECT_TRUE(std::equal(std::begin(states), std::end(states), wanted));
    EXPECT_EQ(board.SetOutputBrightness(3), 1);
    EXPECT_EQ(cabinet.Brightness(), 3);
}

TEST_F(TestingTest, TimePassesOnlyWhenItIsAdvanced) {
    EXPECT_EQ(board.ConfigurePulsedInput(USB_INPUT_3, 10, USB_ACTIVE_STATE_1), 1);
    EXPECT_EQ(board.BeginPulsedInputCheck(USB_INPUT_3), 1);
    cabinet.InsertCoins(3, 3, 50);  // 20 ms each, of which the pulse takes 10
    const auto counted = [&] {
        unsigned char count = 99;
        EXPECT_EQ(board.ReadPulsedInputCounter(USB_INPUT_3, &count), 1);
        return int{count};
    };
    usleep(30000);
    EXPECT_EQ(counted(), 0);
    boards.Advance(10);
    EXPECT_EQ(counted(), 0);
    boards.Advance(1);
    EXPECT_EQ(counted(), 1);
    EXPECT_EQ(cabinet.CoinsToCome(3), 3);
    boards.Advance(40);
    EXPECT_EQ(counted(), 3);
    EXPECT_EQ(boards.Now(), 51);
    cabinet.Do("fail 1 delay 49");
    EXPECT_EQ(counted(), 3);
    EXPECT_EQ(boards.Now(), 100);
    EXPECT_EQ(cabinet.CoinsToCome(3), 0);
}

TEST_F(TestingTest, HoppersPayAndReelsTurn) {
    cabinet.SetHopperCoins(4, 5);
    cabinet.SetHopperRate(4, 20);
    cabinet.JamHopper(4, true);
    EXPECT_EQ(
        board.ReleaseParallelHopperCoins(USB_INPUT_4, 10, USB_ACTIVE_STATE_1, USB_OUTPUT_7, 3, 0),
        1);
    boards.Advance(500);
    EXPECT_EQ(cabinet.HopperCoins(4), 5);
    EXPECT_EQ(cabinet.Output(7), OutputState::kOn);
    cabinet.JamHopper(4, false);
    boards.Advance(500);
    EXPECT_EQ(cabinet.HopperCoins(4), 2);
    EXPECT_EQ(cabinet.Output(7), OutputState::kOff);
    EXPECT_EQ(cabinet.HopperCoins(5), 500);

    EXPECT_EQ(board.ConfigureReels(1, 100, 10), 1);
    cabinet.PlaceReel(0, 98);
    EXPECT_EQ(board.SpinReels(0, 1, 5), 1);
    boards.Advance(30);
    EXPECT_TRUE(cabinet.Reel(0).turning);
    EXPECT_EQ(cabinet.Reel(0).position, 1);
    EXPECT_EQ(cabinet.Reel(0).steps, 100);
    boards.Advance(86400000);
    EXPECT_FALSE(cabinet.Reel(0).turning);
    EXPECT_EQ(cabinet.Reel(0).position, 3);
}

TEST_F(TestingTest, SerialLinesCarryBytesBothWays) {
    _DCB line = {9600, 0, 0};
    ASSERT_EQ(board.SetConfig(static_cast<_usbSerialPort>(1), &line, USB_PORT_TYPE_0), 1);
    unsigned char bytes[64] = {1, 0, 0xFF};
    EXPECT_EQ(board.Send(static_cast<_usbSerialPort>(1), bytes, 3), 1);
    EXPECT_EQ(cabinet.TakeSerial(1), Bytes({1, 0, 0xFF}));
    EXPECT_EQ(cabinet.TakeSerial(1), Bytes());
    cabinet.FeedSerial(1, {7, 8});
    unsigned long count = sizeof bytes;
    EXPECT_EQ(board.Receive(static_cast<_usbSerialPort>(1), bytes, &count), 1);
    EXPECT_EQ(Bytes(bytes, bytes + count), Bytes({7, 8}));
    cabinet.AttachSerial(1, "cctalk");
    EXPECT_EQ(cabinet.Do("serial 1 insert 3"), "returned\n");
}

TEST_F(TestingTest, FaultsComeInTheirOrderAndEnd) {
    cabinet.FailExchanges(2, ENOMEM);
    cabinet.RefuseExchanges(1, 77);
    cabinet.ShortenReplies(1, 0);
    cabinet.SetInput(5, true);
    EXPECT_EQ(ErrorOfRead(), USB_ERR_TRANSFER_FAILED);
    EXPECT_EQ(ErrorOfRead(), USB_ERR_TRANSFER_FAILED);
    EXPECT_EQ(ErrorOfRead(), 77);
    EXPECT_EQ(Level(5), 0u);
    EXPECT_EQ(Level(5), 1u);
    cabinet.FailExchanges(1000000, EIO);
    boards.AnswerWith([](const Exchange&) { return marvaneusb::testing::Answer{0, 79}; });
    boards.AnswerNext({0, 80, {}, {}, {}});
    EXPECT_EQ(ErrorOfRead(), 80);
    EXPECT_EQ(ErrorOfRead(), 79);
    boards.AnswerWith(nullptr);
    EXPECT_EQ(ErrorOfRead(), USB_ERR_TRANSFER_FAILED);
    cabinet.StopFaults();
    EXPECT_EQ(ErrorOfRead(), 0);

    Board old = boards.AddBoard(1, Model::kK40);
    ASSERT_EQ(board.InitPort(1), 1);
    old.MixUpEchoes(1);
    EXPECT_EQ(ErrorOfRead(), USB_ERR_TRANSFER_FAILED);
    EXPECT_EQ(ErrorOfRead(), 0);
    old.RefuseExchanges(1, -5);
    EXPECT_EQ(ErrorOfRead(), -5);
}

TEST_F(TestingTest, AnUnpluggedBoardIsDeadForItsDescriptors) {
    EXPECT_TRUE(cabinet.IsPlugged());
    cabinet.Unplug();
    EXPECT_FALSE(cabinet.IsPlugged());
    boards.AnswerWith([](const Exchange&) { return marvaneusb::testing::Answer(); });
    EXPECT_EQ(ErrorOfRead(), USB_ERR_TRANSFER_FAILED);
    boards.AnswerWith(nullptr);
    EXPECT_EQ(open("/dev/Kovar_0", O_RDWR), -1);
    EXPECT_EQ(fopen("/sys/class/Kovar/Kovar_0/device/product", "r"), nullptr);
    cabinet.Plug();
    MarvaneUSB other;
    EXPECT_EQ(ErrorOfRead(), USB_ERR_TRANSFER_FAILED) << "it was open before";
    EXPECT_EQ(other.InitPort(0), 1);
    EXPECT_EQ(boards.OpenDescriptors(), 2);
    other.close();
    EXPECT_EQ(boards.OpenDescriptors(), 1);
}

TEST_F(TestingTest, DoAndShowSpeakAsTheProgramDoes) {
    EXPECT_EQ(cabinet.Do(" input  5 on 6 on "), "");
    EXPECT_NE(cabinet.Show().find("\"on\": [5, 6]"), std::string::npos);
    boards.ForgetSent();
    cabinet.Do("log --clear");
    EXPECT_EQ(Level(6), 1u);
    EXPECT_EQ(cabinet.Do("log"), "1 75 - 0 6000000000\n");
    EXPECT_EQ(boards.Sent(), marvaneusb::testing::Exchanges({{75, 1, {}}}));
}

TEST_F(TestingTest, FittingsAreTheBoards) {
    Fitting fitting;
    fitting.model = Model::kK50;
    fitting.speedMbit = 12;
    fitting.firmwareRunning = false;
    fitting.identity = 6;
    fitting.eeprom = "24LC64:blank";
    fitting.serial1 = "loop";
    Board fitted = boards.AddBoard(15, fitting);
    ASSERT_EQ(board.InitPort(15), 1);
    const std::string state = fitted.Show();
    for (const char* field :
         {"\"number\": 15", "\"model\": \"k50\"", "\"speedMbit\": 12", "\"firmwareRunning\": true",
          "\"on\": [25, 26]", "\"part\": \"24LC64\"", "\"line\": \"loop\""}) {
        EXPECT_NE(state.find(field), std::string::npos) << field;
    }
    EXPECT_EQ(fitted.Do("eeprom read 8000 2"), "ffff\n");
    EXPECT_GT(boards.Sent().size(), 100u) << "the program was downloaded";
    EXPECT_EQ(boards.At(15).DeviceNo(), 15);
}

TEST_F(TestingTest, AForkedChildHasBoardsOfItsOwn) {
    const pid_t child = fork();
    if (child == 0) {
        cabinet.SetInput(5, true);
        _exit(ErrorOfRead() == 0 && boards.At(0).Do("log --clear") != "" && Level(5) == 1 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Level(5), 0u);
}

/** The kind and the text of what it throws. */
std::string ErrorOf(const std::function<void()>& act) {
    try {
        act();
        return "none";
    } catch (const std::out_of_range& error) {
        return std::string("range: ") + error.what();
    } catch (const std::invalid_argument& error) {
        return std::string("argument: ") + error.what();
    } catch (const std::logic_error& error) {
        return std::string("logic: ") + error.what();
    } catch (const std::runtime_error& error) {
        return std::string("runtime: ") + error.what();
    }
}

TEST_F(TestingTest, WhatIsWrongIsNamedAndChangesNothing) {
    const auto fitted = [&](std::function<void(Fitting&)> spoil) {
        Fitting fitting;
        spoil(fitting);
        boards.AddBoard(0, fitting);
    };
    struct Case {
        const char* kind;
        const char* names;  // within the text
        std::function<void()> act;
    };
    const std::string before = cabinet.Show();
    // clang-format off
    const Case cases[] = {
        {"argument", "the device number must be a number from 0 to 15, not 16", [&] { boards.AddBoard(16, Model::kK44); }},
        {"argument", "the device number", [&] { boards.AddBoard(-1, Model::kK44); }},
        {"argument", "the device number", [&] { boards.SetNode(16, true); }},
        {"argument", "the device number", [&] { boards.SetFile(-1, "speed", "12"); }},
        {"argument", "the device number", [&] { boards.RefuseNode(16, EACCES); }},
        {"argument", "the error",         [&] { boards.RefuseNode(0, 134); }},
        {"argument", "model",             [&] { boards.AddBoard(0, static_cast<Model>(4)); }},
        {"argument", "speed is 12 or 480", [&] { boards.AddBoard(0, Model::kK44, 13); }},
        {"argument", "identity",          [&] { fitted([](Fitting& f) { f.identity = 8; }); }},
        {"argument", "24LC01 to 24LC512", [&] { fitted([](Fitting& f) { f.eeprom = "24LC64:blanc"; }); }},
        {"argument", "24LC01 to 24LC512", [&] { fitted([](Fitting& f) { f.eeprom = ""; }); }},
        {"argument", "none, loop",        [&] { fitted([](Fitting& f) { f.serial0 = "pty"; }); }},
        {"range",    "there is no board 3: Boards::AddBoard", [&] { boards.At(3); }},
        {"argument", "the input must be a number from 0 to 32, not '33'", [&] { cabinet.SetInput(33, true); }},
        {"argument", "the input",         [&] { cabinet.CoinsToCome(33); }},
        {"argument", "the output",        [&] { (void)cabinet.Output(38); }},
        {"argument", "the output",        [&] { (void)cabinet.Output(-1); }},
        {"argument", "the reel",          [&] { (void)cabinet.Reel(3); }},
        {"argument", "the position",      [&] { cabinet.PlaceReel(0, 200); }},
        {"argument", "hopper's input",    [&] { (void)cabinet.HopperCoins(33); }},
        {"argument", "number of coins",   [&] { cabinet.InsertCoins(3, 1001); }},
        {"argument", "the bytes",         [&] { cabinet.FeedSerial(0, {}); }},
        {"argument", "the port",          [&] { cabinet.TakeSerial(2); }},
        {"argument", "none, loop",        [&] { cabinet.AttachSerial(0, "pty"); }},
        {"argument", "errno value",       [&] { cabinet.FailExchanges(1, 0); }},
        {"argument", "number of exchanges", [&] { cabinet.FailExchanges(0, EIO); }},
        {"argument", "the reply's length", [&] { cabinet.ShortenReplies(1, 257); }},
        {"argument", "the time in ms",    [&] { boards.Advance(86400001); }},
        {"argument", "the time in ms",    [&] { boards.Advance(-1); }},
        {"argument", "there is no word 'dance'", [&] { cabinet.Do("dance"); }},
        {"runtime",  "only a K40 echoes", [&] { cabinet.MixUpEchoes(1); }},
        {"runtime",  "plugged in already", [&] { cabinet.Plug(); }},
        {"logic",    "one Boards object already", [&] { const Boards second; }},
    };
    // clang-format on
    for (const Case& c : cases) {
        const std::string error = ErrorOf(c.act);
        EXPECT_TRUE(error.starts_with(c.kind)) << error;
        EXPECT_NE(error.find(c.names), std::string::npos) << error;
    }
    EXPECT_EQ(cabinet.Show(), before);
    EXPECT_EQ(boards.Now(), 0);
    EXPECT_EQ(Level(5), 0u) << "the board is another one";
}

TEST_F(TestingTest, CallsThatAreNoBoardsReachTheSystem) {
    for (const char* path : {"/dev/Kovar_0x", "/dev/Kovar_16", "/dev/Kovar_-1", "/dev/Kovar_"}) {
        EXPECT_EQ(open(path, O_RDWR), -1) << path;
        EXPECT_EQ(errno, ENOENT);
    }
    EXPECT_EQ(open(std::string("/dev/Kovar_99999999999999999999").c_str(), O_RDWR), -1);
    EXPECT_EQ(fopen("/sys/class/Kovar/Kovar_0/device/serial", "r"), nullptr);
    int (*volatile opening)(const char*, int, ...) = open;  // whose declaration forbids null
    EXPECT_EQ(opening(nullptr, O_RDONLY), -1);
    EXPECT_EQ(errno, EFAULT);

    // A descriptor that was closed behind all backs is another file's now.
    const int node = open("/dev/Kovar_0", O_RDWR);
    EXPECT_EQ(boards.OpenDescriptors(), 2);
    syscall(SYS_close, node);
    ASSERT_EQ(open("/dev/null", O_RDONLY), node);
    EXPECT_EQ(boards.OpenDescriptors(), 1);
    close(node);

    const int copy = fcntl(open("/dev/Kovar_0", O_RDWR), F_DUPFD_CLOEXEC, 0);
    EXPECT_EQ(boards.OpenDescriptors(), 3);
    EXPECT_EQ(ioctl(copy, 1, nullptr), -1);
    EXPECT_EQ(errno, ENOTTY);
    // No key that ftok yields: whatever else runs here has other objects.
    EXPECT_GE(ftok("/tmp/Sem_K40Mutex", 1) >> 24, 0x40);
}

TEST_F(TestingTest, AReplyIsCutToWhatATransferHolds) {
    std::int32_t status = 9;
    unsigned char reply[257] = {};
    std::uint64_t length = 0;
    K44Record record = {&status, 0, 0, nullptr, 0, reply, &length, 75};
    boards.AnswerNext({0, 0, Bytes(257, 1), {}, {}});
    EXPECT_EQ(ioctl(open("/dev/Kovar_0", O_RDWR), kK44Request, &record), 0);
    EXPECT_EQ(length, 256u);
    EXPECT_EQ(reply[255] - reply[256], 1);
    record.requestLength = 5;
    EXPECT_EQ(ioctl(open("/dev/Kovar_0", O_RDWR), kK44Request, &record), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST(Boards, LeaveNothingBehind) {
    MarvaneUSB board;
    {
        Boards boards;
        boards.AddBoard(0, Model::kK44);
        ASSERT_EQ(board.InitPort(0), 1);
        boards.Advance(5);
        boards.AnswerNext({0, 77, {}, {}, {}});
        boards.AnswerWith([](const Exchange&) { return marvaneusb::testing::Answer{0, 78}; });
    }
    unsigned int level = 0;
    EXPECT_EQ(board.GetInputBit(USB_INPUT_5, &level), 0);
    EXPECT_EQ(board.GetLastError(), USB_ERR_TRANSFER_FAILED);
    EXPECT_EQ(MarvaneUSB().InitPort(0), 0);
    Boards boards;
    EXPECT_EQ(boards.Sent().size(), 0u);
    EXPECT_EQ(boards.Now(), 0);
    boards.AddBoard(0, Model::kK44);
    EXPECT_EQ(board.InitPort(0), 1);
}

}  // namespace
