#include "support/SystemCalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <utility>

#include "support/Bookkeeping.h"

namespace support {

namespace {

struct Rule {
    std::string name;
    std::uint64_t nth;
    SystemCalls::Action action;
    bool persistently;
};

struct State {
    std::vector<SystemCall> calls;
    std::vector<Rule> rules;
    std::uint64_t fired = 0;
};

// Null: this thread is not observed. Also while an action or the bookkeeping itself makes calls.
thread_local State* observed = nullptr;

class Unobserved {
public:
    Unobserved() : state_(std::exchange(observed, nullptr)) { bookkeeping = true; }
    Unobserved(const Unobserved&) = delete;
    Unobserved& operator=(const Unobserved&) = delete;
    ~Unobserved()
    {
        observed = state_;
        bookkeeping = false;
    }

    State& Get() const { return *state_; }

private:
    State* state_;
};

std::optional<std::int64_t> ActOn(State& state, const SystemCall& call)
{
    std::vector<SystemCalls::Action> actions;
    for (std::size_t i = 0; i < state.rules.size(); ++i) {
        Rule& rule = state.rules[i];
        if (rule.name != call.name || rule.nth-- != 0) {
            continue;
        }
        actions.push_back(rule.action);
        rule.nth = 0;
        if (!rule.persistently) {
            state.rules.erase(state.rules.begin() + static_cast<std::ptrdiff_t>(i--));
        }
    }
    for (const SystemCalls::Action& action : actions) {
        ++state.fired;
        if (const auto result = action(call)) {
            return result;
        }
    }
    return std::nullopt;
}

// Makes one call, or what a rule wants in its place, and records it as describe() tells.
template <typename Describe, typename Make>
std::int64_t Observe(const Describe& describe, const Make& make)
{
    int error = errno;
    std::int64_t result = 0;
    {
        const Unobserved guard;
        SystemCall call = describe();
        errno = error;
        const std::optional<std::int64_t> chosen = ActOn(guard.Get(), call);
        result = chosen ? *chosen : make();
        error = errno;
        call.result = result;
        guard.Get().calls.push_back(call);
    }
    errno = error;
    return result;
}

template <typename Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

std::string Text(const char* text)
{
    return text != nullptr ? text : "";
}

}  // namespace

SystemCalls::SystemCalls()
{
    observed = new State;
}

SystemCalls::~SystemCalls()
{
    delete std::exchange(observed, nullptr);
}

void SystemCalls::On(const std::string& name, std::uint64_t nth, Action action, bool persistently)
{
    observed->rules.push_back({name, nth, std::move(action), persistently});
}

void SystemCalls::Fail(const std::string& name, int error, std::uint64_t nth, bool persistently)
{
    On(
        name, nth,
        [error](const SystemCall&) {
            errno = error;
            return -1;
        },
        persistently);
}

void SystemCalls::Shorten(const std::string& name, std::uint64_t size, std::uint64_t nth, bool persistently)
{
    On(
        name, nth,
        [size](const SystemCall& call) {
            const std::uint64_t count = std::min(size, call.size);
            return call.name == "write" ? ::write(call.fd, call.buffer, count)
                                        : ::read(call.fd, const_cast<void*>(call.buffer), count);
        },
        persistently);
}

std::vector<SystemCall> SystemCalls::Calls() const
{
    return observed->calls;
}

std::vector<SystemCall> SystemCalls::Calls(const std::string& name) const
{
    std::vector<SystemCall> calls;
    std::copy_if(observed->calls.begin(), observed->calls.end(), std::back_inserter(calls),
                 [&](const SystemCall& call) { return call.name == name; });
    return calls;
}

std::vector<std::string> SystemCalls::Names() const
{
    std::vector<std::string> names;
    names.reserve(observed->calls.size());
    for (const SystemCall& call : observed->calls) {
        names.push_back(call.name);
    }
    return names;
}

std::uint64_t SystemCalls::Fired() const
{
    return observed->fired;
}

void SystemCalls::Clear()
{
    observed->calls.clear();
}

}  // namespace support

// The interposers. Each looks up the function behind it, and calls it straight where nobody observes.
using support::Observe;
using support::observed;
using support::Real;
using support::SystemCall;
using support::Text;

extern "C" {

static int OpenObserved(const char* path, int flags, unsigned mode)
{
    static auto* const real = Real<int(const char*, int, ...)>("open");
    if (observed == nullptr) {
        return real(path, flags, mode);
    }
    const auto call = [&] { return SystemCall{.name = "open", .path = Text(path), .flags = flags, .mode = mode}; };
    return static_cast<int>(Observe(call, [&] { return real(path, flags, mode); }));
}

int open(const char* path, int flags, ...)
{
    unsigned mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, unsigned);
        va_end(arguments);
    }
    return OpenObserved(path, flags, mode);
}

int __open_2(const char* path, int flags)  // NOLINT(bugprone-reserved-identifier): what open is with _FORTIFY_SOURCE
{
    return OpenObserved(path, flags, 0);
}

ssize_t read(int fd, void* buffer, size_t size)
{
    static auto* const real = Real<decltype(::read)>("read");
    if (observed == nullptr) {
        return real(fd, buffer, size);
    }
    return Observe([&] { return SystemCall{.name = "read", .fd = fd, .buffer = buffer, .size = size}; },
                   [&] { return real(fd, buffer, size); });
}

ssize_t write(int fd, const void* buffer, size_t size)
{
    static auto* const real = Real<decltype(::write)>("write");
    if (observed == nullptr) {
        return real(fd, buffer, size);
    }
    return Observe([&] { return SystemCall{.name = "write", .fd = fd, .buffer = buffer, .size = size}; },
                   [&] { return real(fd, buffer, size); });
}

off64_t lseek64(int fd, off64_t offset, int whence) noexcept
{
    static auto* const real = Real<off64_t(int, off64_t, int)>("lseek64");
    if (observed == nullptr) {
        return real(fd, offset, whence);
    }
    return Observe([&] { return SystemCall{.name = "lseek64", .fd = fd, .flags = whence, .offset = offset}; },
                   [&] { return real(fd, offset, whence); });
}

int close(int fd)
{
    static auto* const real = Real<decltype(::close)>("close");
    if (observed == nullptr) {
        return real(fd);
    }
    return static_cast<int>(Observe([&] { return SystemCall{.name = "close", .fd = fd}; }, [&] { return real(fd); }));
}

int fstat(int fd, struct stat* status) noexcept
{
    static auto* const real = Real<int(int, struct stat*)>("fstat");
    if (observed == nullptr) {
        return real(fd, status);
    }
    return static_cast<int>(Observe([&] { return SystemCall{.name = "fstat", .fd = fd, .buffer = status}; },
                                    [&] { return real(fd, status); }));
}

int fsync(int fd)
{
    static auto* const real = Real<decltype(::fsync)>("fsync");
    if (observed == nullptr) {
        return real(fd);
    }
    return static_cast<int>(Observe([&] { return SystemCall{.name = "fsync", .fd = fd}; }, [&] { return real(fd); }));
}

int rename(const char* path, const char* target) noexcept
{
    static auto* const real = Real<int(const char*, const char*)>("rename");
    if (observed == nullptr) {
        return real(path, target);
    }
    const auto call = [&] { return SystemCall{.name = "rename", .path = Text(path), .target = Text(target)}; };
    return static_cast<int>(Observe(call, [&] { return real(path, target); }));
}

int remove(const char* path) noexcept
{
    static auto* const real = Real<int(const char*)>("remove");
    if (observed == nullptr) {
        return real(path);
    }
    return static_cast<int>(
        Observe([&] { return SystemCall{.name = "remove", .path = Text(path)}; }, [&] { return real(path); }));
}

void* mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset) noexcept
{
    static auto* const real = Real<void*(void*, size_t, int, int, int, off_t)>("mmap");
    if (observed == nullptr) {
        return real(address, size, protection, flags, fd, offset);
    }
    return reinterpret_cast<void*>(Observe(  // NOLINT(performance-no-int-to-ptr): as the kernel returns it
        [&] {
            return SystemCall{
                .name = "mmap", .fd = fd, .flags = flags, .mode = static_cast<unsigned>(protection), .size = size};
        },
        [&] { return reinterpret_cast<std::intptr_t>(real(address, size, protection, flags, fd, offset)); }));
}

void* mremap(void* address, size_t oldSize, size_t size, int flags, ...) noexcept
{
    static auto* const real = Real<void*(void*, size_t, size_t, int, ...)>("mremap");
    va_list arguments;
    va_start(arguments, flags);
    void* const target = (flags & MREMAP_FIXED) != 0 ? va_arg(arguments, void*) : nullptr;
    va_end(arguments);
    if (observed == nullptr) {
        return real(address, oldSize, size, flags, target);
    }
    void* mapping = MAP_FAILED;
    Observe([&] { return SystemCall{.name = "mremap", .flags = flags, .buffer = address, .size = size}; },
            [&] {
                mapping = real(address, oldSize, size, flags, target);
                return mapping == MAP_FAILED ? -1 : 0;
            });
    return mapping;
}

int munmap(void* address, size_t size) noexcept
{
    static auto* const real = Real<int(void*, size_t)>("munmap");
    if (observed == nullptr) {
        return real(address, size);
    }
    return static_cast<int>(Observe([&] { return SystemCall{.name = "munmap", .buffer = address, .size = size}; },
                                    [&] { return real(address, size); }));
}

int mprotect(void* address, size_t size, int protection) noexcept
{
    static auto* const real = Real<int(void*, size_t, int)>("mprotect");
    if (observed == nullptr) {
        return real(address, size, protection);
    }
    const auto call = [&] {
        return SystemCall{
            .name = "mprotect", .mode = static_cast<unsigned>(protection), .buffer = address, .size = size};
    };
    return static_cast<int>(Observe(call, [&] { return real(address, size, protection); }));
}

int madvise(void* address, size_t size, int advice) noexcept
{
    static auto* const real = Real<int(void*, size_t, int)>("madvise");
    if (observed == nullptr) {
        return real(address, size, advice);
    }
    return static_cast<int>(
        Observe([&] { return SystemCall{.name = "madvise", .flags = advice, .buffer = address, .size = size}; },
                [&] { return real(address, size, advice); }));
}

ssize_t fgetxattr(int fd, const char* name, void* value, size_t size) noexcept
{
    static auto* const real = Real<ssize_t(int, const char*, void*, size_t)>("fgetxattr");
    if (observed == nullptr) {
        return real(fd, name, value, size);
    }
    return Observe(
        [&] {
            return SystemCall{.name = "fgetxattr", .fd = fd, .attribute = Text(name), .buffer = value, .size = size};
        },
        [&] { return real(fd, name, value, size); });
}

ssize_t getxattr(const char* path, const char* name, void* value, size_t size) noexcept
{
    static auto* const real = Real<ssize_t(const char*, const char*, void*, size_t)>("getxattr");
    if (observed == nullptr) {
        return real(path, name, value, size);
    }
    return Observe(
        [&] {
            return SystemCall{
                .name = "getxattr", .path = Text(path), .attribute = Text(name), .buffer = value, .size = size};
        },
        [&] { return real(path, name, value, size); });
}

ssize_t listxattr(const char* path, char* list, size_t size) noexcept
{
    static auto* const real = Real<ssize_t(const char*, char*, size_t)>("listxattr");
    if (observed == nullptr) {
        return real(path, list, size);
    }
    return Observe([&] { return SystemCall{.name = "listxattr", .path = Text(path), .buffer = list, .size = size}; },
                   [&] { return real(path, list, size); });
}

int fsetxattr(int fd, const char* name, const void* value, size_t size, int flags) noexcept
{
    static auto* const real = Real<int(int, const char*, const void*, size_t, int)>("fsetxattr");
    if (observed == nullptr) {
        return real(fd, name, value, size, flags);
    }
    const auto call = [&] {
        return SystemCall{
            .name = "fsetxattr", .fd = fd, .attribute = Text(name), .flags = flags, .buffer = value, .size = size};
    };
    return static_cast<int>(Observe(call, [&] { return real(fd, name, value, size, flags); }));
}

int setxattr(const char* path, const char* name, const void* value, size_t size, int flags) noexcept
{
    static auto* const real = Real<int(const char*, const char*, const void*, size_t, int)>("setxattr");
    if (observed == nullptr) {
        return real(path, name, value, size, flags);
    }
    const auto call = [&] {
        return SystemCall{.name = "setxattr",
                          .path = Text(path),
                          .attribute = Text(name),
                          .flags = flags,
                          .buffer = value,
                          .size = size};
    };
    return static_cast<int>(Observe(call, [&] { return real(path, name, value, size, flags); }));
}

int removexattr(const char* path, const char* name) noexcept
{
    static auto* const real = Real<int(const char*, const char*)>("removexattr");
    if (observed == nullptr) {
        return real(path, name);
    }
    return static_cast<int>(
        Observe([&] { return SystemCall{.name = "removexattr", .path = Text(path), .attribute = Text(name)}; },
                [&] { return real(path, name); }));
}

}  // extern "C"
