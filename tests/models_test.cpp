/**
 * @file models_test.cpp
 * @brief What each model answers, refuses, and what the facade does with no board open.
 */
#include <functional>

#include "board_test.h"

namespace {

class ModelsTest : public BoardTest {};

TEST_F(ModelsTest, EachModelTellsItsTypeAndSpeed) {
    struct Case {
        Model model;
        int speedMbit, type, speed;
    };
    const Case cases[] = {
        {Model::kK40, 12, 1, 1}, {Model::kK44, 480, 2, 2}, {Model::kK50, 12, 3, 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(ModelName(c.model));
        Open(c.model, c.speedMbit);
        unsigned char type = 0;
        unsigned char speed = 0;
        EXPECT_EQ(board.GetFittedBoard(&type), 1);
        EXPECT_EQ(board.GetBoardSpeed(&speed), 1);
        EXPECT_EQ(type, c.type);
        EXPECT_EQ(speed, c.speed);
        EXPECT_EQ(board.GetFittedBoard(nullptr), 0);
        EXPECT_EQ(board.GetLastError(), 30);
        EXPECT_EQ(driver.Sent(), Exchanges());
    }
}

struct Operation {
    const char* name;
    std::function<int(MarvaneUSB&)> call;
};

// With arguments that no check would let through: a refusal looks at none of them.
const auto kBadInput = static_cast<_usbInputBitId>(1000);
const auto kBadOutput = static_cast<_usbOutputBitId>(1000);
const auto kBadPort = static_cast<_usbSerialPort>(-5);

const Operation kOnlyK50[] = {
    {"ReadClockAtBatteryFailure",
     [](MarvaneUSB& b) { return b.ReadClockAtBatteryFailure(nullptr); }},
    {"ReadAndResetRTCFailure", [](MarvaneUSB& b) { return b.ReadAndResetRTCFailure(nullptr); }},
};

const Operation kNotK40[] = {
    {"ConfigurePulsedInputEx",
     [](MarvaneUSB& b) { return b.ConfigurePulsedInputEx(kBadInput, 1, 2, USB_ACTIVE_STATE_0); }},
    {"ReleaseParallelHopperCoinsEx",
     [](MarvaneUSB& b) {
         return b.ReleaseParallelHopperCoinsEx(kBadInput, 1, 2, USB_ACTIVE_STATE_0, kBadOutput, 3,
                                               4);
     }},
    {"StopHopperCoinRelease", [](MarvaneUSB& b) { return b.StopHopperCoinRelease(kBadInput); }},
    {"ConfigureRecordingInputs",
     [](MarvaneUSB& b) { return b.ConfigureRecordingInputs(nullptr, ~0UL, 1); }},
    {"StartRecordingInputs", [](MarvaneUSB& b) { return b.StartRecordingInputs(0); }},
    {"GetRecordingStatus",
     [](MarvaneUSB& b) { return b.GetRecordingStatus(nullptr, nullptr, nullptr); }},
    {"ReadDiagnosticData",
     [](MarvaneUSB& b) { return b.ReadDiagnosticData(nullptr, 5, nullptr, nullptr); }},
    {"WriteDiagnosticData", [](MarvaneUSB& b) { return b.WriteDiagnosticData(nullptr, 5); }},
    {"GetDallasSerialNumber",
     [](MarvaneUSB& b) { return b.GetDallasSerialNumber(nullptr, nullptr); }},
    {"ReadAndResetBatteryFailFlag",
     [](MarvaneUSB& b) { return b.ReadAndResetBatteryFailFlag(nullptr); }},
};

const Operation kSas[] = {
    {"SetSASMachineAddress", [](MarvaneUSB& b) { return b.SetSASMachineAddress(kBadPort, 200); }},
    {"SetSASAutoReply", [](MarvaneUSB& b) { return b.SetSASAutoReply(kBadPort, 1, 2); }},
    {"SetSASBusy", [](MarvaneUSB& b) { return b.SetSASBusy(kBadPort, 1); }},
    {"GetSASMessageStatus", [](MarvaneUSB& b) { return b.GetSASMessageStatus(kBadPort, nullptr); }},
};

template <class Operations>
void ExpectRefused(MarvaneUSB& board, const Operations& operations, int error) {
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        board.ClearErrors();
        EXPECT_EQ(operation.call(board), 0);
        EXPECT_EQ(board.GetLastError(), error);
        EXPECT_EQ(InProcessDriver::Instance().Sent(), Exchanges());
    }
}

TEST_F(ModelsTest, K40RefusesWhatItLacks) {
    Open(Model::kK40);
    ExpectRefused(board, kOnlyK50, 25);
    ExpectRefused(board, kNotK40, 25);
    ExpectRefused(board, kSas, 25);
}

TEST_F(ModelsTest, K44RefusesWhatOnlyTheK50Has) {
    Open(Model::kK44);
    ExpectRefused(board, kOnlyK50, 26);
}

TEST_F(ModelsTest, WithNoBoardOpenOperationsFailAndOnlySasSaysWhy) {
    const Operation others[] = {
        {"GetFittedBoard", [](MarvaneUSB& b) { return b.GetFittedBoard(nullptr); }},
        {"PerformUSBIO",
         [](MarvaneUSB& b) { return b.PerformUSBIO(75, 9, nullptr, 1, nullptr, nullptr); }},
        {"DownloadHiCode", [](MarvaneUSB& b) { return b.DownloadHiCode(); }},
        {"GetInputs", [](MarvaneUSB& b) { return b.GetInputs(static_cast<usbInput*>(nullptr)); }},
        {"SetOutputBit", [](MarvaneUSB& b) { return b.SetOutputBit(kBadOutput, 9); }},
        {"SetConfig", [](MarvaneUSB& b) { return b.SetConfig(kBadPort, nullptr, {}); }},
        {"ReadLargeSRAM", [](MarvaneUSB& b) { return b.ReadLargeSRAM(~0UL, nullptr, ~0UL); }},
        {"Get8051Version", [](MarvaneUSB& b) { return b.Get8051Version(nullptr); }},
        {"ReceiveEx", [](MarvaneUSB& b) { return b.ReceiveEx(kBadPort, nullptr, 0, nullptr); }},
    };
    ExpectRefused(board, others, 0);
    ExpectRefused(board, kNotK40, 0);
    ExpectRefused(board, kOnlyK50, 0);
    ExpectRefused(board, kSas, 25);
}

}  // namespace
