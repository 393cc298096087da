#pragma once

#include <cstdint>

namespace support {

// While it lives, the allocations that this thread makes through operator new are counted, and the chosen one fails.
// Link test_allocations.
class Allocations {
public:
    Allocations();
    Allocations(const Allocations&) = delete;
    Allocations& operator=(const Allocations&) = delete;
    ~Allocations();

    // The n-th allocation from now on, counted from 0, throws std::bad_alloc; all later ones too if `persistently`.
    void FailAt(std::uint64_t nth, bool persistently = false);

    // Each allocation from now on sets errno, as allocators may.
    void DisturbErrno(int error);

    std::uint64_t Count() const;  // since construction, or FailAt
    std::uint64_t Failed() const;
};

}  // namespace support
