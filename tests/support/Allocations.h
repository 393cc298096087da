#pragma once

#include <cstdint>
#include <functional>

namespace support {

// While it lives, it counts what this thread allocates by operator new, and lets the chosen allocation fail. Link
// test_allocations.
class Allocations {
public:
    Allocations();
    Allocations(const Allocations&) = delete;
    Allocations& operator=(const Allocations&) = delete;
    ~Allocations();

    // The nth allocation from now on, counted from 0, throws std::bad_alloc; if `persistently`, all later ones too.
    void FailAt(std::uint64_t nth, bool persistently = false);

    // Each allocation from now on sets errno, as allocators may.
    void DisturbErrno(int error);

    std::uint64_t Count() const;  // since construction, or FailAt
    std::uint64_t Failed() const;
};

// Runs the function until none of its allocations fails: first the first one fails, then the second, and so on. Calls
// afterFailure after each failure and returns their number. The function may throw std::bad_alloc.
std::uint64_t FailEveryAllocation(const std::function<void()>& function, const std::function<void()>& afterFailure);

}  // namespace support
