#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace support {

// One log entry, copied.
struct CapturedEntry {
    std::int32_t level;
    std::string logger;
    std::string message;
    std::string file;
    std::int32_t line;
};

// While it lives, the platform's log entries are kept here instead of printed, and the library's three loggers have
// this level. Afterwards the default sink is back, and their level is 40.
class LogCapture {
public:
    explicit LogCapture(std::int32_t level = 0);
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture();

    static void SetLevel(std::int32_t level);

    std::vector<CapturedEntry> Entries() const;

    // Each entry as "<level> <message>".
    std::vector<std::string> Lines() const;

    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<CapturedEntry> entries_;
};

}  // namespace support
