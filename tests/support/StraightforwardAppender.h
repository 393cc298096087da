#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Corvane/Time/TimePoint.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace support {

// The appender written the obvious way, from its documentation alone: a vector that is resized, a lookup and an
// insertion for each chunk, a file read through a stream. Random lives compare the library with it; benchmarks show
// what the library's effort is worth. It shares nothing with the library, so the layout's numbers stand here again.
//
// kTail: zero bytes past the image while records are read, for a chunk type that reads past a truncated record.
template <typename Chunk, std::size_t kTail = 0>
class StraightforwardAppender {
public:
    StraightforwardAppender(std::string filename, bool reopen, std::uint64_t maxSize)
        : filename_(std::move(filename)),
          maxSize_(maxSize),
          logger_(tarn::cv::logging::LoggingManager::GetLoggerPtr("DataChunkFileAppender")),
          image_(maxSize)
    {
        if (maxSize_ != 0) {
            std::memcpy(image_.data(), &kVersion, std::min(sizeof kVersion, image_.size()));
        }
        if (reopen) {
            Load();
            Walk();
        }
        fd_ = ::open(filename_.c_str(), O_WRONLY | O_CREAT | O_NOATIME, 0664);
        if (fd_ == -1) {
            Throw(" could not open file ", filename_, ": ", std::generic_category().message(errno));
        }
    }

    StraightforwardAppender(const StraightforwardAppender&) = delete;
    StraightforwardAppender& operator=(const StraightforwardAppender&) = delete;

    ~StraightforwardAppender()
    {
        Flush();
        ::close(fd_);
    }

    bool Append(const Chunk& chunk)
    {
        const std::uint64_t chunkSize = chunk.GetSizeOnFile();
        if (maxSize_ != 0 && (currentSize_ > maxSize_ || chunkSize > maxSize_ - currentSize_)) {
            Log(50, "Current file size ", currentSize_, " + chunkSize ", chunkSize, " > maxSize ", maxSize_);
            return false;
        }
        const std::uint64_t imageSize = image_.size();
        image_.resize(std::max(imageSize, currentSize_ + chunkSize));
        if (timePoints_.find(chunk.GetTimePoint()) != timePoints_.end()) {
            Log(50, "TimePoint ", chunk.GetTimePoint(), " has already been appended");
            return false;
        }
        try {
            chunk.Write(image_.data() + currentSize_);
        } catch (...) {
            image_.resize(imageSize);
            throw;
        }
        currentSize_ += chunkSize;
        timePoints_.insert(chunk.GetTimePoint());
        ++chunkNumber_;
        std::memcpy(image_.data() + kCountPosition, &chunkNumber_, sizeof chunkNumber_);
        return true;
    }

    void Flush()
    {
        if (image_.empty()) {
            return;
        }
        const ssize_t written = ::write(fd_, image_.data(), image_.size());
        if (written != static_cast<ssize_t>(image_.size())) {
            Log(50, "Could not write ", image_.size(), "B. Wrote instead: ", written);
        }
    }

    std::string GetFilename() const { return filename_; }
    const std::set<Corvane::Time::TimePoint>& GetTimePoints() const { return timePoints_; }

private:
    static constexpr std::uint64_t kVersion = 2;
    static constexpr std::uint64_t kCountPosition = 8;
    static constexpr std::uint64_t kHeaderSize = 16;

    void Load()
    {
        std::ostringstream stream;
        stream << std::ifstream(filename_, std::ios::binary).rdbuf();
        const std::string content = stream.str();
        if (content.size() < kHeaderSize) {
            Throw(": file ", filename_, " has content of only ", content.size(), " bytes. 16is the minimum expected");
        }
        if (maxSize_ != 0 && content.size() > maxSize_) {
            Throw(": content size ", content.size(), " is greater than specified size ", maxSize_,
                  " when reading file ", filename_);
        }
        image_.resize(std::max<std::uint64_t>(maxSize_, content.size()) + kTail);
        std::copy(content.begin(), content.end(), image_.begin());
        std::uint64_t version = 0;
        std::memcpy(&version, image_.data(), sizeof version);
        if (version != kVersion) {
            Throw(": file ", filename_, " is stored with version ", version,
                  " instead of version 2: we don't know how to read this file");
        }
        std::memcpy(&chunkNumber_, image_.data() + kCountPosition, sizeof chunkNumber_);
    }

    void Walk()
    {
        const std::uint64_t count = std::exchange(chunkNumber_, 0);
        const std::uint64_t end = image_.size() - kTail;
        Log(20, "In file ", filename_, ": we discovered ", count, " chunks from version 2");
        for (; chunkNumber_ < count; ++chunkNumber_) {
            Chunk chunk;
            if (chunk.ReadFrom(image_.data() + currentSize_) == 0 || chunk.GetSizeOnFile() > end - currentSize_) {
                Log(40, "Chunk ", chunkNumber_, " in file ", filename_, " of ", count,
                    " chunks is not good. We skip the remaining ", count - 1 - chunkNumber_, " chunks");
                break;
            }
            timePoints_.insert(chunk.GetTimePoint());
            currentSize_ += chunk.GetSizeOnFile();
        }
        image_.resize(end);
    }

    template <typename... Pieces>
    static std::string Text(const Pieces&... pieces)
    {
        std::ostringstream text;
        (text << ... << pieces);
        return text.str();
    }

    template <typename... Pieces>
    static void Throw(const Pieces&... pieces)
    {
        throw std::runtime_error(Text("DataChunkFileAppender", pieces...));
    }

    template <typename... Pieces>
    void Log(std::int32_t level, const Pieces&... pieces) const
    {
        if (logger_ != nullptr && logger_->GetCurrentLevel() <= level) {
            logger_->Log(level, Text(pieces...), __FILE__, __LINE__);
        }
    }

    std::string filename_;
    std::uint64_t maxSize_;
    tarn::cv::logging::Logger* logger_;
    std::vector<unsigned char> image_;
    std::uint64_t currentSize_ = kHeaderSize;
    std::uint64_t chunkNumber_ = 0;
    std::set<Corvane::Time::TimePoint> timePoints_;
    int fd_ = -1;
};

}  // namespace support
