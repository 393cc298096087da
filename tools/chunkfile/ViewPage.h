#pragma once

#include <string>
#include <string_view>

#include "chunkfile/CheckReport.h"
#include "chunkfile/ViewFacts.h"

namespace Corvane::FileTool {

/// The whole page of `view`: HTML in UTF-8 that is XML too, without script, and that asks for nothing else.
std::string ViewPage(const Checked& checked, const ViewFacts& facts);

/// Its style sheet and the patterns of its pictures.
extern const std::string_view kViewStyle;
extern const std::string_view kViewPatterns;

}  // namespace Corvane::FileTool
