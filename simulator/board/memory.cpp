// The memory's commands. Addresses and lengths come from the application: PlaceOf bounds them all.
#include "board/memory.h"

#include <algorithm>

#include "terms/byte_order.h"

namespace simulator {
namespace {

constexpr std::size_t kFlatSize = 65536;
constexpr std::size_t kLongestFlatRead = 58;

// Storage lies in pages 1 to 12 and from 16 up, the program in pages 13 to 15; a K50 has about
// twice the storage. There is nothing in page 0.
constexpr unsigned kFirstPage = 1;
constexpr unsigned kLastPageK44 = 32;
constexpr unsigned kLastPageK50 = 64;
constexpr unsigned kProgramPages = 3;

// The last bytes are no storage: a K40 has one of them, a K44 or K50 two.
constexpr std::size_t kFlatStorage = kFlatSize - 1;
constexpr std::size_t kLastPageStorage = kPageSize - 2;

constexpr std::size_t kFlatHeader = 3;
constexpr std::size_t kPagedHeader = 5;

unsigned PageCount(Model model) {
    if (model == Model::kK40) return 1;
    return (model == Model::kK44 ? kLastPageK44 : kLastPageK50) - kFirstPage + 1;
}

}  // namespace

// What a read or write asks for: as the payload says it, nothing checked.
struct BoardMemory::Range {
    static Range Flat(ByteView payload) { return {payload[0], 0, LowFirst(payload.subspan(1, 2))}; }
    static Range Paged(ByteView payload) {
        return {payload[0], payload[2], LowFirst(payload.subspan(3, 2))};
    }

    std::size_t length;
    unsigned page;
    std::size_t offset;
};

BoardMemory::BoardMemory(Model boardModel, int speedMbit)
    : model(boardModel),
      writeLimit(ChunkLimit(speedMbit)),
      readLimit(model == Model::kK40 ? kLongestFlatRead : ChunkLimit(speedMbit)),
      bytes(model == Model::kK40 ? kFlatSize : kPageSize * PageCount(model)) {}

std::optional<std::size_t> BoardMemory::PlaceOf(unsigned page, std::size_t offset,
                                                std::size_t length) const {
    const unsigned first = model == Model::kK40 ? 0 : kFirstPage;
    const std::size_t size = model == Model::kK40 ? kFlatSize : kPageSize;
    if (page < first || page - first >= PageCount(model)) return std::nullopt;
    if (offset > size || length > size - offset) return std::nullopt;
    return (page - first) * size + offset;
}

std::span<const std::uint8_t> BoardMemory::Bytes(unsigned page, std::size_t offset,
                                                 std::size_t length) const {
    const auto place = PlaceOf(page, offset, length);
    if (!place) return {};
    return std::span(bytes).subspan(*place, length);
}

void BoardMemory::StoreForApplication(std::size_t address, std::uint8_t byte) {
    auto page = static_cast<unsigned>(address / kPageSize) + kFirstPage;
    if (page >= kProgramPage) page += kProgramPages;
    if (const auto place = PlaceOf(page, address % kPageSize, 1)) bytes[*place] = byte;
}

bool BoardMemory::Restore(ByteView contents) {
    if (contents.size() != bytes.size()) return false;
    bytes.assign(contents.begin(), contents.end());
    return true;
}

// Of a range within one page.
bool BoardMemory::IsStorage(const Range& range) const {
    const std::size_t end = range.offset + range.length;
    if (model == Model::kK40) return end <= kFlatStorage;
    const bool isProgram = range.page >= kProgramPage && range.page < kProgramPage + kProgramPages;
    return !isProgram && (range.page < PageCount(model) || end <= kLastPageStorage);
}

Answer BoardMemory::Read(const Range& range) const {
    if (range.length > readLimit) return Refuse(status::kTooLong);
    const auto place = PlaceOf(range.page, range.offset, range.length);
    if (range.length == 0 || !place || !IsStorage(range)) return Refuse(status::kOutOfRange);

    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(*place);
    return {status::kAccepted, {begin, begin + static_cast<std::ptrdiff_t>(range.length)}};
}

// A download, and a program that believes that it must download, write to any page of a K44 or K50.
Answer BoardMemory::Write(const Range& range, ByteView data) {
    if (data.size() != range.length) return Refuse(status::kMalformedPayload);
    const auto place = PlaceOf(range.page, range.offset, range.length);
    if (range.length == 0 || !place) return Refuse(status::kOutOfRange);
    if (model == Model::kK40 && !IsStorage(range)) return Refuse(status::kOutOfRange);

    std::copy(data.begin(), data.end(), bytes.begin() + static_cast<std::ptrdiff_t>(*place));
    return {};
}

Answer BoardMemory::ReadFlat(ByteView payload) {
    return Read(Range::Flat(payload));
}

Answer BoardMemory::WriteFlat(ByteView payload) {
    if (payload.size() > writeLimit) return Refuse(status::kTooLong);
    return Write(Range::Flat(payload), payload.subspan(kFlatHeader));
}

Answer BoardMemory::ReadPaged(ByteView payload) {
    if (payload[1] != 0) return Refuse(status::kMalformedPayload);
    return Read(Range::Paged(payload));
}

Answer BoardMemory::WritePaged(ByteView payload) {
    if (payload[1] != 0) return Refuse(status::kMalformedPayload);
    if (payload.size() > writeLimit) return Refuse(status::kTooLong);
    return Write(Range::Paged(payload), payload.subspan(kPagedHeader));
}

Answer BoardMemory::BeginDownload(ByteView) {
    programRunning = false;
    downloadBegun = true;
    return {};
}

// Two processes that open a fresh board at once both download; the second one's end finds the
// program running already and changes nothing.
Answer BoardMemory::EndDownload(ByteView) {
    if (!downloadBegun && !programRunning) return Refuse(status::kNoDownload);
    programRunning = true;
    downloadBegun = false;
    return {};
}

Answer BoardMemory::ReportProgram(ByteView) {
    return {status::kAccepted, {static_cast<std::uint8_t>(programRunning ? 1 : 0)}};
}

void BoardMemory::PowerUp(bool withProgramRunning) {
    programRunning = withProgramRunning;
    downloadBegun = false;
}

}  // namespace simulator
