#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <locale>
#include <source_location>
#include <sstream>
#include <string>

#include "tarn/cv/logging/Logger.h"

// Internal to the library: how its log records are made. Levels are the platform's numbers, larger is more important.
namespace Corvane::File {

constexpr std::int32_t kDebugLevel = 10;
constexpr std::int32_t kInfoLevel = 20;
constexpr std::int32_t kErrorLevel = 40;
constexpr std::int32_t kFatalLevel = 50;

// The system's reason for the call that has just failed. Called before anything else can change errno.
inline std::string SystemReason()
{
    return std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): glibc keeps a text for each thread
}

// The parts printed one after the other; numbers come out the same whatever locale the program has set.
template <typename... Parts>
std::string Join(const Parts&... parts)
{
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    (stream << ... << parts);
    return stream.str();
}

// Issues the record that makeText() returns, naming the caller's line. The text is made only if the level allows it.
template <typename MakeText>
void Log(tarn::cv::logging::Logger& logger, std::int32_t level, const MakeText& makeText,
         const std::source_location& where = std::source_location::current())
{
    if (logger.GetCurrentLevel() <= level) {
        logger.Log(level, makeText(), where.file_name(), static_cast<std::int32_t>(where.line()));
    }
}

// The same for a logger that may be absent: null issues nothing.
template <typename MakeText>
void Log(tarn::cv::logging::Logger* logger, std::int32_t level, const MakeText& makeText,
         const std::source_location& where = std::source_location::current())
{
    if (logger != nullptr) {
        Log(*logger, level, makeText, where);
    }
}

}  // namespace Corvane::File
