#include "support/SourceLines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "support/Files.h"

namespace support {

namespace {

int LineAt(const std::string& text, std::size_t position)
{
    return 1 + static_cast<int>(std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(position), '\n'));
}

bool IsPartOfAName(char character)
{
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
}

// Where the last call of a logging function before `position` begins. Without std::regex, because GCC 12 takes its
// inside for uninitialized under sanitizers.
std::size_t CallBefore(const std::string& text, std::size_t position)
{
    const std::string before = text.substr(0, position);
    std::size_t found = std::string::npos;
    for (const std::string call : {"Log(", "Fail(", "ThrowUnless("}) {
        for (std::size_t at = before.find(call); at != std::string::npos; at = before.find(call, at + 1)) {
            if ((at == 0 || !IsPartOfAName(before[at - 1])) && (found == std::string::npos || at > found)) {
                found = at;
            }
        }
    }
    return found;
}

// Past the parenthesis that closes the call at `position`.
std::size_t EndOfCall(const std::string& text, std::size_t position)
{
    int open = 0;
    do {
        position = text.find_first_of("()", position);
        open += text.at(position++) == '(' ? 1 : -1;
    } while (open != 0);
    return position;
}

struct SourceLines {
    int first;
    int last;
};

// Throws std::runtime_error if there is none.
SourceLines LoggingStatement(const std::string& source, std::initializer_list<std::string> pieces)
{
    const std::string text = ReadFile(LIBRARY_SOURCES "/" + source);
    std::size_t position = 0;
    for (const std::string& piece : pieces) {
        position = text.find(piece, position);
        if (position == std::string::npos) {
            throw std::runtime_error(std::string(source).append(" does not contain: ").append(piece));
        }
    }
    const std::size_t call = CallBefore(text, position);
    if (call == std::string::npos) {
        throw std::runtime_error(source + " logs nothing before: " + *(pieces.end() - 1));
    }
    return {LineAt(text, call), LineAt(text, EndOfCall(text, call))};
}

}  // namespace

void ExpectStatement(const std::string& file, int line, const std::string& source,
                     std::initializer_list<std::string> pieces)
{
    EXPECT_EQ(file, "Corvane/Common/libFile/Corvane/File/" + source);
    const auto [first, last] = LoggingStatement(source, pieces);
    EXPECT_GE(line, first) << *(pieces.end() - 1);
    EXPECT_LE(line, last) << *(pieces.end() - 1);
}

}  // namespace support
