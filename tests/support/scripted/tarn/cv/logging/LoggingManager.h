#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tarn/cv/logging/Logger.h"

namespace tarn::cv::logging {

// The registry of one logger, which it gives for every name. For one thread.
class LoggingManager {
public:
    static Logger& GetLogger(const std::string& name)
    {
        LookUp(name);
        return *logger;
    }

    static Logger* GetLoggerPtr(const std::string& name)
    {
        LookUp(name);
        return absent ? nullptr : logger;
    }

    static inline Logger* logger = nullptr;        // set by the test, see ScriptedPlatform
    static inline bool absent = false;             // GetLoggerPtr gives null
    static inline std::vector<std::string> names;  // those looked up, in order
    static inline std::function<void()> onLookUp;

private:
    static void LookUp(const std::string& name)
    {
        names.push_back(name);
        if (onLookUp) {
            onLookUp();
        }
    }
};

}  // namespace tarn::cv::logging
