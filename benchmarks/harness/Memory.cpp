#include "harness/Memory.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

namespace bench {

void JoinFreeBlocks()
{
    void* volatile block = std::malloc(std::size_t{1} << 20U);  // a large request makes the heap consolidate
    std::free(block);
}

void WarmFreeMemory(std::uint64_t bytes)
{
    if (bytes == 0) {
        return;
    }
    void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) {
        ::madvise(memory, bytes, MADV_HUGEPAGE);
        std::memset(memory, 1, bytes);
        ::munmap(memory, bytes);
    }
}

void WarmBuffer::Touch()
{
    for (std::uint64_t at = 0; at < bytes_.size(); at += 4096) {
        volatile unsigned char& byte = bytes_[at];
        byte = byte;
    }
}

}  // namespace bench
