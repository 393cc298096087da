#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tarn::cv::logging {

// A logger that keeps its entries and that a test scripts.
class Logger {
public:
    struct LogEntry {
        std::int32_t level;
        std::string message;
        std::string file;
        std::int32_t line;
    };

    Logger() = default;
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;
    virtual ~Logger() = default;

    virtual void Log(std::int32_t entryLevel, const std::string& message, const char* file, std::int32_t line)
    {
        if (onLog) {
            onLog();
        }
        entries.push_back({entryLevel, message, file, line});
    }

    virtual std::int32_t GetCurrentLevel()
    {
        if (onLevel) {
            onLevel();
        }
        return level;
    }

    // Each entry as "<level> <message>".
    std::vector<std::string> Lines() const
    {
        std::vector<std::string> lines;
        lines.reserve(entries.size());
        for (const LogEntry& entry : entries) {
            lines.push_back(std::to_string(entry.level) + " " + entry.message);
        }
        return lines;
    }

    std::int32_t level = 0;
    std::vector<LogEntry> entries;
    std::function<void()> onLog;
    std::function<void()> onLevel;
};

}  // namespace tarn::cv::logging
