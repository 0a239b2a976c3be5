// Contents that outlast a board: their form as bytes, and what is refused.
#include "board_contents.h"

#include "model_expectations.h"

namespace simulator {
namespace {

BoardContents SmallContents() {
    return {
        .model = Model::kK50,
        .eepromPart = EepromPart::k24LC02,
        .memory = {0xAA, 0xBB},
        .eepromSetting = EepromSetting{64, 2, 0x7FFF, 0x51},
        .eeprom = {7, 8, 9},
        .clock = {.offset = 0x01020304,
                  .clockFailed = true,
                  .clockAtBatteryFailure = 0xA1B2C3D4,
                  .openSwitches = 0x81,
                  .flags = {1, 2},
                  .cachedFlags = {4, 8},
                  .log = {{0x0A0B0C0D, 0x85}}},
        .picSerial = {'1', '2', '3', '4', '5', '6', '7', '8'},
    };
}

// clang-format off
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
constexpr std::size_t kModelAt = 8, kPartAt = 9, kMemoryLengthAt = 10, kHasSettingAt = 16;
constexpr std::size_t kClockFailedAt = 33, kLogLengthAt = 44;

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

TEST(BoardContentsTest, FormStaysTheSame) {
    EXPECT_EQ(AsBytes(SmallContents()), kSmallBytes);
    EXPECT_EQ(ContentsIn(kSmallBytes), SmallContents());

    BoardContents unset = SmallContents();
    unset.eepromSetting.reset();
    unset.clock.log.clear();
    EXPECT_EQ(ContentsIn(AsBytes(unset)), unset);
}

TEST(BoardContentsTest, AnyDamageIsNoticed) {
    for (std::size_t bit = 0; bit < 8 * kSmallBytes.size(); ++bit) {
        Bytes damaged = kSmallBytes;
        damaged[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
        EXPECT_FALSE(ContentsIn(damaged)) << "bit " << bit;
    }
    for (std::size_t length = 0; length < kSmallBytes.size(); ++length)
        EXPECT_FALSE(ContentsIn(Payload(kSmallBytes).first(length))) << "cut to " << length;
}

TEST(BoardContentsTest, WrongContentsWithARightChecksumAreRefused) {
    struct Case {
        const char* what;
        std::size_t place;
        std::uint8_t value;
    };
    const Case cases[] = {
        {"other mark", 0, 'm'},
        {"later version", 7, 2},
        {"no model", kModelAt, 0},
        {"no such model", kModelAt, 4},
        {"no such part", kPartAt, 10},
        {"memory longer than the rest", kMemoryLengthAt + 3, 0xFF},
        {"neither with nor without a setting", kHasSettingAt, 2},
        {"no flag", kClockFailedAt, 2},
        {"log shorter than its bytes", kLogLengthAt, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Bytes bytes = kSmallBytes;
        bytes[c.place] = c.value;
        Seal(bytes);
        EXPECT_FALSE(ContentsIn(bytes));
    }
    for (std::size_t length = 0; length < kSmallBytes.size(); ++length) {
        Bytes cut(kSmallBytes.begin(), kSmallBytes.begin() + static_cast<std::ptrdiff_t>(length));
        if (length >= 4) Seal(cut);
        EXPECT_FALSE(ContentsIn(cut)) << "cut to " << length;
    }
    BoardContents fullerThanFull = SmallContents();
    fullerThanFull.clock.log.resize(257);
    EXPECT_FALSE(ContentsIn(AsBytes(fullerThanFull)));
    Bytes longer = kSmallBytes;
    longer.push_back(0);
    Seal(longer);
    EXPECT_FALSE(ContentsIn(longer));
}

TEST(BoardContentsTest, AnotherBoardGoesOnWithThem) {
    const Moment now{std::chrono::seconds(1000)};
    const BoardOptions options = {
        .model = Model::kK50, .eeprom = EepromPart::k24LC64, .time = [now] { return now; }};
    Board first(options);
    first.Handle(117, 6, Bytes{1, 0, 64, 255, 63, 77});
    first.Handle(3, 2, Bytes{32, 2, 0x1F, 0xFF, 0x51});
    first.Handle(4, 2, Bytes{1, 255, 31, 78});
    first.Handle(20, 5, Bytes{100, 0, 0, 0});
    first.Handle(65, 5, Bytes{1, 2, 3, 4, 5, 6, 7, 8});
    first.clock.FailBattery();
    first.clock.SetSwitch(4, true);

    Board second(options);
    const auto contents = ContentsIn(AsBytes(first.Contents()));
    ASSERT_TRUE(contents);
    EXPECT_TRUE(second.Restore(*contents));
    EXPECT_EQ(second.Contents(), *contents);
    EXPECT_EQ(second.Handle(116, 6, Bytes{1, 0, 64, 255, 63}), Accepted({77}));
    EXPECT_EQ(second.Handle(5, 2, Bytes{1, 255, 31}), Accepted({78}));
    EXPECT_EQ(second.Handle(21, 5, {}), Accepted({100, 0, 0, 0}));
    EXPECT_EQ(second.Handle(41, 5, {}), Accepted({100, 0, 0, 0, 0x85}));
    EXPECT_EQ(second.Handle(63, 5, {}), Accepted({1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(second.Handle(119, 5, {}), Accepted({1}));
    EXPECT_EQ(second.Handle(74, 6, {}), Accepted({0})) << "the program is gone";
}

TEST(BoardContentsTest, BoardRefusesWhatIsNotItsOwnWhole) {
    struct Case {
        const char* what;
        void (*change)(BoardContents&);
    };
    const Case cases[] = {
        {"other model", [](BoardContents& c) { c.model = Model::kK40; }},
        {"other part", [](BoardContents& c) { c.eepromPart = EepromPart::k24LC128; }},
        {"memory too short", [](BoardContents& c) { c.memory.pop_back(); }},
        {"memory too long", [](BoardContents& c) { c.memory.push_back(0); }},
        {"EEPROM too short", [](BoardContents& c) { c.eeprom.pop_back(); }},
        {"no page",
         [](BoardContents& c) {
             c.eepromSetting = EepromSetting{0, 2, 1, 0x51};
         }},
        {"log too long", [](BoardContents& c) { c.clock.log.resize(257); }},
    };
    Board other({});
    other.Handle(117, 6, Bytes{1, 0, 1, 0, 0, 77});
    other.clock.SetSwitch(4, true);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        BoardContents contents = other.Contents();
        c.change(contents);
        Board board({});
        const BoardContents before = board.Contents();
        EXPECT_FALSE(board.Restore(contents));
        EXPECT_EQ(board.Contents(), before);
    }
}

}  // namespace
}  // namespace simulator
