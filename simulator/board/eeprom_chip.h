// A serial EEPROM of the 24LC family, as the 8051 meets it on its bus.
// What it does where boards may differ: docs/simulator.md, "EEPROM".
#ifndef MARVANE_SIMULATOR_BOARD_EEPROM_CHIP_H
#define MARVANE_SIMULATOR_BOARD_EEPROM_CHIP_H

#include <optional>
#include <string_view>

#include "terms/answer.h"

namespace simulator {

enum class EepromPart {
    k24LC01,
    k24LC02,
    k24LC04,
    k24LC08,
    k24LC16,
    k24LC32,
    k24LC64,
    k24LC128,
    k24LC256,
    k24LC512,
};

struct EepromFacts {
    std::string_view name;  // as in "24LC256"
    std::size_t size;
    std::size_t pageSize;
    unsigned addressBytes;
    std::uint8_t busAddress;
};

/// All parts, in the order of EepromPart.
std::span<const EepromFacts> EepromParts();
const EepromFacts& FactsOf(EepromPart part);
std::optional<EepromPart> EepromPartNamed(std::string_view name);

class EepromChip {
public:
    explicit EepromChip(EepromPart chipPart, bool blank);

    /// A part that hears another bus address, or fewer or more address bytes than its own, stays
    /// silent.
    bool Answers(std::uint8_t busAddress, unsigned addressBytes) const;

    /// Goes on at the first byte after the last one. Address bits above the part's own do not
    /// count, here and below.
    std::vector<std::uint8_t> Read(std::size_t address, std::size_t count) const;
    /// One write cycle: goes on at the first byte of the page after its last one.
    void Write(std::size_t address, ByteView data);

    EepromPart Part() const { return part; }
    ByteView Contents() const { return bytes; }
    /// False, and nothing changed, unless there is exactly one byte for each of the part's.
    bool Restore(ByteView contents);

private:
    EepromPart part;
    std::vector<std::uint8_t> bytes;
};

}  // namespace simulator

#endif
