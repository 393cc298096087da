#pragma once

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <stdexcept>

// Internal to the library.
namespace Corvane::File {

// The bytes of one file in memory: an array that grows, and whose new bytes are zero.
//
// Below 2 MiB the array lies on the heap: recycled pages are several times cheaper than the page faults of a new
// mapping. From 2 MiB on it is a mapping on huge pages. The kernel clears it, one page fault brings 2 MiB, and it grows
// by moving page tables instead of bytes. A std::vector was rejected: it clears the bytes that the chunks overwrite,
// and copies all of them each time it grows.
//
// Memory: below 2 MiB, untouched pages take none. From 2 MiB on, touched bytes take whole huge pages: at most 2 MiB
// more. So an image that has grown can take up to 2 MiB more than a std::vector.
//
// With a tail, 4 GiB of readable zeros follow the array while a file is parsed. ReadFrom gets no length: verifying the
// checksum of a truncated record reads past the image, and the tail makes such reads safe. 4 GiB suffice for every
// 32-bit length. Such an image is a mapping at any size. Copying each record into a buffer of its own would be safe
// too, but would need the length first.
//
// A member that throws leaves the image unchanged.
class FileImage {
public:
    explicit FileImage(bool withTail = false) noexcept : tailWanted_(withTail) {}
    FileImage(const FileImage&) = delete;
    FileImage& operator=(const FileImage&) = delete;
    ~FileImage() { Free(); }

    unsigned char* Data() noexcept { return bytes_; }
    const unsigned char* Data() const noexcept { return bytes_; }
    std::uint64_t Size() const noexcept { return size_; }
    bool Empty() const noexcept { return size_ == 0; }
    bool Holds(std::uint64_t at, std::uint64_t size) const noexcept { return at <= size_ && size <= size_ - at; }

    // Makes [at, at + size) part of the image. Throws std::length_error if no array can be that long, else
    // std::bad_alloc if there is no memory.
    void Cover(std::uint64_t at, std::uint64_t size);

    // The same for [0, size) of an empty image, with a readable tail directly after it: the size is rounded up to whole
    // pages. Returns false if limits on address space or locked memory forbid it; the image is then of no use.
    bool CoverWithTail(std::uint64_t size) noexcept;

    // Drops the bytes from `size` on. The caller has left them zero.
    void Shrink(std::uint64_t size) noexcept { size_ = std::min(size_, size); }

    // Makes the tail readable. Returns false if limits on address space or locked memory forbid it.
    bool OpenTail() noexcept;
    void DropTail() noexcept;

    // Call before the kernel reads the whole image: maps the shared zero page for the untouched bytes from `from` on.
    // Otherwise the copy would fault them in page by page. Optional: before Linux 5.14 it does nothing.
    void PopulateForReading(std::uint64_t from) noexcept;

private:
    static constexpr std::uint64_t kMaxSize = PTRDIFF_MAX;
    static constexpr std::uint64_t kPageSize = 4096;
    static constexpr std::uint64_t kHugePageSize = std::uint64_t{1} << 21U;
    static constexpr std::uint64_t kAdvisedHeap = std::uint64_t{1} << 17U;
    static constexpr std::uint64_t kTailSize = std::uint64_t{1} << 32U;
    static constexpr int kPopulateRead = 22;  // MADV_POPULATE_READ, newer than the oldest headers that we support

    static std::uint64_t RoundUp(std::uint64_t bytes, std::uint64_t step) { return (bytes + step - 1) / step * step; }
    static void AvoidHugePages(unsigned char* bytes, std::uint64_t size) noexcept;
    static unsigned char* Map(std::uint64_t size) noexcept;
    static void Unmap(unsigned char* bytes, std::uint64_t size) noexcept;

    void Reserve(std::uint64_t size);
    void MoveToHeap(std::uint64_t capacity);
    bool MoveToMapping(std::uint64_t capacity, std::uint64_t tail) noexcept;
    bool IsHuge() const noexcept { return mapped_ && capacity_ >= kHugePageSize; }
    void Free() noexcept;

    unsigned char* bytes_ = nullptr;
    std::uint64_t size_ = 0;
    std::uint64_t capacity_ = 0;  // bytes of memory from bytes_ on, zero from size_ on
    std::uint64_t tail_ = 0;      // bytes of address space after them
    bool mapped_ = false;         // memory of the kernel, else of the heap
    bool tailWanted_;
};

inline void FileImage::Cover(std::uint64_t at, std::uint64_t size)
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

inline void FileImage::Reserve(std::uint64_t size)
{
    if (size <= capacity_) {
        return;
    }
    const std::uint64_t capacity = std::max(size, 2 * capacity_);
    // Growth ends on a huge page. Otherwise the last 2 MiB of each step would lie on small pages.
    const bool wholeHugePages = size_ != 0 && capacity >= kHugePageSize;
    const std::uint64_t mapping = RoundUp(capacity, wholeHugePages ? kHugePageSize : kPageSize);
    // Image and tail in one reservation: with a mapping for each, a reopening would need address space for its file
    // twice.
    if (tailWanted_ && MoveToMapping(mapping, kTailSize)) {
        return;
    }
    if (capacity < kHugePageSize) {
        MoveToHeap(capacity);
    } else if (!MoveToMapping(mapping, 0)) {
        throw std::bad_alloc();
    }
}

inline bool FileImage::CoverWithTail(std::uint64_t size) noexcept
{
    if (!MoveToMapping(RoundUp(size, kPageSize), kTailSize)) {
        return false;
    }
    size_ = capacity_;
    return OpenTail();
}

// calloc leaves fresh pages untouched, because it knows that they are zero; new[] would clear them.
inline void FileImage::MoveToHeap(std::uint64_t capacity)
{
    auto* const bytes = static_cast<unsigned char*>(std::calloc(capacity, 1));
    if (bytes == nullptr) {
        throw std::bad_alloc();
    }
    AvoidHugePages(bytes, capacity);
    std::copy(bytes_, bytes_ + size_, bytes);
    Free();
    bytes_ = bytes;
    capacity_ = capacity;
    tail_ = 0;
    mapped_ = false;
}

// Where every program gets huge pages, the kernel would merge touched and untouched heap pages into one. Below 128 KiB
// the call does not pay.
inline void FileImage::AvoidHugePages(unsigned char* bytes, std::uint64_t size) noexcept
{
    if (size >= kAdvisedHeap) {
        const std::uint64_t before = reinterpret_cast<std::uintptr_t>(bytes) % kPageSize;
        ::madvise(bytes - before, before + size, MADV_NOHUGEPAGE);
    }
}

// Returns false if the system refuses; the image is then unchanged.
inline bool FileImage::MoveToMapping(std::uint64_t capacity, std::uint64_t tail) noexcept
{
    unsigned char* const region = Map(capacity + tail);
    if (region == nullptr) {
        return false;
    }
    const bool isHuge = capacity >= kHugePageSize;
    // mprotect comes first, although mremap replaces the pages: if memory is short, it fails before anything has moved.
    // A failed mremap may have unmapped the region already, and another thread may have mapped there since.
    if (::mprotect(region, capacity, PROT_READ | PROT_WRITE) != 0 ||
        (IsHuge() && ::mremap(bytes_, capacity_, capacity, MREMAP_MAYMOVE | MREMAP_FIXED, region) == MAP_FAILED)) {
        Unmap(region, capacity + tail);
        return false;
    }
    // Small images need their own advice: otherwise each could get a huge page, now or when the kernel merges small
    // pages.
    ::madvise(region, capacity, isHuge ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
    if (IsHuge()) {
        Unmap(bytes_ + capacity_, tail_);
    } else {
        std::copy(bytes_, bytes_ + size_, region);
        Free();
    }
    bytes_ = region;
    capacity_ = capacity;
    tail_ = tail;
    mapped_ = true;
    return true;
}

inline bool FileImage::OpenTail() noexcept
{
    if (tail_ == 0 || ::mprotect(bytes_ + capacity_, tail_, PROT_READ) != 0) {
        return false;
    }
    // One fault then maps 2 MiB of the kernel's shared zeros instead of 4 KiB. A record may claim 1 GiB.
    ::madvise(bytes_ + capacity_, tail_, MADV_HUGEPAGE);
    return true;
}

inline void FileImage::DropTail() noexcept
{
    Unmap(bytes_ + capacity_, tail_);
    tail_ = 0;
    tailWanted_ = false;
}

inline void FileImage::PopulateForReading(std::uint64_t from) noexcept
{
    const std::uint64_t at = RoundUp(from, kPageSize);
    if (mapped_ && at < size_) {
        ::madvise(bytes_ + at, size_ - at, kPopulateRead);
    }
}

// Returns address space that begins on a huge page, so that whole huge pages move, or null. It permits no access yet,
// because under mlockall the kernel populates accessible pages immediately.
inline unsigned char* FileImage::Map(std::uint64_t size) noexcept
{
    void* const mapping = ::mmap(nullptr, size + kHugePageSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) {
        return nullptr;
    }
    auto* const bytes = static_cast<unsigned char*>(mapping);
    const std::uint64_t before = -reinterpret_cast<std::uintptr_t>(bytes) % kHugePageSize;
    Unmap(bytes, before);
    Unmap(bytes + before + size, kHugePageSize - before);
    return bytes + before;
}

inline void FileImage::Unmap(unsigned char* bytes, std::uint64_t size) noexcept
{
    if (size != 0) {
        ::munmap(bytes, size);
    }
}

inline void FileImage::Free() noexcept
{
    if (mapped_) {
        Unmap(bytes_, capacity_ + tail_);
    } else {
        std::free(bytes_);  // NOLINT(clang-analyzer-unix.Malloc): it loses track of an image inside std::optional
    }
}

}  // namespace Corvane::File
