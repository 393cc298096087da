#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "chunkfile/Survey.h"

namespace Corvane::FileTool {

enum class Severity { Error, Warning, Note };

/// Something that check says about a file. Codes are stable: scripts compare them.
struct Finding {
    Severity severity;
    std::string_view code;  ///< `bad-record`
    Range bytes;
    std::optional<std::uint64_t> record;  ///< its number
    std::string time;                     ///< of this record; of the last good one before a bad record
    std::string text;
};

enum class Verdict {
    Sound,
    Damaged,
    Unknown,    ///< several records are counted, and none is of the tool's chunk type
    Unclear,    ///< the same, but one record is counted: it may be damaged
    Unreadable  ///< the system could not read all of it; what could be read is not damaged
};

/// The codes in the order of the file, the errors first.
std::vector<Finding> FindingsOf(const Survey& survey);

Verdict VerdictOf(const std::vector<Finding>& findings, const Survey& survey);

std::string_view NameOf(Severity severity);  ///< `error`
std::string_view NameOf(Verdict verdict);    ///< `sound`

}  // namespace Corvane::FileTool
