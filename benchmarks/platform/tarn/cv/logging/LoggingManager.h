#pragma once

#include <string>

#include "tarn/cv/logging/Logger.h"

namespace tarn::cv::logging {

// One logger for every name.
class LoggingManager {
public:
    static Logger& GetLogger(const std::string& /*name*/) noexcept { return TheLogger(); }
    static Logger* GetLoggerPtr(const std::string& /*name*/) noexcept { return &TheLogger(); }

private:
    static Logger& TheLogger() noexcept
    {
        static Logger logger;
        return logger;
    }
};

}  // namespace tarn::cv::logging
