#pragma once

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <stdexcept>

// Internal to the library.
namespace Corvane::File {

// The bytes of one file in memory: an array that grows, and whose new bytes are zero.
//
// From one huge page on, the memory is mapped: it comes zeroed from the kernel and is not cleared a second time, lies
// on huge pages (a fault per 2 MiB instead of 4 KiB), and grows by moving page tables instead of bytes. Smaller images
// stay on the heap, whose pages are warm. On failure every member leaves the image as it was.
class FileImage {
public:
    FileImage() = default;
    FileImage(const FileImage&) = delete;
    FileImage& operator=(const FileImage&) = delete;
    ~FileImage() { Free(bytes_, capacity_ + tail_, mapped_); }

    unsigned char* Data() noexcept { return bytes_; }
    const unsigned char* Data() const noexcept { return bytes_; }
    std::uint64_t Size() const noexcept { return size_; }
    bool Empty() const noexcept { return size_ == 0; }
    bool Holds(std::uint64_t at, std::uint64_t size) const noexcept { return at <= size_ && size <= size_ - at; }

    // Makes [at, at + size) part of the image. Throws std::length_error where no array can be that long, and
    // std::bad_alloc.
    void Cover(std::uint64_t at, std::uint64_t size)
    {
        if (Holds(at, size)) {
            return;
        }
        if (at > kMaxSize || size > kMaxSize - at) {
            throw std::length_error("Corvane::File::FileImage");
        }
        Reserve(at + size);
        size_ = at + size;
    }

    // Gives up the bytes from `size` on, which the caller has left zero.
    void Shrink(std::uint64_t size) noexcept { size_ = std::min(size_, size); }

    // Makes memory behind the image readable: zeros, mapped without write access, so no commit charge and nothing
    // resident. A chunk parses its record without being told where the image ends, so one that verifies a checksum
    // reads on behind a record that was cut off. Four GiB serve every record whose length is a 32-bit number. Less
    // where the address space is limited, but at least 64 KiB.
    void AttachTail()
    {
        const std::uint64_t capacity = RoundUp(capacity_, kPageSize);
        std::uint64_t tail = kLongestTail;
        unsigned char* region = Map(capacity + tail, PROT_READ);
        while (region == nullptr && tail > kShortestTail) {
            tail /= 2;
            region = Map(capacity + tail, PROT_READ);
        }
        MoveTo(region, capacity, tail);
    }
    void DetachTail() noexcept
    {
        Free(bytes_ + capacity_, tail_, true);
        tail_ = 0;
    }

    // Call before the whole image is handed to the kernel: maps the zero page under the untouched bytes from `from` on
    // at once, where copying would fault them in one by one. Optional: before Linux 5.14 nothing happens.
    void PopulateForReading(std::uint64_t from) noexcept
    {
        const std::uint64_t at = RoundUp(from, kPageSize);
        if (mapped_ && at < size_) {
            ::madvise(bytes_ + at, size_ - at, kPopulateRead);
        }
    }

private:
    static constexpr std::uint64_t kMaxSize = PTRDIFF_MAX;
    static constexpr std::uint64_t kPageSize = 4096;
    static constexpr std::uint64_t kHugePageSize = std::uint64_t{1} << 21U;
    static constexpr std::uint64_t kLongestTail = std::uint64_t{1} << 32U;
    static constexpr std::uint64_t kShortestTail = std::uint64_t{1} << 16U;
    static constexpr int kPopulateRead = 22;  // MADV_POPULATE_READ, younger than the oldest headers we build with

    static std::uint64_t RoundUp(std::uint64_t bytes, std::uint64_t step) { return (bytes + step - 1) / step * step; }

    void Reserve(std::uint64_t size)
    {
        if (size <= capacity_) {
            return;
        }
        std::uint64_t capacity = std::max(size, 2 * capacity_);
        if (!mapped_ && capacity < kHugePageSize) {
            auto* const bytes = new unsigned char[capacity]();
            std::copy(bytes_, bytes_ + size_, bytes);
            Free(bytes_, capacity_, mapped_);
            bytes_ = bytes;
            capacity_ = capacity;
            return;
        }
        // Growth ends on a huge page: else the last 2 MiB of each step would stay on small ones.
        capacity = RoundUp(capacity, size_ == 0 ? kPageSize : kHugePageSize);
        MoveTo(Map(capacity, PROT_READ | PROT_WRITE), capacity, 0);
    }

    // A mapping of zeros that begins on a huge page, so that whole huge pages move; null when refused.
    static unsigned char* Map(std::uint64_t size, int protection) noexcept
    {
        void* const mapping = ::mmap(nullptr, size + kHugePageSize, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapping == MAP_FAILED) {
            return nullptr;
        }
        auto* const bytes = static_cast<unsigned char*>(mapping);
        const std::uint64_t before = -reinterpret_cast<std::uintptr_t>(bytes) % kHugePageSize;
        Free(bytes, before, true);
        Free(bytes + before + size, kHugePageSize - before, true);
        return bytes + before;
    }

    // Lets the first `capacity` bytes of `region`, which has `tail` more, take over the image.
    void MoveTo(unsigned char* region, std::uint64_t capacity, std::uint64_t tail)
    {
        if (region == nullptr) {
            throw std::bad_alloc();
        }
        const bool moved =
            mapped_ ? ::mremap(bytes_, capacity_, capacity, MREMAP_MAYMOVE | MREMAP_FIXED, region) != MAP_FAILED
                    : ::mprotect(region, capacity, PROT_READ | PROT_WRITE) == 0;
        if (!moved) {
            Free(region, capacity + tail, true);
            throw std::bad_alloc();
        }
        ::madvise(region, capacity, MADV_HUGEPAGE);
        if (!mapped_) {
            std::copy(bytes_, bytes_ + size_, region);
            Free(bytes_, capacity_, false);
        }
        bytes_ = region;
        capacity_ = capacity;
        tail_ = tail;
        mapped_ = true;
    }

    static void Free(unsigned char* bytes, std::uint64_t size, bool mapped) noexcept
    {
        if (!mapped) {
            delete[] bytes;
        } else if (size != 0) {
            ::munmap(bytes, size);
        }
    }

    unsigned char* bytes_ = nullptr;
    std::uint64_t size_ = 0;
    std::uint64_t capacity_ = 0;  // bytes of memory from bytes_ on, zero from size_ on
    std::uint64_t tail_ = 0;      // bytes behind them that can only be read
    bool mapped_ = false;         // from the kernel, else from the heap
};

}  // namespace Corvane::File
