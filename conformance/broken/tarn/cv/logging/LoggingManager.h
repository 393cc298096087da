#pragma once

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

#include "Fault.h"
#include "tarn/cv/logging/Logger.h"

namespace tarn::cv::logging {

class LoggingManager {
public:
    static Logger& GetLogger(const std::string& name)
    {
        if (broken::Has("threads")) {
            ForbidOthers();
        }
        const std::lock_guard lock(mutex);
        Logger& logger = loggers[name];
        if (broken::Has("stale")) {
            for (auto& [otherName, other] : loggers) {
                other.stale = otherName != name;
            }
        }
        return logger;
    }

    static Logger* GetLoggerPtr(const std::string& name)
    {
        Logger& logger = GetLogger(name);
        return logger.level == Logger::kOff && !broken::Has("off") ? nullptr : &logger;
    }

    static void SetLevel(const std::string& name, std::int32_t level)
    {
        GetLogger(name).level = level == Logger::kOff && broken::Has("off") ? 0 : level;
    }

private:
    // Two lookups at once end the process, as they may if a container changes without a lock.
    static void ForbidOthers()
    {
        static std::atomic<bool> busy = false;
        if (busy.exchange(true)) {
            std::abort();
        }
        ::usleep(10);
        busy = false;
    }

    static inline std::mutex mutex;
    static inline std::map<std::string, Logger> loggers;
};

}  // namespace tarn::cv::logging
