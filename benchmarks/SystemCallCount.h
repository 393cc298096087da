#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace bench {

// Calls the function in a child process and returns what it returned there. Throws if the child did not get that far.
std::vector<std::uint64_t> InChild(const std::function<std::vector<std::uint64_t>()>& function);

// The system calls that `run` makes, in a traced child process, after `prepare` there. No privilege is needed.
// `run` may ask CountingSystemCalls() to do less, since each call is stopped twice.
std::map<std::string, std::uint64_t> CountSystemCalls(const std::function<void()>& prepare,
                                                      const std::function<void()>& run);
bool CountingSystemCalls();

}  // namespace bench
