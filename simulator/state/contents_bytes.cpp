// Writes and reads the contents of a board. A file may be cut, damaged or of another program: the
// checksum comes first, and the reader still bounds each length and value.
#include "state/contents_bytes.h"

#include <algorithm>
#include <array>
#include <utility>

#include "terms/byte_order.h"

namespace simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::array<std::uint8_t, 7> kMark = {'M', 'A', 'R', 'V', 'S', 'I', 'M'};
constexpr std::uint8_t kVersion = 1;
constexpr std::size_t kCrcSize = 4;
constexpr std::uint32_t kCrcPolynomial = 0xEDB88320;

constexpr std::array<std::uint32_t, 256> kCrcTable = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        std::uint32_t crc = i;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? crc >> 1 ^ kCrcPolynomial : crc >> 1;
        table[i] = crc;
    }
    return table;
}();

std::uint32_t CrcOf(ByteView bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const std::uint8_t byte : bytes)
        crc = crc >> 8 ^ kCrcTable[(crc ^ byte) & 0xFF];
    return ~crc;
}

void AppendBytes(Bytes& bytes, ByteView more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

void AppendWithLength(Bytes& bytes, ByteView more) {
    AppendLowFirst(bytes, static_cast<std::uint32_t>(more.size()));
    AppendBytes(bytes, more);
}

void Append(Bytes& bytes, const std::optional<EepromSetting>& setting) {
    bytes.push_back(setting ? 1 : 0);
    if (!setting) return;
    AppendBytes(bytes, std::array{setting->pageSize, setting->addressBytes});
    AppendLowFirst(bytes, setting->highestAddress);
    bytes.push_back(setting->busAddress);
}

void Append(Bytes& bytes, const ClockContents& clock) {
    AppendLowFirst(bytes, clock.offset);
    bytes.push_back(clock.clockFailed ? 1 : 0);
    bytes.push_back(clock.batteryFailed ? 1 : 0);
    AppendLowFirst(bytes, clock.clockAtBatteryFailure);
    bytes.push_back(clock.openSwitches);
    AppendBytes(bytes, std::array{clock.flags.opened, clock.flags.closed, clock.cachedFlags.opened,
                                  clock.cachedFlags.closed});
    AppendLowFirst(bytes, static_cast<std::uint32_t>(clock.log.size()));
    for (const SecurityEvent& event : clock.log) {
        AppendLowFirst(bytes, event.clock);
        bytes.push_back(event.switchByte);
    }
}

// Takes one thing after the other. Once one is missing or wrong, all that follow read as nothing,
// so that a caller need ask only at the end.
class Reader {
public:
    explicit Reader(ByteView bytes) : rest(bytes) {}

    bool HasReadAll() const { return sound && rest.empty(); }

    ByteView Take(std::size_t count) {
        if (count > rest.size()) {
            Fail();
            return {};
        }
        const ByteView taken = rest.first(count);
        rest = rest.subspan(count);
        return taken;
    }

    template <class Number>
    Number TakeNumber() {
        return static_cast<Number>(LowFirst(Take(sizeof(Number))));
    }

    std::uint8_t TakeByte() { return TakeNumber<std::uint8_t>(); }

    bool TakeFlag() {
        const std::uint8_t flag = TakeByte();
        if (flag > 1) Fail();
        return flag == 1;
    }

    Bytes TakeWithLength() {
        const ByteView taken = Take(TakeNumber<std::uint32_t>());
        return {taken.begin(), taken.end()};
    }

    void Fail() {
        sound = false;
        rest = {};
    }

private:
    ByteView rest;
    bool sound = true;
};

void TakeHeader(Reader& reader, BoardContents& contents) {
    if (!std::ranges::equal(reader.Take(kMark.size()), kMark)) reader.Fail();
    if (reader.TakeByte() != kVersion) reader.Fail();

    contents.model = static_cast<Model>(reader.TakeByte());
    if (contents.model < Model::kK40 || contents.model > Model::kK50) reader.Fail();
    const std::uint8_t part = reader.TakeByte();
    if (part >= EepromParts().size()) return reader.Fail();
    contents.eepromPart = static_cast<EepromPart>(part);
}

std::optional<EepromSetting> TakeEepromSetting(Reader& reader) {
    if (!reader.TakeFlag()) return std::nullopt;
    EepromSetting setting;
    setting.pageSize = reader.TakeByte();
    setting.addressBytes = reader.TakeByte();
    setting.highestAddress = reader.TakeNumber<std::uint16_t>();
    setting.busAddress = reader.TakeByte();
    return setting;
}

SwitchFlags TakeSwitchFlags(Reader& reader) {
    SwitchFlags flags;
    flags.opened = reader.TakeByte();
    flags.closed = reader.TakeByte();
    return flags;
}

void TakeLog(Reader& reader, std::vector<SecurityEvent>& log) {
    const auto count = reader.TakeNumber<std::uint32_t>();
    if (count > kSecurityLogLimit) return reader.Fail();
    log.resize(count);
    for (SecurityEvent& event : log) {
        event.clock = reader.TakeNumber<std::uint32_t>();
        event.switchByte = reader.TakeByte();
    }
}

ClockContents TakeClock(Reader& reader) {
    ClockContents clock;
    clock.offset = reader.TakeNumber<std::uint32_t>();
    clock.clockFailed = reader.TakeFlag();
    clock.batteryFailed = reader.TakeFlag();
    clock.clockAtBatteryFailure = reader.TakeNumber<std::uint32_t>();
    clock.openSwitches = reader.TakeByte();
    clock.flags = TakeSwitchFlags(reader);
    clock.cachedFlags = TakeSwitchFlags(reader);
    TakeLog(reader, clock.log);
    return clock;
}

}  // namespace

Bytes AsBytes(const BoardContents& contents) {
    Bytes bytes(kMark.begin(), kMark.end());
    bytes.push_back(kVersion);
    bytes.push_back(static_cast<std::uint8_t>(contents.model));
    bytes.push_back(static_cast<std::uint8_t>(contents.eepromPart));
    AppendWithLength(bytes, contents.memory);
    Append(bytes, contents.eepromSetting);
    AppendWithLength(bytes, contents.eeprom);
    Append(bytes, contents.clock);
    AppendBytes(bytes, contents.picSerial);
    AppendLowFirst(bytes, CrcOf(bytes));
    return bytes;
}

std::optional<BoardContents> ContentsIn(ByteView bytes) {
    if (bytes.size() < kCrcSize) return std::nullopt;
    const ByteView covered = bytes.first(bytes.size() - kCrcSize);
    if (LowFirst(bytes.last(kCrcSize)) != CrcOf(covered)) return std::nullopt;

    Reader reader(covered);
    BoardContents contents;
    TakeHeader(reader, contents);
    contents.memory = reader.TakeWithLength();
    contents.eepromSetting = TakeEepromSetting(reader);
    contents.eeprom = reader.TakeWithLength();
    contents.clock = TakeClock(reader);
    std::ranges::copy(reader.Take(contents.picSerial.size()), contents.picSerial.begin());
    if (!reader.HasReadAll()) return std::nullopt;
    return contents;
}

}  // namespace simulator
