#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace Corvane::FileTool {

/// A file that is open for reading. `-` is standard input, copied to an unnamed temporary file.
///
/// - **Errors**: The constructor and ReadAt throw std::runtime_error with the reason alone, without the file's name.
class Input {
public:
    /// Refuses what is no regular file, before it is opened: a FIFO would block.
    explicit Input(const std::string& path);
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    ~Input();

    const std::string& Name() const { return name_; }  ///< for people
    const std::string& Path() const { return path_; }  ///< for classes that open the file themselves
    std::uint64_t Size() const;
    std::uint64_t Allocated() const;  ///< bytes on the disk

    /// Reads up to `size` bytes, less only at the end of the file. A failed read sets `bad` to its position, and returns
    /// the number of bytes before it.
    std::size_t ReadAt(std::uint64_t position, unsigned char* bytes, std::size_t size) const;

    /// The next position from this one on that is not in a hole of the file; Size() if there is none.
    std::uint64_t NextData(std::uint64_t position) const;

    /// Whether the name means another file now, or the file has another length or time of change.
    bool HasChanged() const;

private:
    std::string name_;
    std::string path_;
    int fd_ = -1;
    struct stat status_ = {};
};

}  // namespace Corvane::FileTool
