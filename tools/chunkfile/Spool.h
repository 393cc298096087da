#pragma once

#include <cstddef>

namespace Corvane::FileTool {

/// Closes its descriptor.
class OwnedFile {
public:
    explicit OwnedFile(int fd = -1) : fd_(fd) {}
    OwnedFile(const OwnedFile&) = delete;
    OwnedFile& operator=(const OwnedFile&) = delete;
    ~OwnedFile() { Own(-1); }

    int Get() const { return fd_; }
    void Own(int fd);

private:
    int fd_;
};

/// Throws std::runtime_error with the reason in errno.
[[noreturn]] void ThrowReason();

/// A file without a name in TMPDIR or /tmp, open for reading and writing. It is gone when it is closed. Throws.
int UnnamedFile();

/// Copies the rest of `from` to the file `to`. Throws.
void Copy(int from, int to);

/// Writes all bytes. Throws.
void WriteAll(int fd, const unsigned char* bytes, std::size_t size);

}  // namespace Corvane::FileTool
