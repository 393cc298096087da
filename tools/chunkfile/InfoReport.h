#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "chunkfile/Commands.h"
#include "chunkfile/Survey.h"
#include "chunkfile/Terminal.h"

namespace Corvane::FileTool {

/// What info says about one file.
struct Facts {
    std::string file;
    bool withFields;
    Survey survey;
};

using Line = std::pair<std::string, std::string>;  ///< a name and what it says

/// What a table says, without colours.
std::vector<Line> InfoLines(const Facts& facts, bool utf8);

/// The number of bars over time for which there is room.
std::size_t BarsThatFit();

/// Writes it in this format. `first`: no other file came before.
void WriteInfo(Terminal& terminal, Format format, bool first, const Facts& facts);

}  // namespace Corvane::FileTool
