#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Corvane/Pellin/DataChunk.h"

// What the conformance kit needs besides what the library calls. A platform defines these functions in about a page,
// and compiles the kit with them (docs/integration.md).
namespace Corvane::Conformance {

// Makes a chunk. The same number gives the same content and time point, a larger number a later time point. Let the
// sizes differ: number 0 as small as a chunk can be, others up to some hundred bytes.
std::unique_ptr<Pellin::DataChunk> MakeChunk(int number);

// Whether both have the same content. The kit itself compares time points and sizes.
bool HaveSameContent(const Pellin::DataChunk& left, const Pellin::DataChunk& right);

// The strings with which ReadFrom(int, const std::set<std::string>&) reads the whole content of a chunk of MakeChunk.
std::set<std::string> NamesOfEverything();

// Whether ReadFrom notices damage, by a checksum for example. If so, it must refuse zero bytes, every damaged byte and
// every truncated record. If not, they must only do no harm.
bool RecordsCheckThemselves();

// Sets the logger's level. A platform with one level for all loggers sets that.
void SetLevel(const std::string& logger, std::int32_t level);

// Makes the logger silent until SetLevel.
void SwitchOff(const std::string& logger);

// Runs the action, and returns what the platform logged meanwhile: a line for each log entry that contains its message.
std::vector<std::string> LinesOf(const std::function<void()>& action);

}  // namespace Corvane::Conformance
