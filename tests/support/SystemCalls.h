#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/Texts.h"

namespace support {

// One system call. A member that the call lacks is 0 or empty, a descriptor -1.
struct SystemCall {
    // "open", "read", "pread", "write", "lseek64", "close", "fstat", "fsync", "openat", "getrandom", "fchmod", "fchown",
    // "ftruncate", "renameat", "unlinkat", "mmap", "mremap", "munmap", "mprotect", "madvise", and the calls for extended
    // attributes
    std::string name;
    int fd = -1;
    // NOLINTBEGIN(readability-redundant-member-init): without a value here, g++ wants one wherever a call is made up
    std::string path = {};
    std::string target = {};  // the new name of a rename
    std::string attribute = {};
    // NOLINTEND(readability-redundant-member-init)
    int flags = 0;
    unsigned mode = 0;
    const void* buffer = nullptr;
    std::uint64_t size = 0;   // of fchown the owner
    std::int64_t offset = 0;  // of fchown the group
    std::int64_t result = 0;  // as returned; of mmap and mremap the address, or -1
    int error = 0;            // errno after a result of -1
};

// While it lives, it keeps this thread's system calls and replaces chosen ones. Each thread has one at most. Link
// test_system_calls.
class SystemCalls {
public:
    // Replaces a call. Returns the result, with errno set for -1, or nothing: then the call is made after all.
    using Action = std::function<std::optional<std::int64_t>(const SystemCall&)>;

    SystemCalls();
    SystemCalls(const SystemCalls&) = delete;
    SystemCalls& operator=(const SystemCalls&) = delete;
    ~SystemCalls();

    // For the nth call of that name from now on, counted from 0; if `persistently`, for all later ones too. If several
    // rules meet one call, the oldest wins.
    void On(const std::string& name, std::uint64_t nth, Action action, bool persistently = false);

    // Fails the call with this error.
    void Fail(const std::string& name, int error, std::uint64_t nth = 0);

    // Lets a read or write move at most `size` bytes.
    void Shorten(const std::string& name, std::uint64_t size, std::uint64_t nth = 0);

    // The same for each call of that name from now on.
    void OnEach(const std::string& name, Action action);
    void FailEach(const std::string& name, int error);
    void ShortenEach(const std::string& name, std::uint64_t size);

    // The calls so far; with a name, only these.
    std::vector<SystemCall> Calls() const;
    std::vector<SystemCall> Calls(const std::string& name) const;

    Lines Names() const;

    // How often an action was called.
    std::uint64_t Fired() const;

    void Clear();
};

}  // namespace support
