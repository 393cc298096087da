#pragma once

#include <unistd.h>

// Internal to the library.
namespace Corvane::File {

// Closes a descriptor when it goes out of scope, unless Release() has handed it on.
class Descriptor {
public:
    explicit Descriptor(int fd) noexcept : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (fd_ != -1) {
            ::close(fd_);  // never retried: Linux has given the number back even when close reports an error
        }
    }

    int Get() const noexcept { return fd_; }
    int Release() noexcept
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

}  // namespace Corvane::File
