#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tarn/cv/logging/Logger.h"

namespace tarn::cv::logging {

// A registry that returns one logger for every name. Not for several threads.
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
    static inline bool absent = false;             // GetLoggerPtr returns null
    static inline std::vector<std::string> names;  // in the order of the lookups
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
