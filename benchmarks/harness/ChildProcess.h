#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace bench {

// Calls the function in a child process and returns its figures. Throws if the child fails.
std::vector<std::uint64_t> InChild(const std::function<std::vector<std::uint64_t>()>& function);

// Counts the system calls that `run` makes in a traced child process, after `prepare` there. Needs no privilege.
// Tracing stops the child twice a call; so a long `run` may ask CountingSystemCalls() and do less.
std::map<std::string, std::uint64_t> CountSystemCalls(const std::function<void()>& prepare,
                                                      const std::function<void()>& run);
bool CountingSystemCalls();

}  // namespace bench
