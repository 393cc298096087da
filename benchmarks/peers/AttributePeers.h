#pragma once

#include <vector>

#include "harness/Options.h"
#include "harness/Workload.h"

namespace bench {

// Reading and writing one attribute by path: the library, GIO, libattr and Python's os.
std::vector<Workload> AttributePeerWorkloads(const Options& options);

}  // namespace bench
