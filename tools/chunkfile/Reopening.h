#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "chunkfile/Input.h"
#include "chunkfile/Survey.h"

namespace Corvane::FileTool {

/// What the constructor of an appender with reopen = true does with a file.
struct Reopening {
    std::string refusal;  ///< the text of its exception; empty if it accepts the file
    std::uint64_t records = 0;
    std::uint64_t position = 0;  ///< where the first append writes
    std::uint64_t timePoints = 0;
    std::string_view overwrites;  ///< what lies there: `nothing`, `zeros`, `bad-record`, ...
};

/// `maxSize` 0 is unbounded. Throws std::runtime_error.
Reopening PredictReopening(const Input& input, const Survey& survey, std::uint64_t maxSize);

}  // namespace Corvane::FileTool
