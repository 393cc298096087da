#include "chunkfile/Terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <utility>

#include "chunkfile/Utf8.h"

namespace Corvane::FileTool {

namespace {

std::string_view Variable(const char* name)
{
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): this program has one thread
    return value == nullptr ? "" : value;
}

// Whether the terminal of this descriptor can move its cursor.
bool IsAble(int descriptor)
{
    return ::isatty(descriptor) == 1 && !Variable("TERM").empty() && Variable("TERM") != "dumb";
}

// Columns that a character takes; -1 for one that is not shown, or that turns the direction of what follows.
int ColumnsOf(std::uint32_t code)
{
    const bool turns =
        (code >= 0x200E && code <= 0x200F) || (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
    if (code == kNoCharacter || turns || IsControl(code)) {
        return -1;
    }
    if (code < 0x80) {
        return 1;
    }
    return Terminal::Utf8() ? ::wcwidth(static_cast<wchar_t>(code)) : -1;
}

// Throws OutputError.
void WriteWhole(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written == -1 && errno != EINTR) {
            throw OutputError(std::string("standard output: ") + std::strerror(errno));  // NOLINT(*-mt-unsafe)
        }
        text.remove_prefix(written == -1 ? 0 : static_cast<std::size_t>(written));
    }
}

}  // namespace

Terminal::Terminal(const Options& options)
    : terminal_(::isatty(STDOUT_FILENO) == 1),
      colors_(options.color == When::Always ||
              (options.color == When::Auto && IsAble(STDOUT_FILENO) && Variable("NO_COLOR").empty())),
      progress_(!options.quiet && IsAble(STDERR_FILENO))
{
}

void Terminal::Flush()
{
    if (terminal_) {
        ClearProgress();
    }
    const std::string text = std::exchange(buffer_, {});
    WriteWhole(STDOUT_FILENO, text);
}

void Terminal::Error(std::string_view text)
{
    Flush();
    ClearProgress();
    std::fprintf(stderr, "chunkfile: %s\n", Escaped(text).c_str());
}

std::string Terminal::Styled(Style style, std::string_view text) const
{
    constexpr std::array<const char*, 5> codes = {"1", "2", "32", "33", "31"};
    if (!colors_) {
        return std::string(text);
    }
    return std::string("\x1b[")
        .append(codes[static_cast<std::size_t>(style)])
        .append("m")
        .append(text)
        .append("\x1b[0m");
}

std::string Terminal::Escaped(std::string_view text)
{
    constexpr std::string_view hex = "0123456789abcdef";
    std::string escaped;
    while (!text.empty()) {
        const Character next = FirstCharacter(text);
        const std::string_view bytes = text.substr(0, next.size);
        if (ColumnsOf(next.code) >= 0) {
            escaped.append(bytes);
        } else {
            for (const char byte : bytes) {
                const auto value = static_cast<unsigned char>(byte);
                escaped.append("\\x").append({hex[value / 16], hex[value % 16]});
            }
        }
        text.remove_prefix(next.size);
    }
    return escaped;
}

std::string Terminal::Fitting(std::string_view text, std::uint64_t columns)
{
    const std::string_view ellipsis = Utf8() ? "…" : "...";
    const std::uint64_t room = columns - std::min<std::uint64_t>(columns, Utf8() ? 1 : 3);
    std::uint64_t used = 0;
    std::size_t fitting = 0;  // bytes before the ellipsis
    for (std::size_t at = 0; at < text.size();) {
        const Character next = FirstCharacter(text.substr(at));
        used += static_cast<std::uint64_t>(std::max(0, ColumnsOf(next.code)));
        at += next.size;
        if (used <= room) {
            fitting = at;
        }
        if (used > columns) {
            return std::string(text.substr(0, fitting)).append(ellipsis);
        }
    }
    return std::string(text);
}

bool Terminal::Utf8()
{
    static const bool is = std::string_view(::nl_langinfo(CODESET)) == "UTF-8";  // NOLINT(*-mt-unsafe): one thread
    return is;
}

std::uint64_t Terminal::Width(int descriptor)
{
    winsize size = {};
    if (::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    const std::uint64_t columns = std::strtoull(std::string(Variable("COLUMNS")).c_str(), nullptr, 10);
    return columns > 0 ? columns : 80;
}

void Terminal::ShowProgress(std::string_view file, std::uint64_t done, std::uint64_t size)
{
    const auto now = Clock::now();
    if (now < next_) {
        return;
    }
    next_ = now + std::chrono::milliseconds(100);
    shown_ = true;
    std::array<char, 64> text = {};
    const auto bytes = static_cast<double>(done);
    const double share = size == 0 ? bytes / (1U << 20U) : 100 * bytes / static_cast<double>(size);
    std::snprintf(text.data(), text.size(), "%3.0f %s of ", share, size == 0 ? "MiB" : "%");
    std::fprintf(stderr, "\r%s\x1b[K", Fitting(text.data() + Escaped(file), Width(STDERR_FILENO) - 1).c_str());
}

void Terminal::ClearProgress()
{
    if (shown_) {
        std::fputs("\r\x1b[K", stderr);
        shown_ = false;
    }
}

}  // namespace Corvane::FileTool
