#include <array>
#include <cstdio>
#include <locale>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <sstream>
#include <utility>

#include "Corvane/Time/TimePoint.h"
#include "tarn/cv/logging/Logger.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace tarn::cv::logging {

namespace {

constexpr std::int32_t kFirstLevel = 40;

struct Registry {
    std::shared_mutex mutex;
    std::map<std::string, Logger> loggers;
    std::shared_ptr<const Sink> sink = std::make_shared<const Sink>(LoggingManager::WriteToStderr);
};

// Never destroyed, because destructors that run at the end of the process may still log.
Registry& TheRegistry()
{
    static auto* const registry = new Registry;
    return *registry;
}

Logger& Find(const std::string& name)
{
    Registry& registry = TheRegistry();
    {
        const std::shared_lock lock(registry.mutex);
        const auto found = registry.loggers.find(name);
        if (found != registry.loggers.end()) {
            return found->second;
        }
    }
    const std::unique_lock lock(registry.mutex);
    return registry.loggers.try_emplace(name, name).first->second;
}

// Control characters and the backslash. In UTF-8 a control character above 0x7f has two bytes, 0xc2 and another; both
// are escaped.
bool NeedsEscape(unsigned char before, unsigned char byte, unsigned char after)
{
    const auto isHighControl = [](unsigned first, unsigned second) { return first == 0xc2 && second - 0x80 < 0x20; };
    return byte < 0x20 || byte == 0x7f || byte == '\\' || isHighControl(byte, after) || isHighControl(before, byte);
}

std::string Escaped(const std::string& text)
{
    std::string escaped;
    unsigned char before = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool escape = NeedsEscape(before, byte, static_cast<unsigned char>(text.c_str()[i + 1]));
        before = byte;
        if (!escape) {
            escaped += text[i];
            continue;
        }
        std::array<char, 5> code = {};
        std::snprintf(code.data(), code.size(), "\\x%02x", static_cast<unsigned>(byte));
        escaped += code.data();
    }
    return escaped;
}

}  // namespace

Logger::Logger(std::string name) : name_(std::move(name)), level_(kFirstLevel) {}

Logger::~Logger() = default;

void Logger::Log(std::int32_t level, const std::string& message, const char* file, std::int32_t line)
{
    std::shared_ptr<const Sink> sink;
    {
        const std::shared_lock lock(TheRegistry().mutex);
        sink = TheRegistry().sink;
    }
    (*sink)({level, name_, message, file, line});  // unlocked, because a sink may log or look up a logger
}

std::int32_t Logger::GetCurrentLevel()
{
    return level_;
}

Logger& LoggingManager::GetLogger(const std::string& name)
{
    return Find(name);
}

Logger* LoggingManager::GetLoggerPtr(const std::string& name)
{
    Logger& logger = Find(name);
    return logger.GetCurrentLevel() == Logger::kOff ? nullptr : &logger;
}

void LoggingManager::SetLevel(const std::string& name, std::int32_t level)
{
    Find(name).SetLevel(level);
}

void LoggingManager::SetSink(Sink sink)
{
    if (!sink) {
        sink = WriteToStderr;
    }
    auto next = std::make_shared<const Sink>(std::move(sink));
    const std::unique_lock lock(TheRegistry().mutex);
    TheRegistry().sink.swap(next);
}

void LoggingManager::WriteToStderr(const LogEntry& entry)
{
    std::ostringstream line;
    line.imbue(std::locale::classic());  // the program's locale must not change numbers
    line << Corvane::Time::TimePoint::Now() << ' ' << entry.level << ' ' << Escaped(entry.logger) << ' '
         << Escaped(entry.message) << ' ' << Escaped(entry.file) << ':' << entry.line << '\n';
    const std::string text = line.str();
    std::fwrite(text.data(), 1, text.size(), stderr);  // one call keeps the lines of several threads apart
}

}  // namespace tarn::cv::logging
