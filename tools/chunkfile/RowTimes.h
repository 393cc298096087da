#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "chunkfile/Commands.h"
#include "chunkfile/Rows.h"

namespace Corvane::FileTool {

/// Times of rows, as --time and --time-unit say.
class RowTimes {
public:
    /// Throws std::invalid_argument for options that do not go together.
    explicit RowTimes(const Options& options);

    /// The row's time in nanoseconds. Removes its field with --drop-time. Throws std::runtime_error if there is none.
    std::int64_t Take(Row& row);

    /// In what forms the times were, for people.
    std::string Forms() const;

private:
    std::int64_t Now();
    std::int64_t Parse(const std::string& text);

    const ImportOptions& options_;
    std::vector<std::string> tokens_;  // of the pointer to the time; the first is the field's name
    std::int64_t now_;
    unsigned forms_ = 0;  // bits of TimeForm
    bool hasTexts_ = false;
    bool hasNumbers_ = false;
};

}  // namespace Corvane::FileTool
