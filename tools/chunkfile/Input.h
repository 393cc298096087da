#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "Corvane/File/Descriptor.h"

namespace Corvane::FileTool {

struct Range {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;  ///< not included
};

/// A file that is open for reading. `-` is standard input, copied to an unnamed temporary file.
///
/// - **Errors**: The constructor and ReadAt throw std::runtime_error with the reason alone, without the file's name.
class Input {
public:
    /// Refuses what is no regular file, before it is opened: a FIFO would block.
    explicit Input(const std::string& path);

    /// An unnamed file of `size` bytes: zeros, and from `position` on the bytes of this file. It has at most kMostPadding
    /// bytes more than the file.
    Input(const Input& input, std::uint64_t position, std::uint64_t size);
    static constexpr std::uint64_t kMostPadding = std::uint64_t{1} << 30U;

    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    ~Input() = default;

    const std::string& Name() const { return name_; }  ///< for people
    const std::string& Path() const { return path_; }  ///< for classes that open the file themselves
    std::uint64_t Size() const { return static_cast<std::uint64_t>(status_.st_size); }
    std::uint64_t Allocated() const { return static_cast<std::uint64_t>(status_.st_blocks) * 512; }  ///< on the disk

    /// Reads up to `size` bytes, less only at the end of the file. Throws.
    std::size_t ReadAt(std::uint64_t position, unsigned char* bytes, std::size_t size) const;

    /// The first bytes of this range that the system cannot read, in whole pages. Nothing if all can be read.
    std::optional<Range> UnreadableIn(Range range) const;

    /// The first byte from this position on that is not zero, or Size(). Bytes that cannot be read count as not zero.
    std::uint64_t SkipZeros(std::uint64_t position) const;

    /// Why an appender could not open the file for writing; empty if it could. Does not try it.
    std::string WhyNotWritable() const;

    /// Whether the name means another file now, or the file has another length or time of change.
    bool HasChanged() const;

private:
    void BecomeUnnamed();
    void Append(int from);

    std::string name_;
    std::string path_;
    File::Descriptor file_;
    bool spooled_ = false;
    bool foreign_ = false;  // the system refuses O_NOATIME
    struct stat status_ = {};
};

}  // namespace Corvane::FileTool
