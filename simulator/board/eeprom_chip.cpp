// The parts of the 24LC family, and how they count addresses.
#include "board/eeprom_chip.h"

#include <algorithm>
#include <iterator>

namespace simulator {
namespace {

// The two classes are strapped to different bus addresses.
constexpr std::uint8_t kShortAddressBus = 0x50;
constexpr std::uint8_t kLongAddressBus = 0x51;

// clang-format off
constexpr EepromFacts kParts[] = {
    {"24LC01",    128,   8, 1, kShortAddressBus},
    {"24LC02",    256,   8, 1, kShortAddressBus},
    {"24LC04",    512,  16, 1, kShortAddressBus},
    {"24LC08",   1024,  16, 1, kShortAddressBus},
    {"24LC16",   2048,  16, 1, kShortAddressBus},
    {"24LC32",   4096,  32, 2, kLongAddressBus},
    {"24LC64",   8192,  32, 2, kLongAddressBus},
    {"24LC128", 16384,  64, 2, kLongAddressBus},
    {"24LC256", 32768,  64, 2, kLongAddressBus},
    {"24LC512", 65536, 128, 2, kLongAddressBus},
};
// clang-format on

constexpr std::uint8_t kErased = 0xFF;

void NumberPairs(std::span<std::uint8_t> bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const std::size_t pair = i / 2;
        bytes[i] = static_cast<std::uint8_t>(i % 2 == 0 ? pair >> 8 : pair);
    }
}

}  // namespace

std::span<const EepromFacts> EepromParts() {
    return kParts;
}

const EepromFacts& FactsOf(EepromPart part) {
    return kParts[static_cast<std::size_t>(part)];
}

std::optional<EepromPart> EepromPartNamed(std::string_view name) {
    const auto found = std::ranges::find(kParts, name, &EepromFacts::name);
    if (found == std::end(kParts)) return std::nullopt;
    return static_cast<EepromPart>(found - std::begin(kParts));
}

EepromChip::EepromChip(EepromPart chipPart, bool blank)
    : part(chipPart), bytes(FactsOf(part).size, kErased) {
    if (!blank) NumberPairs(bytes);
}

bool EepromChip::Answers(std::uint8_t busAddress, unsigned addressBytes) const {
    const EepromFacts& facts = FactsOf(part);
    return busAddress == facts.busAddress && addressBytes == facts.addressBytes;
}

std::vector<std::uint8_t> EepromChip::Read(std::size_t address, std::size_t count) const {
    std::vector<std::uint8_t> data(count);
    for (std::uint8_t& byte : data)
        byte = bytes[address++ % bytes.size()];
    return data;
}

void EepromChip::Write(std::size_t address, ByteView data) {
    const std::size_t pageSize = FactsOf(part).pageSize;
    const std::size_t page = address % bytes.size() / pageSize * pageSize;
    for (const std::uint8_t byte : data)
        bytes[page + address++ % pageSize] = byte;
}

bool EepromChip::Restore(ByteView contents) {
    if (contents.size() != bytes.size()) return false;
    bytes.assign(contents.begin(), contents.end());
    return true;
}

}  // namespace simulator
