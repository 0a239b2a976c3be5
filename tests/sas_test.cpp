/**
 * @file sas_test.cpp
 * @brief The SAS operations of the K44 and K50: payloads, order of checks, and the status byte.
 */
#include "serial_test.h"

namespace {

class SasTest : public SerialTest {
protected:
    unsigned status = 77;
};

TEST_F(SasTest, PointersAndAddressThenPortThenConfiguration) {
    ExpectPortChecks(
        {
            // clang-format off
            {"SetSASMachineAddress", [this](auto port) { return board.SetSASMachineAddress(port, 5); }},
            {"SetSASAutoReply",      [this](auto port) { return board.SetSASAutoReply(port, 1, 2); }},
            {"SetSASBusy",           [this](auto port) { return board.SetSASBusy(port, 1); }},
            {"GetSASMessageStatus",  [this](auto port) { return board.GetSASMessageStatus(port, &status); },
                                     [this](auto port) { return board.GetSASMessageStatus(port, nullptr); }},
            // clang-format on
        },
        {Model::kK44, Model::kK50});
    Open(Model::kK44);
    Expect({
        // clang-format off
        {"not configured",       [this] { return board.SetSASMachineAddress(kPort0, 127); }, 0, 38, {}},
        {"address before that",  [this] { return board.SetSASMachineAddress(kPort0, 128); }, 0, 8,  {}},
        {"far beyond",           [this] { return board.SetSASMachineAddress(kPort0, 255); }, 0, 8,  {}},
        // clang-format on
    });
}

TEST_F(SasTest, SettingsTravelToThePortsChannel) {
    for (const Model model : {Model::kK44, Model::kK50}) {
        OpenConfigured(model);
        Expect({
            // clang-format off
            {"lowest address",  [this] { return board.SetSASMachineAddress(kPort0, 0); },       1, 0, {{122, 3, {0}}}},
            {"highest address", [this] { return board.SetSASMachineAddress(kPort1, 127); },     1, 0, {{122, 4, {127}}}},
            {"auto reply",      [this] { return board.SetSASAutoReply(kPort0, 2, 255); },       1, 0, {{123, 3, {2, 255}}}},
            {"mode's low byte", [this] { return board.SetSASAutoReply(kPort1, 0x1FF, 7); },     1, 0, {{123, 4, {255, 7}}}},
            {"largest mode",    [this] { return board.SetSASAutoReply(kPort1, 0xFFFFFF01, 7); }, 1, 0, {{123, 4, {1, 7}}}},
            {"busy",            [this] { return board.SetSASBusy(kPort0, 1); },                 1, 0, {{123, 3, {1, 0}}}},
            {"busy, low byte",  [this] { return board.SetSASBusy(kPort1, 0x100); },             1, 0, {{123, 4, {0, 0}}}},
            // clang-format on
        });
    }
}

TEST_F(SasTest, TheStatusIsOneByte) {
    struct Case {
        const char* what;
        DriverAnswer answer;
        int result, error;
        unsigned status;
    };
    const Case cases[] = {
        {"small", {.reply = {5}}, 1, 0, 5},
        {"not signed, and alone", {.reply = {0xFF, 1, 2, 3}}, 1, 0, 255},
        {"none came", {}, 1, 0, 0},
        {"hostile claim", {.reply = {3}, .claimedLength = 1UL << 40}, 1, 0, 3},
        {"refused", {.status = 9, .reply = {5}}, 0, 9, 77},
        {"failed", {.error = 5}, 0, 6, 77},
    };
    for (const Model model : {Model::kK44, Model::kK50}) {
        for (const _usbSerialPort port : kPorts) {
            for (const Case& c : cases) {
                SCOPED_TRACE(std::string(ModelName(model)) + ": " + c.what);
                OpenConfigured(model);
                driver.AnswerNext(c.answer);
                status = 77;
                EXPECT_EQ(board.GetSASMessageStatus(port, &status), c.result);
                EXPECT_EQ(board.GetLastError(), c.error);
                EXPECT_EQ(status, c.status);
                EXPECT_EQ(driver.Sent(), Exchanges({{124, ChannelOf(port), {}}}));
            }
        }
    }
}

TEST_F(SasTest, ARefusalIsPassedOn) {
    ExpectStatusPassedOn({
        {"SetSASMachineAddress", [this](auto port) { return board.SetSASMachineAddress(port, 5); }},
        {"SetSASAutoReply", [this](auto port) { return board.SetSASAutoReply(port, 1, 2); }},
        {"SetSASBusy", [this](auto port) { return board.SetSASBusy(port, 1); }},
    });
}

TEST_F(SasTest, AConfiguredK40RefusesThemAll) {
    OpenConfigured(Model::kK40);
    Expect({
        // clang-format off
        {"address", [this] { return board.SetSASMachineAddress(kPort0, 5); },        0, 25, {}},
        {"reply",   [this] { return board.SetSASAutoReply(kPort0, 1, 2); },          0, 25, {}},
        {"busy",    [this] { return board.SetSASBusy(kPort0, 1); },                  0, 25, {}},
        {"status",  [this] { return board.GetSASMessageStatus(kPort0, nullptr); },   0, 25, {}},
        // clang-format on
    });
}

}  // namespace
