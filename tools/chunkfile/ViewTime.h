#pragma once

#include <string>

#include "chunkfile/ViewFacts.h"

namespace Corvane::FileTool {

/// The section of records and bytes over time. Without times it is over the order of the records.
std::string TimeSection(const ViewFacts& facts);

/// The picture of a field's numbers over the same axis, with its table.
std::string BandOf(const ViewFacts& facts, const FieldFacts& field);

}  // namespace Corvane::FileTool
