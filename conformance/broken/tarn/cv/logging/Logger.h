#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "Fault.h"

namespace tarn::cv::logging {

class Logger {
public:
    static constexpr std::int32_t kOff = INT32_MAX;

    virtual ~Logger() = default;

    virtual void Log(std::int32_t entryLevel, const std::string& message, const char* /*file*/, std::int32_t /*line*/)
    {
        if (stale || (broken::Has("exclusive") && entryLevel == level)) {
            return;
        }
        const std::lock_guard lock(mutex);
        lines.push_back(message);
    }

    virtual std::int32_t GetCurrentLevel() { return level; }

    std::int32_t level = 40;
    bool stale = false;

    static inline std::mutex mutex;
    static inline std::vector<std::string> lines;
};

}  // namespace tarn::cv::logging
