#include "Glue.h"

#include <utility>

#include "tarn/cv/logging/Logger.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace Corvane::Conformance {

using Pellin::DataChunk;
using tarn::cv::logging::Logger;
using tarn::cv::logging::LoggingManager;

std::unique_ptr<DataChunk> MakeChunk(int number)
{
    return std::make_unique<DataChunk>(number, static_cast<std::uint64_t>(number) * 10);
}

bool HaveSameContent(const DataChunk& left, const DataChunk& right)
{
    return left.Length() == right.Length();
}

std::set<std::string> NamesOfEverything()
{
    return {};
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
    action();
    return std::exchange(Logger::lines, {});
}

}  // namespace Corvane::Conformance
