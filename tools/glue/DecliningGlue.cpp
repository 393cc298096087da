// Declines everything: the tool then does what needs the library's contract only.
#include "chunkfile/Glue.h"

namespace Corvane::FileTool::Glue {

std::string PlatformName()
{
    return {};
}

std::optional<std::int64_t> NanosecondsOf(const Time::TimePoint& /*timePoint*/)
{
    return {};
}

std::optional<Time::TimePoint> TimePointOf(std::int64_t /*nanoseconds*/)
{
    return {};
}

bool VisitFields(const Pellin::DataChunk& /*chunk*/,
                 const std::function<void(std::string_view name, std::string_view value)>& /*visit*/)
{
    return false;
}

std::unique_ptr<Pellin::DataChunk> MakeChunk(std::int64_t /*nanoseconds*/, const Fields& /*fields*/)
{
    return nullptr;
}

std::optional<std::uint64_t> AnnouncedSize(const unsigned char* /*bytes*/, std::size_t /*size*/)
{
    return {};
}

std::size_t HeadSize()
{
    return 0;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): a glue that does not decline keeps the sink
void SendLogTo(std::function<void(std::int32_t level, const std::string& message)> /*sink*/) {}

}  // namespace Corvane::FileTool::Glue
