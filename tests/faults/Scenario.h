#pragma once

#include <string>
#include <vector>

#include "support/SystemCalls.h"

namespace faults {

// One piece of work that the library does for a program. Whatever fails meanwhile, it is known what must hold after.
class Scenario {
public:
    Scenario() = default;
    Scenario(const Scenario&) = delete;
    Scenario& operator=(const Scenario&) = delete;
    virtual ~Scenario() = default;

    // Puts the files into their state before.
    virtual void Prepare() = 0;

    // Calls the library and nothing else that could fail. Whatever throws is done a second time at most.
    virtual void Run() = 0;

    // Expects the results and the files that these calls, with what the kernel answered, allow.
    virtual void Check(const std::vector<support::SystemCall>& calls) const = 0;

    // Whether all work was done.
    virtual bool Succeeded() const = 0;

    // Whether whatever failed after construction worked when it was done again.
    virtual bool Recovered() const = 0;
};

// What the kernel moved by calls of this name, in bytes.
std::uint64_t Moved(const std::vector<support::SystemCall>& calls, const std::string& name);

}  // namespace faults
