#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "Corvane/Pellin/DataChunk.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace Corvane::Pellin {

namespace {

constexpr std::uint64_t kMark = 0x6c616d696e696dU;
constexpr std::uint64_t kLongestText = 1 << 20;

struct Head {
    std::uint64_t mark;
    std::uint64_t size;
    std::int64_t ticks;
};

bool IsGood(const Head& head)
{
    return head.mark == kMark && head.size >= sizeof head && head.size - sizeof head <= kLongestText;
}

bool ReadWhole(int fd, void* bytes, std::uint64_t size)
{
    auto* at = static_cast<char*>(bytes);
    while (size != 0) {
        const ssize_t count = ::read(fd, at, size);
        if (count <= 0) {
            return false;
        }
        at += count;
        size -= static_cast<std::uint64_t>(count);
    }
    return true;
}

}  // namespace

DataChunk::DataChunk(long ticks, std::string text)
    : ticks_(ticks), text_(std::move(text)), sizeOnFile_(sizeof(Head) + text_.size())
{
}

std::uint64_t DataChunk::GetSizeOnFile() const
{
    return sizeOnFile_;
}

void DataChunk::Write(unsigned char* record) const
{
    if (sizeOnFile_ != sizeof(Head) + text_.size()) {
        throw std::logic_error("a chunk whose text was not read has no record to write");
    }
    const Head head = {kMark, sizeOnFile_, ticks_};
    std::memcpy(record, &head, sizeof head);
    std::memcpy(record + sizeof head, text_.data(), text_.size());
}

std::uint64_t DataChunk::ReadFrom(const unsigned char* record)
{
    Head head = {};
    std::memcpy(&head, record, sizeof head);
    if (!IsGood(head)) {
        return 0;
    }
    text_.assign(reinterpret_cast<const char*>(record) + sizeof head, head.size - sizeof head);
    ticks_ = head.ticks;
    sizeOnFile_ = head.size;
    return sizeOnFile_;
}

std::uint64_t DataChunk::ReadFrom(int fd)
{
    return ReadFrom(fd, {"text"});
}

std::uint64_t DataChunk::ReadFrom(int fd, const std::set<std::string>& names)
{
    Head head = {};
    if (!ReadWhole(fd, &head, sizeof head) || !IsGood(head)) {
        return 0;
    }
    std::string text(head.size - sizeof head, '\0');
    if (!ReadWhole(fd, text.data(), text.size())) {
        return 0;
    }
    text_ = names.count("text") != 0 ? text : "";
    ticks_ = head.ticks;
    sizeOnFile_ = head.size;
    return sizeOnFile_;
}

}  // namespace Corvane::Pellin

namespace tarn::cv::logging {

namespace {

constexpr std::int32_t kOff = INT32_MAX;

// Once in the process: a platform with such a variable must be a shared library.
std::atomic<std::int32_t> currentLevel = 40;

}  // namespace

void Logger::Log(std::int32_t level, const std::string& message, const char* file, std::int32_t line)
{
    std::printf("%d %s (%s:%d)\n", level, message.c_str(), file, line);
}

std::int32_t Logger::GetCurrentLevel()
{
    return currentLevel;
}

Logger& LoggingManager::GetLogger(const std::string& /*name*/)
{
    static auto* const logger = new Logger;
    return *logger;
}

Logger* LoggingManager::GetLoggerPtr(const std::string& name)
{
    return currentLevel == kOff ? nullptr : &GetLogger(name);
}

void LoggingManager::SetLevel(std::int32_t level)
{
    currentLevel = level;
}

void LoggingManager::SwitchOff()
{
    currentLevel = kOff;
}

}  // namespace tarn::cv::logging
