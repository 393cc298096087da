// The library calls these functions instead of the C library's, because the test program exports them.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <type_traits>

#include "support/Observe.h"

namespace {

// Makes the call through the function that this one hides.
template <auto* Interposer, typename... Arguments>
auto Interpose(const support::CallDescription& call, Arguments... arguments)
{
    static auto* const real = reinterpret_cast<decltype(Interposer)>(::dlsym(RTLD_NEXT, call.name));
    using Result = decltype(real(arguments...));
    if constexpr (std::is_pointer_v<Result>) {
        const auto make = [&] { return reinterpret_cast<std::intptr_t>(real(arguments...)); };
        return reinterpret_cast<Result>(  // NOLINT(performance-no-int-to-ptr): as the kernel returns it
            support::Observe(call, std::cref(make)));
    } else {
        const auto make = [&] { return std::int64_t{real(arguments...)}; };
        return static_cast<Result>(support::Observe(call, std::cref(make)));
    }
}

int Open(const char* path, int flags, unsigned mode)
{
    return Interpose<&::open>({.name = "open", .path = path, .flags = flags, .mode = mode}, path, flags, mode);
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...)
{
    unsigned mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, unsigned);
        va_end(arguments);
    }
    return Open(path, flags, mode);
}

int __open_2(const char* path, int flags)  // NOLINT(bugprone-reserved-identifier): what open is with _FORTIFY_SOURCE
{
    return Open(path, flags, 0);
}

ssize_t read(int fd, void* buffer, size_t size)
{
    return Interpose<&::read>({.name = "read", .fd = fd, .buffer = buffer, .size = size}, fd, buffer, size);
}

ssize_t pread(int fd, void* buffer, size_t size, off_t offset)
{
    return Interpose<&::pread>({.name = "pread", .fd = fd, .buffer = buffer, .size = size, .offset = offset}, fd,
                               buffer, size, offset);
}

ssize_t write(int fd, const void* buffer, size_t size)
{
    return Interpose<&::write>({.name = "write", .fd = fd, .buffer = buffer, .size = size}, fd, buffer, size);
}

off64_t lseek64(int fd, off64_t offset, int whence) noexcept
{
    return Interpose<&::lseek64>({.name = "lseek64", .fd = fd, .flags = whence, .offset = offset}, fd, offset, whence);
}

int close(int fd)
{
    return Interpose<&::close>({.name = "close", .fd = fd}, fd);
}

int fstat(int fd, struct stat* status) noexcept
{
    return Interpose<&::fstat>({.name = "fstat", .fd = fd, .buffer = status}, fd, status);
}

int fsync(int fd)
{
    return Interpose<&::fsync>({.name = "fsync", .fd = fd}, fd);
}

int openat(int folder, const char* path, int flags, ...)
{
    unsigned mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, unsigned);
        va_end(arguments);
    }
    return Interpose<&::openat>({.name = "openat", .fd = folder, .path = path, .flags = flags, .mode = mode}, folder,
                                path, flags, mode);
}

ssize_t getrandom(void* buffer, size_t size, unsigned flags)
{
    return Interpose<&::getrandom>(
        {.name = "getrandom", .flags = static_cast<int>(flags), .buffer = buffer, .size = size}, buffer, size, flags);
}

int fchmod(int fd, mode_t mode) noexcept
{
    return Interpose<&::fchmod>({.name = "fchmod", .fd = fd, .mode = mode}, fd, mode);
}

int fchown(int fd, uid_t owner, gid_t group) noexcept
{
    return Interpose<&::fchown>({.name = "fchown", .fd = fd, .size = owner, .offset = group}, fd, owner, group);
}

int ftruncate(int fd, off_t size) noexcept
{
    return Interpose<&::ftruncate>({.name = "ftruncate", .fd = fd, .size = static_cast<std::uint64_t>(size)}, fd, size);
}

int renameat(int folder, const char* path, int targetFolder, const char* target) noexcept
{
    return Interpose<&::renameat>({.name = "renameat", .fd = folder, .path = path, .target = target}, folder, path,
                                  targetFolder, target);
}

int unlinkat(int folder, const char* path, int flags) noexcept
{
    return Interpose<&::unlinkat>({.name = "unlinkat", .fd = folder, .path = path, .flags = flags}, folder, path,
                                  flags);
}

void* mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset) noexcept
{
    const auto mode = static_cast<unsigned>(protection);
    return Interpose<&::mmap>({.name = "mmap", .fd = fd, .flags = flags, .mode = mode, .size = size}, address, size,
                              protection, flags, fd, offset);
}

void* mremap(void* address, size_t oldSize, size_t size, int flags, ...) noexcept
{
    va_list arguments;
    va_start(arguments, flags);
    void* const target = (flags & MREMAP_FIXED) != 0 ? va_arg(arguments, void*) : nullptr;
    va_end(arguments);
    return Interpose<&::mremap>({.name = "mremap", .flags = flags, .buffer = address, .size = size}, address, oldSize,
                                size, flags, target);
}

int munmap(void* address, size_t size) noexcept
{
    return Interpose<&::munmap>({.name = "munmap", .buffer = address, .size = size}, address, size);
}

int mprotect(void* address, size_t size, int protection) noexcept
{
    const auto mode = static_cast<unsigned>(protection);
    return Interpose<&::mprotect>({.name = "mprotect", .mode = mode, .buffer = address, .size = size}, address, size,
                                  protection);
}

int madvise(void* address, size_t size, int advice) noexcept
{
    return Interpose<&::madvise>({.name = "madvise", .flags = advice, .buffer = address, .size = size}, address, size,
                                 advice);
}

ssize_t fgetxattr(int fd, const char* name, void* value, size_t size) noexcept
{
    return Interpose<&::fgetxattr>({.name = "fgetxattr", .fd = fd, .attribute = name, .buffer = value, .size = size},
                                   fd, name, value, size);
}

ssize_t getxattr(const char* path, const char* name, void* value, size_t size) noexcept
{
    return Interpose<&::getxattr>({.name = "getxattr", .path = path, .attribute = name, .buffer = value, .size = size},
                                  path, name, value, size);
}

ssize_t listxattr(const char* path, char* list, size_t size) noexcept
{
    return Interpose<&::listxattr>({.name = "listxattr", .path = path, .buffer = list, .size = size}, path, list, size);
}

int fsetxattr(int fd, const char* name, const void* value, size_t size, int flags) noexcept
{
    return Interpose<&::fsetxattr>(
        {.name = "fsetxattr", .fd = fd, .attribute = name, .flags = flags, .buffer = value, .size = size}, fd, name,
        value, size, flags);
}

int setxattr(const char* path, const char* name, const void* value, size_t size, int flags) noexcept
{
    return Interpose<&::setxattr>(
        {.name = "setxattr", .path = path, .attribute = name, .flags = flags, .buffer = value, .size = size}, path,
        name, value, size, flags);
}

int fremovexattr(int fd, const char* name) noexcept
{
    return Interpose<&::fremovexattr>({.name = "fremovexattr", .fd = fd, .attribute = name}, fd, name);
}

int removexattr(const char* path, const char* name) noexcept
{
    return Interpose<&::removexattr>({.name = "removexattr", .path = path, .attribute = name}, path, name);
}

}  // extern "C"
