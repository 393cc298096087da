#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "chunkfile/Commands.h"

namespace Corvane::FileTool {

/// Standard output and standard error.
class Terminal {
public:
    explicit Terminal(const Options& options);

    /// Adds to stdout's buffer. A reader that has gone away ends the program without a message.
    void Write(std::string_view text);
    void Flush();

    /// Writes `chunkfile: TEXT` to stderr, with control characters escaped. Stdout's buffer goes first.
    void Error(std::string_view text);

    /// Says how far a long command is: on a terminal, after half a second.
    void Progress(std::string_view file, std::uint64_t done, std::uint64_t size);

    enum class Style { Plain, Bold, Dim, Good, Warning, Bad };

    /// The text between the codes of its style, if stdout gets colours.
    std::string Styled(Style style, std::string_view text) const;

    /// The text for people: control characters are escaped.
    static std::string Escaped(std::string_view text);

    bool Utf8() const;            ///< whether stdout takes more than ASCII
    std::uint64_t Width() const;  ///< columns of stdout; 80 if it is no terminal

private:
    std::string buffer_;
};

}  // namespace Corvane::FileTool
