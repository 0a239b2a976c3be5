// Writes and reads bytes in hex.
#include "terms/hex.h"

#include <charconv>

namespace simulator {
namespace {

constexpr int kBase = 16;

}  // namespace

std::string Hex(ByteView bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> FromHex(std::string_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    std::vector<std::uint8_t> bytes;
    for (; !text.empty(); text.remove_prefix(2)) {
        std::uint8_t byte = 0;
        const char* end = text.data() + 2;
        const auto [stop, error] = std::from_chars(text.data(), end, byte, kBase);
        if (error != std::errc() || stop != end) return std::nullopt;
        bytes.push_back(byte);
    }
    return bytes;
}

}  // namespace simulator
