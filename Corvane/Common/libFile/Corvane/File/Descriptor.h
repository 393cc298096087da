#pragma once

#include <unistd.h>

#include <utility>

// Internal to the library.
namespace Corvane::File {

// Closes a descriptor when it goes out of scope, unless Release() has handed it on.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { Reset(-1); }

    int Get() const noexcept { return fd_; }
    int Release() noexcept { return std::exchange(fd_, -1); }

    // Closes the descriptor and takes over another one, or none (-1).
    void Reset(int fd) noexcept
    {
        const int old = std::exchange(fd_, fd);
        if (old != -1) {
            ::close(old);  // never retried: Linux has given the number back even when close reports an error
        }
    }

private:
    int fd_;
};

}  // namespace Corvane::File
