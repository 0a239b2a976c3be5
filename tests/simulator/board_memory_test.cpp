// What a board stores: memory, EEPROM, recordings, and all that outlasts the board.
#include <algorithm>
#include <numeric>

#include "board/memory.h"
#include "board_conversation.h"
#include "state/contents_bytes.h"

namespace simulator {
namespace {

class StorageTest : public BoardModelTest {
protected:
    StorageTest() {
        // A board with a blank 24LC01, 24LC16, ...
        Word("part", [this](auto& n) {
            const std::string number = std::to_string(n.at(0));
            const auto part = EepromPartNamed((n.at(0) < 10 ? "24LC0" : "24LC") + number);
            Use({.eeprom = part.value(), .eepromBlank = true});
        });
        Word("cell", [this](auto& n) { return board.eeprom.Chip().Contents()[n.at(0)]; });
    }
};

TEST_F(StorageTest, MemoryKeepsWhatWasWrittenWhereItWasWritten) {
    Use({.model = Model::kK40});
    Talk("6/71 3 0x34 0x12 1 2 3; 6/70 5 0x33 0x12 = 0 1 2 3 0");
    Use({.model = Model::kK44});
    Talk(R"(
        6/117 2 0 12 0xFE 0x3F 5 6; 6/117 1 0 16 0 0 8; power-up
        6/116 3 0 12 0xFD 0x3F = 0 5 6; 6/116 2 0 16 0 0 = 8 0)");
    EXPECT_EQ(board.memory.Bytes(13, 0, 1)[0], 0);
}

TEST_F(StorageTest, AnEepromConfiguredRightlyTakesWritesAcrossPagesAndWrapsAroundAtItsEnd) {
    const std::pair<std::string, std::string> cases[] = {
        {"part 1; 2/3 8 1 0 0x7F 0x50", "0x7F 0"},
        {"part 16; 2/3 16 1 0x07 0xFF 0x50", "0xFF 0x07"},
        {"part 256; 2/3 64 2 0x7F 0xFF 0x51", "0xFF 0x7F"},
    };
    Numbers numbers(57);
    std::iota(numbers.begin(), numbers.end(), 100);
    const std::string data = Text(numbers);
    const std::string uses = "2/4 57 12 0" + data + "; 2/5 58 12 0 =" + data + " 255";
    for (const auto& [part, last] : cases) {
        Talk(part);
        Talk(uses);
        Talk("2/5 1 11 0 = 255; 2/4 2 " + last + " 1 2; power-up");
        Talk("2/5 3 " + last + " = 1 2 255; 2/5 1 0 0 = 2");
    }
    EXPECT_FALSE(EepromPartNamed("24LC1024"));
}

TEST_F(StorageTest, AWrongPageSizeShows) {
    // Of a part with pages of 8: told to be 16, 8 and 4.
    Talk(R"(
        part 2; 2/3 16 1 0 255 0x50; 2/4 10 16 0 1 2 3 4 5 6 7 8 9 10; 2/5 8 16 0 = 9 10 3 4 5 6 7 8
        part 2; 2/3 8 1 0 255 0x50; 2/4 10 16 0 1 2 3 4 5 6 7 8 9 10; 2/5 8 16 0 = 1 2 3 4 5 6 7 8
        part 2; 2/3 4 1 0 255 0x50; 2/4 6 16 0 1 2 3 4 5 6; 2/5 8 16 0 = 1 2 3 4 5 6 255 255)");
}

TEST_F(StorageTest, AnEepromThatIsAddressedWronglyDoesNotAnswer) {
    // Never configured; long as short, short as long; another address on the bus; a byte of the
    // address missing. Another part of the same class answers.
    Talk(R"(
        part 256; 2/5 1 0 0 !106; 2/4 1 8 0 1 !106; cell 8 = 255
        part 32; 2/3 16 1 7 255 0x50; 2/5 1 0 0 !107; 2/4 1 8 0 1 !107; cell 8 = 255
        part 16; 2/3 64 2 127 255 0x51; 2/5 1 0 0 !107; 2/4 1 8 0 1 !107; cell 8 = 255
        part 256; 2/3 64 2 127 255 0x50; 2/5 1 0 0 !107; 2/4 1 8 0 1 !107; cell 8 = 255
        part 256; 2/3 64 1 127 255 0x51; 2/5 1 0 0 !107; 2/4 1 8 0 1 !107; cell 8 = 255
        part 512; 2/3 64 2 127 255 0x51; 2/5 1 0 0 = 255; 2/4 1 8 0 1; cell 8 = 1)");
}

TEST_F(StorageTest, RecordingsPassOverTheProgramsPages) {
    Talk(R"(
        1/125 5 255 23 0 12 0x3F 0xFE 0 4; +9 1/127 = 0 0 0 0 4; 1/126 0x01 0x2C
        set 0 1; set 5 1; +299 1/127 = 1 0 0 0 4; +1 1/127 = 1 0 1 0 3; set 0 0; set 5 0
        set 23 1; +300 set 5 1; +300 set 5 0; set 23 0; set 1 1; set 2 1; set 3 1; +299 1/127 = 1 0 3 0 1
        +1 1/128 5*256 = 5*256; 1/129 5*4096
        1/127 = 2 0 4 0 0; 6/116 3 0 12 0xFD 0x3F = 0 9 4; 6/116 3 0 16 0 0 = 5 0 0)");
    EXPECT_EQ(std::ranges::count(board.memory.Bytes(13, 0, 16384), 0), 16384);
}

TEST_F(StorageTest, StartBeginsARecordingAgainAndConfigurationOrPowerDownEndsIt) {
    Talk(R"(
        set 9 1; 1/125 9 255 255 255 13 0 0 0x01 0x2C; 1/126 0 10; +2619 1/127 = 1 1 5 0 39
        set 9 0; 1/126 0 20; +39 1/127 = 1 0 1 1 43; 6/116 3 0 16 0 0 = 0 1 1
        1/125 9 255 255 255 1 0 0 0 2; +999 1/127 = 0 0 0 0 2; 1/126 0 10; power-down
        +1000 power-up; 1/127 = 0*5; 6/116 2 0 16 1 0 = 1 1)");
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
    // Mark, version, model, part; memory too long, setting, flag neither 0 nor 1, log too short.
    const std::pair<std::size_t, std::uint8_t> wrong[] = {{0, 'm'},   {7, 2},  {8, 4},  {9, 10},
                                                          {13, 0xFF}, {16, 2}, {33, 2}, {44, 0}};
    for (const auto& [place, value] : wrong) {
        Bytes bytes = kSmallBytes;
        bytes[place] = value;
        Seal(bytes);
        EXPECT_FALSE(ContentsIn(bytes)) << place;
    }
}

TEST_F(StorageTest, AnotherBoardGoesOnWithTheContentsOfItsKindOnly) {
    Use({.model = Model::kK50, .eeprom = EepromPart::k24LC64});
    Talk(R"(
        6/117 1 0 64 253 63 77; 2/3 32 2 0x1F 0xFF 0x51; 2/4 1 255 31 78; 5/20 100 0 0 0; 5/65 3*8
        fail-battery; open 4)");
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
    Talk(R"(
        6/116 1 0 64 253 63 = 77; 2/5 1 255 31 = 78; 5/21 = 100 0 0 0; 5/41 = 100 0 0 0 0x85
        5/63 = 3*8; 5/119 = 1)");
}

}  // namespace
}  // namespace simulator
