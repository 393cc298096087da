#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "chunkfile/Commands.h"
#include "chunkfile/Findings.h"
#include "chunkfile/Reopening.h"
#include "chunkfile/Survey.h"
#include "chunkfile/Terminal.h"

namespace Corvane::FileTool {

/// All that check says about one file.
struct Checked {
    std::string file;
    std::uint64_t maxSize;
    Survey survey;
    std::vector<Finding> findings;
    Verdict verdict;
    Reopening reopening;
};

/// Judges one file. `maxSize`: of the reopening to predict; 0 is unbounded. Throws std::runtime_error.
Checked CheckedOf(const Input& input, std::uint64_t maxSize, const SurveyOptions& options);  // Check.cpp

/// The exit code for its findings.
Exit CodeOf(const Checked& checked, bool strict);  // Check.cpp

/// What a reopening does, in words.
std::string ReopeningText(const Checked& checked);

/// Writes it in this format. `first`: a heading comes first, where the format has one.
void WriteReport(Terminal& terminal, Format format, bool first, const Checked& checked);

}  // namespace Corvane::FileTool
