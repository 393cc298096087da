// The glue of the reference platform. It declines nothing.
#include <xxhash.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "chunkfile/Glue.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace Corvane::FileTool::Glue {

using Pellin::DataChunk;
using Time::TimePoint;

namespace {

// The head of a record: docs/format.md.
constexpr std::string_view kMark = "CVC1";
constexpr std::size_t kHeadSize = 40;
constexpr std::size_t kSizePosition = 4;
constexpr std::size_t kChecksumPosition = 32;

}  // namespace

std::string PlatformName()
{
    return "reference platform";
}

std::optional<std::int64_t> NanosecondsOf(const TimePoint& timePoint)
{
    return timePoint.Nanoseconds();
}

std::optional<TimePoint> TimePointOf(std::int64_t nanoseconds)
{
    return TimePoint(nanoseconds);
}

bool VisitFields(const DataChunk& chunk, const std::function<void(std::string_view, std::string_view)>& visit)
{
    for (const auto& [name, value] : chunk.Fields()) {
        visit(name, value);
    }
    return true;
}

std::unique_ptr<DataChunk> MakeChunk(std::int64_t nanoseconds, const Fields& fields)
{
    auto chunk = std::make_unique<DataChunk>(TimePoint(nanoseconds));
    for (const auto& [name, value] : fields) {
        chunk->Set(name, value);
    }
    return chunk;
}

std::optional<std::uint64_t> AnnouncedSize(const unsigned char* bytes, std::size_t size)
{
    if (size == 0 || std::memcmp(bytes, kMark.data(), std::min(size, kMark.size())) != 0) {
        return {};
    }
    if (size < kHeadSize) {
        return kHeadSize;
    }
    std::uint32_t recordSize = 0;
    std::uint64_t checksum = 0;
    std::memcpy(&recordSize, bytes + kSizePosition, sizeof recordSize);
    std::memcpy(&checksum, bytes + kChecksumPosition, sizeof checksum);
    const bool intact = XXH3_64bits(bytes, kChecksumPosition) == checksum;
    const bool possible = recordSize >= kHeadSize && recordSize <= DataChunk::kMaxSizeOnFile;
    return intact && possible ? std::optional<std::uint64_t>(recordSize) : std::nullopt;
}

std::size_t HeadSize()
{
    return kHeadSize;
}

void SendLogTo(std::function<void(std::int32_t, const std::string&)> sink)
{
    using tarn::cv::logging::LogEntry;
    using tarn::cv::logging::LoggingManager;
    for (const char* const name : {"DataChunkFileAppender", "DataChunkFileReader", "ExtendedAttributes"}) {
        LoggingManager::SetLevel(name, 0);  // an attribute call that fails is logged below the first level
    }
    LoggingManager::SetSink([sink = std::move(sink)](const LogEntry& entry) { sink(entry.level, entry.message); });
}

}  // namespace Corvane::FileTool::Glue
