#pragma once

#include <cstddef>
#include <string>

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

/// The number of bars over time for which there is room.
std::size_t BarsThatFit();

/// Writes it in this format. `first`: no other file came before.
void WriteInfo(Terminal& terminal, Format format, bool first, const Facts& facts);

}  // namespace Corvane::FileTool
