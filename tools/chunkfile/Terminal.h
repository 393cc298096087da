#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "chunkfile/Commands.h"

namespace Corvane::FileTool {

/// The system refused what goes to stdout: `standard output: REASON`.
struct OutputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Standard output and standard error.
///
/// - **Colours**: as --color says; `auto` is a terminal that is not dumb, without NO_COLOR.
/// - **Errors**: Write, Flush and Error throw OutputError.
class Terminal {
public:
    explicit Terminal(const Options& options);
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() { ClearProgress(); }

    /// Adds to stdout's buffer. A reader that has gone away ends the program without a message.
    void Write(std::string_view text)
    {
        buffer_.append(text);
        if (buffer_.size() >= kFull) {
            Flush();
        }
    }
    void Flush();

    /// Writes a line of JSON or CSV. On a terminal, what could control it is escaped.
    void WriteLine(std::string_view line, std::string_view end = "\n")
    {
        Write(terminal_ ? Escaped(line) : line);
        Write(end);
    }

    /// Writes `chunkfile: TEXT` to stderr, with control characters escaped. Stdout's buffer goes first.
    void Error(std::string_view text);

    /// Says how far a long command is: on a terminal, after half a second, and not with -q. Cheap enough for each record.
    /// `size` 0 is unknown.
    void Progress(std::string_view file, std::uint64_t done, std::uint64_t size)
    {
        if (progress_ && ++calls_ % 16 == 0) {
            ShowProgress(file, done, size);
        }
    }

    enum class Style { Bold, Dim, Good, Warning, Bad };

    /// The text between the codes of its style, if stdout gets colours.
    std::string Styled(Style style, std::string_view text) const;

    /// The text for people: `\x1b` for each byte that could control a terminal or that the locale cannot show.
    static std::string Escaped(std::string_view text);

    /// The beginning of an escaped text that fits this number of columns, with an ellipsis if some is left out.
    static std::string Fitting(std::string_view text, std::uint64_t columns);

    bool IsTerminal() const { return terminal_; }  ///< whether stdout is one
    static bool Utf8();                            ///< whether the locale takes more than ASCII

    /// Columns of this terminal now, COLUMNS if it is none, or 80.
    static std::uint64_t Width(int descriptor = 1);

private:
    void ShowProgress(std::string_view file, std::uint64_t done, std::uint64_t size);
    void ClearProgress();

    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t kFull = 64 * 1024;

    std::string buffer_;
    bool terminal_;
    bool colors_;
    bool progress_;
    bool shown_ = false;
    unsigned calls_ = 0;
    Clock::time_point start_ = Clock::now();
    Clock::time_point next_ = start_ + std::chrono::milliseconds(500);
};

}  // namespace Corvane::FileTool
