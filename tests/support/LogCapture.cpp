#include "support/LogCapture.h"

#include "tarn/cv/logging/LoggingManager.h"

namespace support {

using tarn::cv::logging::LogEntry;
using tarn::cv::logging::LoggingManager;

LogCapture::LogCapture(std::int32_t level)
{
    SetLevel(level);
    LoggingManager::SetSink([this](const LogEntry& entry) {
        const std::lock_guard lock(mutex_);
        entries_.push_back({entry.level, entry.logger, entry.message, entry.file, entry.line});
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

std::vector<CapturedEntry> LogCapture::Entries() const
{
    const std::lock_guard lock(mutex_);
    return entries_;
}

Lines LogCapture::Lines() const
{
    support::Lines lines;
    for (const CapturedEntry& entry : Entries()) {
        lines.push_back(std::to_string(entry.level) + " " + entry.message);
    }
    return lines;
}

void LogCapture::Clear()
{
    const std::lock_guard lock(mutex_);
    entries_.clear();
}

}  // namespace support
