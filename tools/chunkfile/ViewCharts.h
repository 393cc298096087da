#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "chunkfile/ByteMap.h"
#include "chunkfile/Timeline.h"

/// @file
/// The pictures of a page, as SVG that stretches to the width of its place. Their labels are HTML, which does not
/// stretch. Titles and labels are HTML already.
namespace Corvane::FileTool::Charts {

/// A label at a share of the width, from 0 to 1.
using Tick = std::pair<double, std::string>;

/// A column of two parts, one on the other.
struct Column {
    std::uint64_t lower = 0;
    std::uint64_t upper = 0;
    std::string tip;
};

/// The cells of the map, 64 in a line, each line with the position where it begins.
std::string Map(const std::string& title, const ByteMap& map);

/// A square in the colour of this kind, for legends.
std::string Swatch(ByteKind kind);

/// Columns over an axis. `inBytes`: the numbers are bytes.
std::string Columns(const std::string& title, const std::vector<Column>& columns, const std::vector<Tick>& ticks,
                    bool inBytes);

/// A band from the least to the most value at each place; nothing where there is no value.
using Span = std::optional<std::pair<double, double>>;
std::string Band(const std::string& title, const std::vector<Span>& spans, const std::vector<Tick>& ticks,
                 const ExactNumber& least, const ExactNumber& most);

}  // namespace Corvane::FileTool::Charts
