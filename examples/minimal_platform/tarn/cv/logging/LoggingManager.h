#pragma once

#include <cstdint>
#include <string>

#include "tarn/cv/logging/Logger.h"

namespace tarn::cv::logging {

// One logger for all names. It prints to stdout what is at or above the level; without a level there is no logger by
// pointer, and the one by reference is silent.
class LoggingManager {
public:
    static Logger& GetLogger(const std::string& name);
    static Logger* GetLoggerPtr(const std::string& name);

    static void SetLevel(std::int32_t level);
    static void SwitchOff();
};

}  // namespace tarn::cv::logging
