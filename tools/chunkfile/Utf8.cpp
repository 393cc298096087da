#include "chunkfile/Utf8.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace Corvane::FileTool {

namespace {

constexpr std::uint64_t kOnes = 0x0101010101010101;
constexpr std::uint64_t kHighBits = 0x8080808080808080;

bool IsPlain(unsigned char byte)
{
    return byte >= 0x20 && byte < 0x7F && byte != '"' && byte != '\\';
}

// The high bit of each byte that is not plain; bytes after such a byte may have it too.
std::uint64_t NotPlain(std::uint64_t word)
{
    const auto zeros = [](std::uint64_t bytes) { return (bytes - kOnes) & ~bytes & kHighBits; };
    const std::uint64_t controls = (word - kOnes * 0x20) & ~word & kHighBits;
    return (word & kHighBits) | controls | zeros(word ^ (kOnes * '"')) | zeros(word ^ (kOnes * '\\')) |
           zeros(word ^ (kOnes * 0x7F));
}

// The least code that needs this number of bytes.
constexpr std::array<std::uint32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};

}  // namespace

Character FirstCharacter(std::string_view text)
{
    constexpr Character none = {kNoCharacter, 1};
    const auto first = static_cast<unsigned char>(text.front());
    const auto ones = static_cast<std::size_t>(std::countl_one(first));  // of a longer character: its number of bytes
    const std::size_t size = std::max<std::size_t>(ones, 1);
    if (ones == 1 || ones >= kLeast.size() || size > text.size()) {
        return none;
    }
    std::uint32_t code = first & (0xFFU >> ones);
    for (const char next : text.substr(1, size - 1)) {
        const auto byte = static_cast<unsigned char>(next);
        if ((byte & 0xC0U) != 0x80) {
            return none;
        }
        code = code << 6U | (byte & 0x3FU);
    }
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    return code < kLeast[size] || code > 0x10FFFF || surrogate ? none : Character{code, size};
}

std::size_t PlainPrefix(std::string_view text)
{
    std::size_t at = 0;
    for (std::uint64_t word = 0; text.size() - at >= sizeof word; at += sizeof word) {
        std::memcpy(&word, text.data() + at, sizeof word);
        if (const std::uint64_t found = NotPlain(word); found != 0) {
            return at + static_cast<std::size_t>(std::countr_zero(found)) / 8;
        }
    }
    while (at < text.size() && IsPlain(static_cast<unsigned char>(text[at]))) {
        ++at;
    }
    return at;
}

}  // namespace Corvane::FileTool
