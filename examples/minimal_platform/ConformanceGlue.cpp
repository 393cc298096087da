#include <gtest/gtest.h>

#include <sstream>

#include "Glue.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace Corvane::Conformance {

using Pellin::DataChunk;
using tarn::cv::logging::LoggingManager;

std::unique_ptr<DataChunk> MakeChunk(int number)
{
    return std::make_unique<DataChunk>(number, std::string(static_cast<std::size_t>(number) * 10, 't'));
}

bool HaveSameContent(const DataChunk& left, const DataChunk& right)
{
    return left.Text() == right.Text();
}

std::set<std::string> NamesOfEverything()
{
    return {"text"};
}

bool RecordsCheckThemselves()
{
    return false;
}

void SetLevel(const std::string& /*logger*/, std::int32_t level)
{
    LoggingManager::SetLevel(level);
}

void SwitchOff(const std::string& /*logger*/)
{
    LoggingManager::SwitchOff();
}

std::vector<std::string> LinesOf(const std::function<void()>& action)
{
    testing::internal::CaptureStdout();
    action();
    std::istringstream output(testing::internal::GetCapturedStdout());
    std::vector<std::string> lines;
    for (std::string line; std::getline(output, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace Corvane::Conformance
