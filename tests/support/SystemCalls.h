#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace support {

// One system call as it was made. What a call does not have is 0 or empty; -1 for no descriptor.
struct SystemCall {
    std::string name;  // "open", "read", "write", "lseek64", "close", "fstat", "fsync", "rename", "remove",
                       // "mmap", "mremap", "munmap", "mprotect", "madvise", and the six for extended attributes
    int fd = -1;
    // NOLINTBEGIN(readability-redundant-member-init): without a value here, g++ wants one wherever a call is made up
    std::string path = {};
    std::string target = {};  // what a rename leads to
    std::string attribute = {};
    // NOLINTEND(readability-redundant-member-init)
    int flags = 0;
    unsigned mode = 0;
    const void* buffer = nullptr;
    std::uint64_t size = 0;
    std::int64_t offset = 0;
    std::int64_t result = 0;  // as returned; of mmap and mremap the address, or -1
    int error = 0;            // errno after a result of -1
};

// While it lives, the system calls that this thread makes are recorded, and chosen ones do something else.
// Link test_system_calls. One at a time for each thread.
class SystemCalls {
public:
    // Called in place of a call: the result to return (with errno set, for -1), or nothing to make the call after all.
    using Action = std::function<std::optional<std::int64_t>(const SystemCall&)>;

    SystemCalls();
    SystemCalls(const SystemCalls&) = delete;
    SystemCalls& operator=(const SystemCalls&) = delete;
    ~SystemCalls();

    // The n-th call of that name from now on, counted from 0; all later ones too if `persistently`. Of several rules
    // for one call, the one made first wins.
    void On(const std::string& name, std::uint64_t nth, Action action, bool persistently = false);

    // The same for a call that fails with this error, or, for reads and writes, moves only so many bytes.
    void Fail(const std::string& name, int error, std::uint64_t nth = 0, bool persistently = false);
    void Shorten(const std::string& name, std::uint64_t size, std::uint64_t nth = 0, bool persistently = false);

    // All calls so far, or those of one name.
    std::vector<SystemCall> Calls() const;
    std::vector<SystemCall> Calls(const std::string& name) const;

    // Their names, in order.
    std::vector<std::string> Names() const;

    // How many calls an action was asked about.
    std::uint64_t Fired() const;

    void Clear();
};

}  // namespace support
