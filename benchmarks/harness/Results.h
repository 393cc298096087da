#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "harness/Options.h"

namespace bench {

// Appends one JSON object as a line to the results, if they have a file. Values are JSON already.
void SaveResult(const Options& options, const std::vector<std::pair<std::string, std::string>>& fields);
std::string Quoted(std::string_view text);
std::string Number(double value);

// Saves the machine that measures: processor, memory, kernel, file system, clock.
void SaveMachine(const Options& options);

}  // namespace bench
