// The 8051's EEPROM commands. It splits a write where it believes the part's pages to end; a part
// with smaller pages then wraps within them.
#include "board/eeprom.h"

#include <algorithm>

#include "terms/byte_order.h"

namespace simulator {
namespace {

constexpr std::size_t kLongestWrite = 57;
constexpr std::size_t kLongestRead = 58;
constexpr std::size_t kHeader = 3;         // length, address low, address high
constexpr std::size_t kFirstWritten = 8;   // the addresses below are only read
constexpr std::size_t kWriteEnd = 0xFFFF;  // behind the last byte that is written

std::size_t AddressIn(ByteView payload) {
    return LowFirst(payload.subspan(1, 2));
}

bool IsUsable(const EepromSetting& setting) {
    return setting.pageSize > 0 && (setting.addressBytes == 1 || setting.addressBytes == 2);
}

}  // namespace

Answer BoardEeprom::Configure(ByteView payload) {
    const EepromSetting told{
        .pageSize = payload[0],
        .addressBytes = payload[1],
        .highestAddress = static_cast<std::uint16_t>(payload[2] * 256 + payload[3]),
        .busAddress = payload[4],
    };
    if (!IsUsable(told)) return Refuse(status::kOutOfRange);
    setting = told;
    return {};
}

std::int32_t BoardEeprom::StatusOfAccess() const {
    if (!setting) return status::kNotConfigured;
    const bool answers = chip.Answers(setting->busAddress, setting->addressBytes);
    return answers ? status::kAccepted : status::kNoAcknowledge;
}

Answer BoardEeprom::Write(ByteView payload) {
    ByteView data = payload.subspan(kHeader);
    if (data.size() != payload[0]) return Refuse(status::kMalformedPayload);
    if (data.size() > kLongestWrite) return Refuse(status::kTooLong);
    std::size_t address = AddressIn(payload);
    if (data.empty() || address < kFirstWritten || address + data.size() > kWriteEnd) {
        return Refuse(status::kOutOfRange);
    }
    const std::int32_t access = StatusOfAccess();
    if (access != status::kAccepted) return Refuse(access);

    while (!data.empty()) {
        const std::size_t toPageEnd = setting->pageSize - address % setting->pageSize;
        const std::size_t count = std::min(data.size(), toPageEnd);
        chip.Write(address, data.first(count));
        data = data.subspan(count);
        address += count;
    }
    return {};
}

Answer BoardEeprom::Read(ByteView payload) {
    const std::size_t count = payload[0];
    if (count > kLongestRead) return Refuse(status::kTooLong);
    if (count == 0) return Refuse(status::kOutOfRange);
    const std::int32_t access = StatusOfAccess();
    if (access != status::kAccepted) return Refuse(access);

    return {status::kAccepted, chip.Read(AddressIn(payload), count)};
}

bool BoardEeprom::Restore(const std::optional<EepromSetting>& newSetting, ByteView contents) {
    if (newSetting && !IsUsable(*newSetting)) return false;
    if (!chip.Restore(contents)) return false;
    setting = newSetting;
    return true;
}

}  // namespace simulator
