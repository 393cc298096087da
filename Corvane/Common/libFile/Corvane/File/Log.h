#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <locale>
#include <new>
#include <ostream>
#include <source_location>
#include <streambuf>
#include <string>
#include <utility>

#include "tarn/cv/logging/Logger.h"

// Internal to the library: how it makes texts and log entries. Levels are the platform's numbers; larger is more
// important.
namespace Corvane::File {

constexpr std::int32_t kDebugLevel = 10;
constexpr std::int32_t kInfoLevel = 20;
constexpr std::int32_t kErrorLevel = 40;
constexpr std::int32_t kFatalLevel = 50;

// The system's reason for the call that has just failed. Call it before anything else can change errno.
inline std::string SystemReason()
{
    return std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): glibc keeps a text for each thread
}

// Collects what is printed. A stream swallows what its buffer throws: after a failed allocation the text would end in
// the middle, so Take throws std::bad_alloc. A std::ostringstream that rethrows was rejected: it would also throw if a
// platform's operator<< sets failbit. Here such a text ends early, and nothing is thrown.
class TextBuffer : public std::streambuf {
public:
    std::string Take()
    {
        if (failed_) {
            throw std::bad_alloc();
        }
        return std::move(text_);
    }

private:
    int_type overflow(int_type character) override
    {
        const char byte = traits_type::to_char_type(character);
        return xsputn(&byte, 1) == 1 ? traits_type::not_eof(character) : traits_type::eof();
    }

    std::streamsize xsputn(const char* text, std::streamsize size) override
    {
        try {
            text_.append(text, static_cast<std::size_t>(size));
        } catch (const std::bad_alloc&) {
            failed_ = true;
            return 0;
        }
        return size;
    }

    std::string text_;
    bool failed_ = false;
};

// Prints the parts one after the other into a string. The program's locale does not change the numbers. Throws
// std::bad_alloc.
template <typename... Parts>
std::string Join(const Parts&... parts)
{
    TextBuffer buffer;
    std::ostream stream(&buffer);
    stream.imbue(std::locale::classic());
    (stream << ... << parts);
    return buffer.Take();
}

// Issues one log entry with the text that makeText() returns, and names the caller's line. Calls makeText only if the
// logger's level allows the entry.
template <typename MakeText>
void Log(tarn::cv::logging::Logger& logger, std::int32_t level, const MakeText& makeText,
         const std::source_location& where = std::source_location::current())
{
    if (logger.GetCurrentLevel() <= level) {
        logger.Log(level, makeText(), where.file_name(), static_cast<std::int32_t>(where.line()));
    }
}

// The same for a logger that may be absent: with null nothing is logged.
template <typename MakeText>
void Log(tarn::cv::logging::Logger* logger, std::int32_t level, const MakeText& makeText,
         const std::source_location& where = std::source_location::current())
{
    if (logger != nullptr) {
        Log(*logger, level, makeText, where);
    }
}

}  // namespace Corvane::File
