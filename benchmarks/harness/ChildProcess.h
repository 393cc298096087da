#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "harness/Workload.h"

namespace bench {

// Calls the function in a child process and returns its figures. Throws if the child fails.
std::vector<std::uint64_t> InChild(const std::function<std::vector<std::uint64_t>()>& function);

// Counts the system calls of one run by name, in a traced child process that prepares it there. Needs no privilege.
// Tracing stops the child twice a call; so a long run may ask CountingSystemCalls() and do less.
std::map<std::string, std::uint64_t> CountSystemCalls(const Contender& contender);
bool CountingSystemCalls();

}  // namespace bench
