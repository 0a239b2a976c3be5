// What a board stores: memory, EEPROM, recordings, and all that outlasts the board.
#include "board/memory.h"

#include <algorithm>
#include <numeric>

#include "board_conversation.h"
#include "state/contents_bytes.h"

namespace simulator {
namespace {

constexpr int kNotConfigured = 106, kNoAcknowledge = 107;

TEST_F(BoardTest, MemoryKeepsWhatWasWrittenWhereItWasWritten) {
    Use({.model = Model::kK40});
    Talk({{0, 6, 71, {3, 0x34, 0x12, 1, 2, 3}}, {0, 6, 70, {5, 0x33, 0x12}, {0, 1, 2, 3, 0}}});
    Use({.model = Model::kK44});
    Talk({{0, 6, 117, {2, 0, 12, 0xFE, 0x3F, 5, 6}}, {0, 6, 117, {1, 0, 16, 0, 0, 8}}});
    board.PowerUp();
    Talk({{0, 6, 116, {3, 0, 12, 0xFD, 0x3F}, {0, 5, 6}}, {0, 6, 116, {2, 0, 16, 0, 0}, {8, 0}}});
    EXPECT_EQ(board.memory.Bytes(13, 0, 1)[0], 0);
}

const Bytes kAs24Lc16 = {16, 1, 0x07, 0xFF, 0x50}, kAs24Lc256 = {64, 2, 0x7F, 0xFF, 0x51};

class BoardEepromTest : public BoardTest {
protected:
    void UseBlank(const char* part) {
        Use({.eeprom = EepromPartNamed(part).value(), .eepromBlank = true});
    }
};

TEST_F(BoardEepromTest, APartConfiguredRightlyTakesWritesAcrossPagesAndWrapsAroundAtItsEnd) {
    struct Case {
        const char* part;
        std::size_t size;
        Bytes setting;
    };
    const Case cases[] = {
        {"24LC01", 128, {8, 1, 0, 0x7F, 0x50}},
        {"24LC16", 2048, kAs24Lc16},
        {"24LC256", 32768, kAs24Lc256},
    };
    Bytes data(58), write = {57, 12, 0};
    std::iota(data.begin(), data.end(), std::uint8_t{100});
    data.back() = 255;  // is not written
    write.insert(write.end(), data.begin(), data.end() - 1);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.part);
        UseBlank(c.part);
        const auto low = static_cast<std::uint8_t>(c.size - 1);
        const auto high = static_cast<std::uint8_t>((c.size - 1) / 256);
        Talk({{0, 2, 3, c.setting}, {0, 2, 4, write}, {0, 2, 5, {58, 12, 0}, data}});
        Talk({{0, 2, 5, {1, 11, 0}, {255}}, {0, 2, 4, {2, low, high, 1, 2}}});
        board.PowerUp();
        Talk({{0, 2, 5, {3, low, high}, {1, 2, 255}}, {0, 2, 5, {1, 0, 0}, {2}}});
    }
    EXPECT_FALSE(EepromPartNamed("24LC1024"));
}

TEST_F(BoardEepromTest, AWrongPageSizeShows) {
    struct Case {
        std::uint8_t told;
        Bytes write, pageThen;  // of a part with pages of 8
    };
    const Case cases[] = {
        {16, {10, 16, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {9, 10, 3, 4, 5, 6, 7, 8}},
        {8, {10, 16, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {1, 2, 3, 4, 5, 6, 7, 8}},
        {4, {6, 16, 0, 1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6, 255, 255}},
    };
    for (const Case& c : cases) {
        UseBlank("24LC02");
        Talk({{0, 2, 3, {c.told, 1, 0, 255, 0x50}}, {0, 2, 4, c.write}});
        Talk({{0, 2, 5, {8, 16, 0}, c.pageThen}});
    }
}

TEST_F(BoardEepromTest, WrongAddressingGetsNoAnswer) {
    struct Case {
        const char *what, *part;
        Bytes setting;
        int status;
    };
    const Case cases[] = {
        {"never configured", "24LC256", {}, kNotConfigured},
        {"long as short", "24LC32", kAs24Lc16, kNoAcknowledge},
        {"short as long", "24LC16", kAs24Lc256, kNoAcknowledge},
        {"other bus address", "24LC256", {64, 2, 0x7F, 0xFF, 0x50}, kNoAcknowledge},
        {"an address byte too few", "24LC256", {64, 1, 0x7F, 0xFF, 0x51}, kNoAcknowledge},
        {"another part of its class", "24LC512", kAs24Lc256, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        UseBlank(c.part);
        if (!c.setting.empty()) Talk({{0, 2, 3, c.setting}});
        EXPECT_EQ(Send(2, 5, {1, 0, 0}).status, c.status);
        Talk({{0, 2, 4, {1, 8, 0, 1}, {}, c.status}});
        EXPECT_EQ(board.eeprom.Chip().Contents()[8], c.status == 0 ? 1 : 255);
    }
}

TEST_F(BoardTest, RecordingsPassOverTheProgramsPages) {
    const ByteView program = board.memory.Bytes(13, 0, 16384);
    Talk({{0, 1, 125, {5, 255, 23, 0, 12, 0x3F, 0xFE, 0, 4}}, {9, 1, 127, {}, {0, 0, 0, 0, 4}}});
    Talk({{0, 1, 126, {0x01, 0x2C}}});
    for (const Bytes& on : {Bytes{0, 5}, {23}, {5, 23}, {1, 2, 3}}) {
        for (unsigned n = 0; n < 24; ++n)
            board.inputs.Set(n, std::ranges::find(on, n) != on.end());
        Wait(299);
        EXPECT_EQ(Send(1, 127).reply.at(0), 1);
        Wait(1);
    }
    Talk({{0, 1, 128, Bytes(256, 5), Bytes(256, 5)}, {0, 1, 129, Bytes(4096, 5)}});
    Talk({{0, 1, 127, {}, {2, 0, 4, 0, 0}}, {0, 6, 116, {3, 0, 12, 0xFD, 0x3F}, {0, 9, 4}}});
    Talk({{0, 6, 116, {3, 0, 16, 0, 0}, {5, 0, 0}}});
    EXPECT_EQ(std::ranges::count(program, 0), 16384);
}

TEST_F(BoardTest, StartBeginsARecordingAgainAndConfigurationOrPowerDownEndsIt) {
    board.inputs.Set(9, true);
    Talk({{0, 1, 125, {9, 255, 255, 255, 13, 0, 0, 0x01, 0x2C}}, {0, 1, 126, {0, 10}}});
    Talk({{2619, 1, 127, {}, {1, 1, 5, 0, 39}}});
    board.inputs.Set(9, false);
    Talk({{0, 1, 126, {0, 20}}, {39, 1, 127, {}, {1, 0, 1, 1, 43}}});
    Talk({{0, 6, 116, {3, 0, 16, 0, 0}, {0, 1, 1}}});
    Talk({{0, 1, 125, {9, 255, 255, 255, 1, 0, 0, 0, 2}}, {999, 1, 127, {}, {0, 0, 0, 0, 2}}});
    Talk({{0, 1, 126, {0, 10}}});
    board.PowerDown();
    Wait(1000);
    board.PowerUp();
    Talk({{0, 1, 127, {}, {0, 0, 0, 0, 0}}, {0, 6, 116, {2, 0, 16, 1, 0}, {1, 1}}});
}

// clang-format off
const BoardContents kSmallContents = {
    .model = Model::kK50,
    .eepromPart = EepromPart::k24LC02,
    .memory = {0xAA, 0xBB},
    .eepromSetting = EepromSetting{64, 2, 0x7FFF, 0x51},
    .eeprom = {7, 8, 9},
    .clock = {.offset = 0x01020304, .clockFailed = true, .clockAtBatteryFailure = 0xA1B2C3D4,
              .openSwitches = 0x81, .flags = {1, 2}, .cachedFlags = {4, 8},
              .log = {{0x0A0B0C0D, 0x85}}},
    .picSerial = {'1', '2', '3', '4', '5', '6', '7', '8'},
};
const Bytes kSmallBytes = {
    'M', 'A', 'R', 'V', 'S', 'I', 'M', 1,        // version 1
    3, 1,                                        // K50, second part
    2, 0, 0, 0, 0xAA, 0xBB,                      // memory
    1, 64, 2, 0xFF, 0x7F, 0x51,                  // EEPROM setting
    3, 0, 0, 0, 7, 8, 9,                         // EEPROM
    4, 3, 2, 1, 1, 0, 0xD4, 0xC3, 0xB2, 0xA1,    // clock and failures
    0x81, 1, 2, 4, 8,                            // switches and flags
    1, 0, 0, 0, 0x0D, 0x0C, 0x0B, 0x0A, 0x85,    // log
    '1', '2', '3', '4', '5', '6', '7', '8',      // the PIC's serial number
    0x87, 0x15, 0xA3, 0x84,                      // CRC-32
};
// clang-format on

// Replaces the last four bytes by the CRC of the others.
void Seal(Bytes& bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (std::size_t i = 0; i + 4 < bytes.size(); ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
    }
    for (std::size_t i = 0; i < 4; ++i)
        bytes[bytes.size() - 4 + i] = static_cast<std::uint8_t>(~crc >> (8 * i));
}

TEST(BoardContentsTest, TheFormStaysTheSameAndAnyDamageIsNoticed) {
    EXPECT_EQ(AsBytes(kSmallContents), kSmallBytes);
    EXPECT_EQ(ContentsIn(kSmallBytes), kSmallContents);
    for (std::size_t bit = 0; bit < 8 * kSmallBytes.size(); ++bit) {
        Bytes damaged = kSmallBytes;
        damaged[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
        EXPECT_FALSE(ContentsIn(damaged)) << "bit " << bit;
    }
    for (std::size_t length = 0; length < kSmallBytes.size(); ++length) {
        Bytes cut(kSmallBytes.begin(), kSmallBytes.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_FALSE(ContentsIn(cut)) << "cut to " << length;
        if (length >= 4) Seal(cut);
        EXPECT_FALSE(ContentsIn(cut)) << "cut to " << length << ", with a right checksum";
    }
    struct Case {
        const char* what;
        std::size_t place;
        std::uint8_t value;
    };
    const Case cases[] = {
        {"other mark", 0, 'm'},          {"later version", 7, 2},       {"no such model", 8, 4},
        {"no such part", 9, 10},         {"memory too long", 13, 0xFF}, {"no such setting", 16, 2},
        {"flag neither 0 nor 1", 33, 2}, {"log too short", 44, 0},
    };
    for (const Case& c : cases) {
        Bytes bytes = kSmallBytes;
        bytes[c.place] = c.value;
        Seal(bytes);
        EXPECT_FALSE(ContentsIn(bytes)) << c.what;
    }
}

TEST_F(BoardTest, AnotherBoardGoesOnWithTheContentsOfItsKindOnly) {
    Use({.model = Model::kK50, .eeprom = EepromPart::k24LC64});
    Talk({{0, 6, 117, {1, 0, 64, 253, 63, 77}}, {0, 2, 3, {32, 2, 0x1F, 0xFF, 0x51}}});
    Talk({{0, 2, 4, {1, 255, 31, 78}}, {0, 5, 20, {100, 0, 0, 0}}, {0, 5, 65, Bytes(8, 3)}});
    board.clock.FailBattery();
    board.clock.SetSwitch(4, true);
    const auto contents = ContentsIn(AsBytes(board.Contents()));
    ASSERT_TRUE(contents);

    Use({.model = Model::kK50, .eeprom = EepromPart::k24LC64});
    const BoardContents before = board.Contents();
    void (*const changes[])(BoardContents&) = {
        [](BoardContents& c) { c.model = Model::kK40; },
        [](BoardContents& c) { c.eepromPart = EepromPart::k24LC128; },
        [](BoardContents& c) { c.memory.pop_back(); },
        [](BoardContents& c) { c.memory.push_back(0); },
        [](BoardContents& c) { c.eeprom.pop_back(); },
        [](BoardContents& c) { c.eepromSetting->pageSize = 0; },
        [](BoardContents& c) { c.clock.log.resize(257); },
    };
    for (std::size_t n = 0; n < std::size(changes); ++n) {
        BoardContents changed = *contents;
        changes[n](changed);
        EXPECT_FALSE(board.Restore(changed)) << n;
        EXPECT_EQ(board.Contents(), before) << n;
    }
    EXPECT_TRUE(board.Restore(*contents));
    Talk({{0, 6, 116, {1, 0, 64, 253, 63}, {77}}, {0, 2, 5, {1, 255, 31}, {78}}});
    Talk({{0, 5, 21, {}, {100, 0, 0, 0}}, {0, 5, 41, {}, {100, 0, 0, 0, 0x85}}});
    Talk({{0, 5, 63, {}, Bytes(8, 3)}, {0, 5, 119, {}, {1}}});
}

}  // namespace
}  // namespace simulator
