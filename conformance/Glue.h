#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Corvane/Pellin/DataChunk.h"

// What the conformance kit needs to know of a platform beyond what the library calls. A platform defines these
// functions, in about a page, and compiles the kit with them (docs/integration.md).
namespace Corvane::Conformance {

// A new chunk. The same number always gives the same content and time point, a larger one a later time point. Let the
// sizes differ: number 0 as small as chunks can be, others of some hundred bytes.
std::unique_ptr<Pellin::DataChunk> MakeChunk(int number);

// Whether both hold the same content. Time points and sizes are compared by the kit.
bool HaveSameContent(const Pellin::DataChunk& left, const Pellin::DataChunk& right);

// The strings with which ReadFrom(int, const std::set<std::string>&) loads all that a chunk of MakeChunk holds.
std::set<std::string> NamesOfEverything();

// Whether a record can tell that it is damaged, by a checksum for example. Then zero bytes, every damaged byte and every
// cut must be refused; otherwise they must only do no harm.
bool RecordsCheckThemselves();

// Sets the logger's level, as far as that can be done for one logger alone.
void SetLevel(const std::string& logger, std::int32_t level);

// Lets the logger log nothing any more, until a level is set again.
void SwitchOff(const std::string& logger);

// Runs the action and returns what the platform's loggers let out meanwhile: a line for each record, with its message
// somewhere in it.
std::vector<std::string> LinesOf(const std::function<void()>& action);

}  // namespace Corvane::Conformance
