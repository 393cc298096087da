#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Corvane::FileTool {

/// A character and the number of its bytes. A byte that is not UTF-8 comes alone, as kNoCharacter.
struct Character {
    std::uint32_t code;
    std::size_t size;
};

constexpr std::uint32_t kNoCharacter = 0xFFFFFFFF;

/// The first character of a text that is not empty. Overlong forms, surrogates and codes above 10FFFF are not UTF-8.
Character FirstCharacter(std::string_view text);

/// Control characters of ASCII and Latin-1.
constexpr bool IsControl(std::uint32_t code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

/// The number of leading bytes that are printable ASCII other than `"` and `\`.
std::size_t PlainPrefix(std::string_view text);

}  // namespace Corvane::FileTool
