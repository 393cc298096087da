#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "support/Texts.h"

namespace support {

struct CapturedEntry {
    std::int32_t level;
    std::string logger;
    std::string message;
    std::string file;
    std::int32_t line;
};

// While it lives, it keeps the platform's log entries and sets the level of the library's three loggers. Afterwards the
// default sink is back, and the level is 40.
class LogCapture {
public:
    explicit LogCapture(std::int32_t level = 0);
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture();

    static void SetLevel(std::int32_t level);

    std::vector<CapturedEntry> Entries() const;

    // Each entry as "<level> <message>".
    support::Lines Lines() const;

    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<CapturedEntry> entries_;
};

}  // namespace support
