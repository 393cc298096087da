#pragma once

#include <cstdint>
#include <string>

#include "tarn/cv/logging/Logger.h"

namespace tarn::cv::logging {

// One logger for all names. It prints entries at or above its level to stdout. While it is switched off, GetLoggerPtr
// returns null, and the logger of GetLogger is silent.
class LoggingManager {
public:
    static Logger& GetLogger(const std::string& name);
    static Logger* GetLoggerPtr(const std::string& name);

    static void SetLevel(std::int32_t level);
    static void SwitchOff();
};

}  // namespace tarn::cv::logging
