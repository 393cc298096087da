#pragma once

#include <functional>
#include <memory>

#include "Corvane/Pellin/DataChunk.h"
#include "Corvane/Time/TimePoint.h"
#include "support/Texts.h"
#include "tarn/cv/logging/Logger.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace support {

// The exception of a scripted collaborator.
struct Thrown {};

inline void Throw()
{
    throw Thrown();
}

// Throws at the nth call, counted from 0. Copies count together.
inline std::function<void()> ThrowAt(int nth)
{
    return [nth, call = std::make_shared<int>(0)] {
        if ((*call)++ == nth) {
            Throw();
        }
    };
}

// While it lives, the scripted platform has a logger. Afterwards the script is cleared.
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

    // No collaborator throws or calls back any more.
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
