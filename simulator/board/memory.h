// The 8051's memory: battery-backed storage, and the program that is downloaded into it.
#ifndef MARVANE_SIMULATOR_BOARD_MEMORY_H
#define MARVANE_SIMULATOR_BOARD_MEMORY_H

#include <optional>

#include "terms/answer.h"

namespace simulator {

constexpr std::size_t kPageSize = 16384;
constexpr unsigned kProgramPage = 13;  // of a K44 or K50

class BoardMemory {
public:
    BoardMemory(Model model, int speedMbit);

    Answer ReadFlat(ByteView payload);
    Answer WriteFlat(ByteView payload);
    Answer ReadPaged(ByteView payload);
    Answer WritePaged(ByteView payload);
    Answer BeginDownload(ByteView payload);
    Answer EndDownload(ByteView payload);
    Answer ReportProgram(ByteView payload);

    bool IsProgramRunning() const { return programRunning; }
    void PowerUp(bool withProgramRunning);

    /// The memory as the commands address it. A K40 has only page 0, of 64 KB; a K44 or K50 has
    /// pages of 16 KB from 1. Empty when the range does not lie within one page.
    std::span<const std::uint8_t> Bytes(unsigned page, std::size_t offset,
                                        std::size_t length) const;

    /// The board's own write of one byte, on a K44 or K50: at the address as an application counts
    /// it, which passes over the program's pages. Nothing happens beyond the memory.
    void StoreForApplication(std::size_t address, std::uint8_t byte);

    /// All pages, one after the other; the commands decide where a page begins.
    ByteView Contents() const { return bytes; }
    /// False, and nothing changed, unless there is exactly one byte for each of the memory's.
    bool Restore(ByteView contents);

private:
    struct Range;
    std::optional<std::size_t> PlaceOf(unsigned page, std::size_t offset, std::size_t length) const;
    bool IsStorage(const Range& range) const;
    Answer Read(const Range& range) const;
    Answer Write(const Range& range, ByteView data);

    Model model;
    std::size_t writeLimit;  // bytes of the payload
    std::size_t readLimit;   // bytes of data
    std::vector<std::uint8_t> bytes;
    bool programRunning = false;
    bool downloadBegun = false;
};

}  // namespace simulator

#endif
