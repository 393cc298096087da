#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "tarn/cv/logging/Logger.h"

namespace tarn::cv::logging {

// One log entry. The references are good for the duration of the call of the sink only.
struct LogEntry {
    std::int32_t level;
    const std::string& logger;
    const std::string& message;
    const char* file;
    std::int32_t line;
};

// Where entries go. It may be called from several threads at once.
using Sink = std::function<void(const LogEntry&)>;

// The registry of loggers. A logger comes into being when its name is first used, and lives until the process ends.
// Every operation may be called from any thread at any time.
//
// What the library calls, and a platform of your own must offer: GetLogger and GetLoggerPtr.
class LoggingManager {
public:
    explicit LoggingManager() = delete;  // explicit: or braces would still make one in C++17

    // The logger of that name; one that is switched off answers kOff to GetCurrentLevel.
    static Logger& GetLogger(const std::string& name);

    // The logger of that name, or null while it is switched off. A pointer got earlier stays good.
    static Logger* GetLoggerPtr(const std::string& name);

    // The least level that the logger logs; Logger::kOff switches it off. It starts with 40.
    static void SetLevel(const std::string& name, std::int32_t level);

    // Replaces the sink; an empty one brings the default sink back. Calls of the old one may still be under way.
    static void SetSink(Sink sink);

    // The default sink: one line on stderr, "<time> <level> <logger> <message> <file>:<line>", in one write. Control
    // characters in the texts, and the backslash, are written as \xNN, so that an entry is always one line.
    static void WriteToStderr(const LogEntry& entry);
};

}  // namespace tarn::cv::logging
