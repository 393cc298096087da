#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "tarn/cv/logging/Logger.h"

namespace tarn::cv::logging {

/// One log entry. References and pointer are valid during the call of the sink only.
struct LogEntry {
    std::int32_t level;
    const std::string& logger;
    const std::string& message;
    const char* file;
    std::int32_t line;
};

/// Where log entries go. Several threads may call it at once.
using Sink = std::function<void(const LogEntry&)>;

/// The registry of loggers. The first use of a name makes its logger, which lives until the process ends.
///
/// The library calls GetLogger and GetLoggerPtr. A platform of your own must offer these. The other operations are this
/// platform's own.
///
/// - **Owns**: All loggers, and the sink.
/// - **Threads**: Every operation may run in any thread at any time.
class LoggingManager {
public:
    explicit LoggingManager() = delete;  // explicit, because braces would still make one in C++17

    /// Returns the logger of this name. Logger::kOff is the level of one that is switched off.
    static Logger& GetLogger(const std::string& name);

    /// Returns the logger of this name, or null while it is switched off. Earlier pointers stay valid.
    static Logger* GetLoggerPtr(const std::string& name);

    /// Sets the least level that the logger logs, 40 at first. Logger::kOff switches it off.
    static void SetLevel(const std::string& name, std::int32_t level);

    /// Replaces the sink. An empty one restores the default. Calls of the old sink may still be running.
    static void SetSink(Sink sink);

    /// The default sink. It prints one line on stderr with one write:
    /// `<time> <level> <logger> <message> <file>:<line>`. A control character or a backslash becomes `\xNN`, so that an
    /// entry stays on one line.
    static void WriteToStderr(const LogEntry& entry);
};

}  // namespace tarn::cv::logging
