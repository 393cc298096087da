#include "Glue.h"

#include <mutex>

#include "tarn/cv/logging/Logger.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace Corvane::Conformance {

using Pellin::DataChunk;
using tarn::cv::logging::LogEntry;
using tarn::cv::logging::Logger;
using tarn::cv::logging::LoggingManager;

std::unique_ptr<DataChunk> MakeChunk(int number)
{
    auto chunk = std::make_unique<DataChunk>(Time::TimePoint(number));
    for (int field = 0; field < number; ++field) {
        chunk->Set("field " + std::to_string(field), std::string(static_cast<std::size_t>(field) * 7, 'v'));
    }
    return chunk;
}

bool HaveSameContent(const DataChunk& left, const DataChunk& right)
{
    return left.Fields() == right.Fields();
}

std::set<std::string> NamesOfEverything()
{
    std::set<std::string> names;
    for (int field = 0; field < 12; ++field) {
        names.insert("field " + std::to_string(field));
    }
    return names;
}

bool RecordsCheckThemselves()
{
    return true;
}

void SetLevel(const std::string& logger, std::int32_t level)
{
    LoggingManager::SetLevel(logger, level);
}

void SwitchOff(const std::string& logger)
{
    LoggingManager::SetLevel(logger, Logger::kOff);
}

std::vector<std::string> LinesOf(const std::function<void()>& action)
{
    std::mutex mutex;
    std::vector<std::string> lines;
    LoggingManager::SetSink([&](const LogEntry& entry) {
        const std::lock_guard lock(mutex);
        lines.push_back(entry.message);
    });
    action();
    LoggingManager::SetSink({});
    return lines;
}

}  // namespace Corvane::Conformance
