#pragma once

#include "Corvane/Pellin/DataChunk.h"
#include "Corvane/Time/TimePoint.h"
#include "tarn/cv/logging/Logger.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace support {

// While it lives, the scripted platform has a logger; afterwards nothing of a test's script is left.
class ScriptedPlatform {
public:
    ScriptedPlatform() { tarn::cv::logging::LoggingManager::logger = &logger; }
    ScriptedPlatform(const ScriptedPlatform&) = delete;
    ScriptedPlatform& operator=(const ScriptedPlatform&) = delete;
    ~ScriptedPlatform()
    {
        ClearScript();
        using tarn::cv::logging::LoggingManager;
        LoggingManager::logger = nullptr;
        LoggingManager::absent = false;
        LoggingManager::names.clear();
    }

    // Everybody behaves again.
    void ClearScript()
    {
        using Corvane::Pellin::DataChunk;
        for (auto* const function : {&DataChunk::onGetTimePoint, &DataChunk::onGetSizeOnFile, &DataChunk::onWrite,
                                     &DataChunk::onReadFrom, &Corvane::Time::TimePoint::onCopy,
                                     &Corvane::Time::TimePoint::onCompare, &Corvane::Time::TimePoint::onPrint,
                                     &tarn::cv::logging::LoggingManager::onLookUp, &logger.onLog, &logger.onLevel}) {
            *function = nullptr;
        }
        Corvane::Time::TimePoint::resolution = 1;
        DataChunk::parse = nullptr;
        DataChunk::lastNames = nullptr;
    }

    tarn::cv::logging::Logger logger;
};

}  // namespace support
