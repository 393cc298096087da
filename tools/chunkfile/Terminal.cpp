#include "chunkfile/Terminal.h"

#include <cstdio>

namespace Corvane::FileTool {

Terminal::Terminal(const Options& /*options*/) {}

void Terminal::Write(std::string_view text)
{
    buffer_ += text;
}

void Terminal::Flush()
{
    std::fwrite(buffer_.data(), 1, buffer_.size(), stdout);
    std::fflush(stdout);
    buffer_.clear();
}

void Terminal::Error(std::string_view text)
{
    Flush();
    const std::string line = "chunkfile: " + std::string(text) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void Terminal::Progress(std::string_view /*file*/, std::uint64_t /*done*/, std::uint64_t /*size*/) {}

std::string Terminal::Styled(Style /*style*/, std::string_view text) const
{
    return std::string(text);
}

std::string Terminal::Escaped(std::string_view text)
{
    return std::string(text);
}

bool Terminal::Utf8() const
{
    return false;
}

std::uint64_t Terminal::Width() const
{
    return 80;
}

}  // namespace Corvane::FileTool
