#include "support/LogCapture.h"

#include "tarn/cv/logging/LoggingManager.h"

namespace support {

using tarn::cv::logging::LoggingManager;
using tarn::cv::logging::Record;

LogCapture::LogCapture(std::int32_t level)
{
    SetLevel(level);
    LoggingManager::SetSink([this](const Record& record) {
        const std::lock_guard lock(mutex_);
        records_.push_back({record.level, record.logger, record.message, record.file, record.line});
    });
}

LogCapture::~LogCapture()
{
    LoggingManager::SetSink({});
    SetLevel(40);
}

void LogCapture::SetLevel(std::int32_t level)
{
    for (const char* const name : {"DataChunkFileAppender", "DataChunkFileReader", "ExtendedAttributes"}) {
        LoggingManager::SetLevel(name, level);
    }
}

std::vector<LogRecord> LogCapture::Records() const
{
    const std::lock_guard lock(mutex_);
    return records_;
}

std::vector<std::string> LogCapture::Lines() const
{
    std::vector<std::string> lines;
    for (const LogRecord& record : Records()) {
        lines.push_back(std::to_string(record.level) + " " + record.message);
    }
    return lines;
}

void LogCapture::Clear()
{
    const std::lock_guard lock(mutex_);
    records_.clear();
}

}  // namespace support
