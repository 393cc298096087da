#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Corvane/Time/TimePoint.h"
#include "chunkfile/Input.h"
#include "chunkfile/Walk.h"

namespace Corvane::FileTool {

/// What lies where the records end before the header's count.
enum class Damage {
    None,
    ShortFile,       ///< no whole header
    CountTooHigh,    ///< only zeros, or the end of the file
    ZerosForRecord,  ///< zeros, and something after them
    CutRecord,       ///< the file ends inside a record
    BadRecord,
    Unreadable
};

std::string_view NameOf(Damage damage);  ///< `bad-record`: the code of its finding

/// A record whose time is before the one that precedes it.
struct Descent {
    std::uint64_t index;
    Range bytes;
    Time::TimePoint time;
};

/// The sizes of records, in bytes.
struct Sizes {
    std::uint64_t least = UINT64_MAX;
    std::uint64_t most = 0;
};

/// The time points of the counted records.
struct TimeSpan {
    std::optional<Time::TimePoint> first;  ///< as the records lie
    std::optional<Time::TimePoint> last;
    std::optional<Time::TimePoint> least;
    std::optional<Time::TimePoint> most;
    std::uint64_t descents = 0;  ///< how often a time is before the one that precedes it
    std::optional<Descent> firstDescent;
    std::uint64_t distinct = 0;  ///< the number of different time points
};

/// The facts of one file that info and check share.
struct Survey : FoundAfter {
    std::uint64_t size = 0;
    std::uint64_t allocated = 0;
    std::uint64_t version = 0;
    std::uint64_t count = 0;
    WalkEnd end;
    Damage damage = Damage::None;
    bool knownChunks = true;  ///< false: records are counted, and there is no sign of the tool's chunk type
    Sizes sizes;
    TimeSpan times;
    std::vector<std::uint64_t> overTime;          ///< counted records in equal parts of the span, if asked for
    std::uint64_t notZero = 0;                    ///< the first byte after the records that is not zero, or `size`
    std::optional<RecordRun> secondImage;         ///< the same records again, if all counted ones were read
    std::map<std::string, std::uint64_t> fields;  ///< how often; as many names as the limits below permit
    std::size_t nameBytes = 0;                    ///< of the names in `fields`
    bool moreFields = false;                      ///< some names are left out
    bool changed = false;                         ///< the file changed while it was read

    static constexpr std::size_t kMostFields = 10'000;
    static constexpr std::size_t kMostNameBytes = std::size_t{4} << 20U;
};

/// What lies after the last counted record: `nothing`, `zeros`, `second-image`, `older-records` or `other-bytes`; or the
/// code of the damage there, such as `bad-record`.
std::string_view RestOf(const Survey& survey);

struct SurveyOptions {
    bool countFields = false;
    std::size_t parts = 0;  ///< of the span of time
    std::function<void(std::uint64_t position)> progress;
    Visit visit = {};  ///< gets all records, doubtful ones too, and returns true
};

/// Reads the whole file. Throws std::runtime_error if that is not possible at all.
Survey SurveyOf(const Input& input, const SurveyOptions& options);

}  // namespace Corvane::FileTool
