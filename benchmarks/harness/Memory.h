#pragma once

#include <cstdint>
#include <vector>

namespace bench {

// Makes the heap merge its small free blocks. Otherwise the nodes of a set fill the holes that the previous run's set
// left, in the order in which they were freed.
void JoinFreeBlocks();

// Touches and frees this much memory, so that the next run finds it. A virtual machine's host reclaims free memory.
// The first access then waits for the host, and chance decides how long.
void WarmFreeMemory(std::uint64_t bytes);

// A buffer without page faults: its memory is touched when it is made.
class WarmBuffer {
public:
    explicit WarmBuffer(std::uint64_t size) : bytes_(size, 1) { bytes_.assign(size, 0); }
    // Touches every page in this process, because a child shares its parent's pages until it writes.
    void Touch();
    unsigned char* Data() { return bytes_.data(); }
    std::uint64_t Size() const { return bytes_.size(); }

private:
    std::vector<unsigned char> bytes_;
};

}  // namespace bench
