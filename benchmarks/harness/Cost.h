#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "harness/Workload.h"

namespace bench {

// What one run takes besides time.
struct Cost {
    std::map<std::string, std::uint64_t> calls;  // system calls by name
    std::uint64_t faults = 0;                    // page faults
    std::uint64_t peak = 0;                      // peak of resident memory, in bytes above the start of the run
};

// Measured in child processes, so that no run finds memory that an earlier one left.
Cost CostOf(const Contender& contender, bool countCalls = true);

}  // namespace bench
