#include "Straightforward.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <tuple>

namespace bench {

using Corvane::Pellin::DataChunk;

namespace {

// The file's header: version and number of chunks.
constexpr std::uint64_t kVersion = 2;
constexpr std::uint64_t kNumberPosition = 8;
constexpr std::uint64_t kHeaderSize = 16;

}  // namespace

StraightforwardAppender::StraightforwardAppender(const std::string& filename, bool reopen, std::uint64_t maxSize)
    : maxSize_(maxSize), currentSize_(kHeaderSize)
{
    if (maxSize_ != 0) {
        data_.resize(maxSize_);
        std::memcpy(data_.data(), &kVersion, sizeof kVersion);
    }
    if (reopen) {
        Reopen(filename);
    }
    fd_ = ::open(filename.c_str(), O_WRONLY | O_CREAT | O_NOATIME, 0664);
}

StraightforwardAppender::~StraightforwardAppender()
{
    std::ignore = ::write(fd_, data_.data(), data_.size());
    ::close(fd_);
}

bool StraightforwardAppender::Append(const DataChunk& chunk)
{
    const std::uint64_t chunkSize = chunk.GetSizeOnFile();
    if (maxSize_ == 0 && currentSize_ + chunkSize > data_.size()) {
        data_.resize(currentSize_ + chunkSize);
    }
    if (timePoints_.find(chunk.GetTimePoint()) != timePoints_.end()) {
        return false;
    }
    chunk.Write(data_.data() + currentSize_);
    currentSize_ += chunkSize;
    timePoints_.insert(chunk.GetTimePoint());
    ++chunkNumber_;
    std::memcpy(data_.data() + kNumberPosition, &chunkNumber_, sizeof chunkNumber_);
    return true;
}

void StraightforwardAppender::Reopen(const std::string& filename)
{
    std::ostringstream stream;
    stream << std::ifstream(filename, std::ios::binary).rdbuf();
    const std::string content = stream.str();
    data_.resize(std::max<std::uint64_t>(maxSize_, content.size()));
    std::copy(content.begin(), content.end(), data_.begin());
    std::memcpy(&chunkNumber_, data_.data() + kNumberPosition, sizeof chunkNumber_);
    for (std::uint64_t i = 0; i < chunkNumber_; ++i) {
        DataChunk chunk;
        if (chunk.ReadFrom(data_.data() + currentSize_) == 0) {
            chunkNumber_ = i;
            return;
        }
        timePoints_.insert(chunk.GetTimePoint());
        currentSize_ += chunk.GetSizeOnFile();
    }
}

}  // namespace bench
