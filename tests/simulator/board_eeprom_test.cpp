// The EEPROM: address wrap-around and pages of all parts, and a part that is configured wrongly.
#include "board_eeprom.h"

#include <numeric>
#include <optional>
#include <set>

#include "model_expectations.h"

namespace simulator {
namespace {

constexpr int kMalformed = 102, kOutOfRange = 103, kTooLong = 104;
constexpr int kNotConfigured = 106, kNoAcknowledge = 107;

const Bytes kAs24Lc16 = {16, 1, 0x07, 0xFF, 0x50};
const Bytes kAs24Lc256 = {64, 2, 0x7F, 0xFF, 0x51};

struct Part {
    const char* name;
    std::size_t size;
    std::uint8_t pageSize, addressBytes, busAddress;

    Bytes Setting() const {
        const auto high = static_cast<std::uint8_t>((size - 1) / 256);
        const auto low = static_cast<std::uint8_t>((size - 1) % 256);
        return {pageSize, addressBytes, high, low, busAddress};
    }
};

const Part kAllParts[] = {
    {"24LC01", 128, 8, 1, 0x50},     {"24LC02", 256, 8, 1, 0x50},
    {"24LC04", 512, 16, 1, 0x50},    {"24LC08", 1024, 16, 1, 0x50},
    {"24LC16", 2048, 16, 1, 0x50},   {"24LC32", 4096, 32, 2, 0x51},
    {"24LC64", 8192, 32, 2, 0x51},   {"24LC128", 16384, 64, 2, 0x51},
    {"24LC256", 32768, 64, 2, 0x51}, {"24LC512", 65536, 128, 2, 0x51},
};

Bytes Header(std::size_t count, std::size_t address) {
    return {static_cast<std::uint8_t>(count), static_cast<std::uint8_t>(address % 256),
            static_cast<std::uint8_t>(address / 256 % 256)};
}

class Eeprom {
public:
    explicit Eeprom(const char* name, bool blank = false)
        : board({.eeprom = EepromPartNamed(name).value(), .eepromBlank = blank}) {}

    int Configure(const Bytes& setting) { return board.Handle(3, 2, setting).status; }
    Answer Read(std::size_t count, std::size_t address) {
        return board.Handle(5, 2, Header(count, address));
    }
    int Write(std::size_t address, const Bytes& data) {
        Bytes payload = Header(data.size(), address);
        payload.insert(payload.end(), data.begin(), data.end());
        return board.Handle(4, 2, payload).status;
    }

    // Two reads, as 100 bytes take.
    std::optional<Bytes> Read100(std::size_t address) {
        Answer bytes = Read(58, address);
        const Answer more = Read(42, address + 58);
        if (bytes.status != 0 || more.status != 0) return std::nullopt;
        bytes.reply.insert(bytes.reply.end(), more.reply.begin(), more.reply.end());
        return bytes.reply;
    }

    // The size of the part, by the address where its beginning shows up again.
    std::size_t DetectSize() {
        Configure(kAs24Lc256);
        std::size_t probe = 4096, last = 32768;
        auto beginning = Read100(0);
        if (!beginning) {
            Configure(kAs24Lc16);
            probe = 128;
            last = 1024;
            beginning = Read100(0);
        }
        while (probe <= last && Read100(probe) != beginning)
            probe *= 2;
        return probe;
    }

    Board board;
};

TEST(BoardEepromTest, WrapAroundTellsTheParts) {
    for (const Part& part : kAllParts) {
        EXPECT_EQ(Eeprom(part.name).DetectSize(), part.size) << part.name;
        EXPECT_EQ(Eeprom(part.name, true).DetectSize(), part.addressBytes == 1 ? 128u : 4096u)
            << part.name << ", blank";
    }
    EXPECT_FALSE(EepromPartNamed("24LC1024"));
    EXPECT_FALSE(EepromPartNamed(""));
}

TEST(BoardEepromTest, UnwrittenPartsHoldWhatTheyAreSaidToHold) {
    Eeprom numbered("24LC512"), blank("24LC512", true);
    numbered.Configure({128, 2, 255, 255, 0x51});
    blank.Configure({128, 2, 255, 255, 0x51});
    EXPECT_EQ(numbered.Read(6, 0), Accepted({0, 0, 0, 1, 0, 2}));
    EXPECT_EQ(numbered.Read(6, 65532), Accepted({127, 254, 127, 255, 0, 0}));
    EXPECT_EQ(blank.Read(2, 65535), Accepted({255, 255}));

    const Payload contents = numbered.board.eeprom.Chip().Contents();
    std::set<Bytes> seen;
    for (std::size_t i = 0; i + 4 <= contents.size(); ++i)
        EXPECT_TRUE(seen.insert({contents.begin() + i, contents.begin() + i + 4}).second) << i;
}

TEST(BoardEepromTest, RightlyConfiguredPartTakesWritesAcrossItsPages) {
    Bytes data(57);
    std::iota(data.begin(), data.end(), std::uint8_t{100});
    for (const Part& part : kAllParts) {
        SCOPED_TRACE(part.name);
        Eeprom eeprom(part.name, true);
        ASSERT_EQ(eeprom.Configure(part.Setting()), 0);
        EXPECT_EQ(eeprom.Write(part.pageSize - 3u, data), 0);
        EXPECT_EQ(eeprom.Read(57, part.pageSize - 3u), Accepted(data));
        EXPECT_EQ(eeprom.Read(1, part.pageSize - 4u), Accepted({255}));
        EXPECT_EQ(eeprom.Read(1, part.pageSize + 54u), Accepted({255}));

        EXPECT_EQ(eeprom.Write(part.size - 1, {1, 2}), 0) << "across the end of the part";
        EXPECT_EQ(eeprom.Read(3, part.size - 1), Accepted({1, 2, 255}));
    }
}

TEST(BoardEepromTest, WrongPageSizeShows) {
    for (const Part& part : kAllParts) {
        SCOPED_TRACE(part.name);
        Eeprom eeprom(part.name, true);
        Part told = part;
        told.pageSize = 255;
        eeprom.Configure(told.Setting());
        eeprom.Write(part.pageSize - 1u, {1, 2});
        EXPECT_EQ(eeprom.Read(1, 0), Accepted({2})) << "back at the start of the page";
        EXPECT_EQ(eeprom.Read(1, part.pageSize), Accepted({255}));
    }

    struct Case {
        std::uint8_t told;
        Bytes data, pageThen;  // both from address 0 of a part with pages of 8
    };
    const Case cases[] = {
        {16, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {9, 10, 3, 4, 5, 6, 7, 8}},
        {8, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {1, 2, 3, 4, 5, 6, 7, 8}},
        {4, {1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6, 255, 255}},
    };
    for (const Case& c : cases) {
        Eeprom eeprom("24LC02", true);
        eeprom.Configure({c.told, 1, 0, 255, 0x50});
        eeprom.Write(0, c.data);
        EXPECT_EQ(eeprom.Read(8, 0), Accepted(c.pageThen)) << unsigned{c.told};
    }
}

TEST(BoardEepromTest, RefusesWhatItCannotDo) {
    struct Case {
        const char* what;
        std::uint8_t command;
        Bytes payload;
        int status;
    };
    Bytes longestWrite = Header(57, 0), tooLongWrite = Header(58, 0);
    longestWrite.resize(60);
    tooLongWrite.resize(61);
    const Case cases[] = {
        {"longest read", 5, {58, 0, 0}, 0},
        {"read too long", 5, {59, 0, 0}, kTooLong},
        {"read of nothing", 5, {0, 0, 0}, kOutOfRange},
        {"longest write", 4, longestWrite, 0},
        {"write too long", 4, tooLongWrite, kTooLong},
        {"write of nothing", 4, {0, 0, 0}, kOutOfRange},
        {"fewer bytes than said", 4, {2, 0, 0, 9}, kMalformed},
        {"more bytes than said", 4, {1, 0, 0, 9, 9}, kMalformed},
        {"no page", 3, {0, 2, 0x7F, 0xFF, 0x51}, kOutOfRange},
        {"no address byte", 3, {64, 0, 0x7F, 0xFF, 0x51}, kOutOfRange},
        {"three address bytes", 3, {64, 3, 0x7F, 0xFF, 0x51}, kOutOfRange},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Eeprom eeprom("24LC256");
        eeprom.Configure(kAs24Lc256);
        EXPECT_EQ(eeprom.board.Handle(c.command, 2, c.payload).status, c.status);
    }
}

TEST(BoardEepromTest, WrongAddressingGetsNoAnswer) {
    struct Case {
        const char* what;
        const char* part;
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
        Eeprom eeprom(c.part, true);
        if (!c.setting.empty()) {
            EXPECT_EQ(eeprom.Configure(c.setting), 0);
        }
        EXPECT_EQ(eeprom.Read(1, 0).status, c.status);
        EXPECT_EQ(eeprom.Write(0, {1}), c.status);
        EXPECT_EQ(eeprom.board.eeprom.Chip().Contents()[0], c.status == 0 ? 1 : 255);
    }
}

TEST(BoardEepromTest, SettingAndContentsOutlastPowerUp) {
    Eeprom eeprom("24LC256");
    eeprom.Configure(kAs24Lc256);
    eeprom.Write(8, {42});
    eeprom.board.PowerUp();
    EXPECT_EQ(eeprom.Read(1, 8), Accepted({42}));
    EXPECT_EQ(eeprom.board.eeprom.Setting(), (EepromSetting{64, 2, 32767, 0x51}));
}

}  // namespace
}  // namespace simulator
