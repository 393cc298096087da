#pragma once

#include <functional>
#include <string>
#include <vector>

#include "harness/Options.h"

namespace bench {

// The body of main: parses the arguments, makes the folder of the files, measures and removes the folder.
int Main(const std::vector<std::string>& arguments, const std::function<void(const Options&)>& measure);

}  // namespace bench
