#include "faults/Matrix.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "support/Allocations.h"
#include "support/Files.h"

namespace faults {

using support::SystemCall;
using support::SystemCalls;

namespace {

constexpr std::uint64_t kManyBytes = 100'000;

// The errors that a call could give, on local file systems and on others.
const std::map<std::string, std::vector<int>>& Errors()
{
    static const std::vector<int> attributes = {ENODATA, ENOTSUP, ERANGE, E2BIG,  ENOSPC, EDQUOT, EPERM, EACCES,
                                                ENOENT,  EIO,     EINTR,  ENOMEM, EBADF,  EROFS,  ELOOP, ESTALE};
    static const std::map<std::string, std::vector<int>> errors = {
        {"open", {EACCES, EPERM,   ENOENT, EMFILE, ENFILE,  ENOSPC, EDQUOT,    EROFS,        EINTR, ELOOP,
                  EISDIR, ENOTDIR, ENOMEM, EIO,    ETXTBSY, ENXIO,  EOVERFLOW, ENAMETOOLONG, EBUSY, ESTALE}},
        {"read", {EIO, EINTR, EAGAIN, EBADF, EISDIR, EINVAL, ENOMEM, ESTALE, ETIMEDOUT}},
        {"write", {ENOSPC, EIO, EDQUOT, EFBIG, EINTR, EAGAIN, EBADF, EINVAL, EPERM, EPIPE, ENOMEM, ESTALE, EROFS}},
        {"lseek64", {EINVAL, ESPIPE, EBADF, EOVERFLOW, ENXIO}},
        {"close", {EIO, EINTR, ENOSPC, EDQUOT, EBADF}},
        {"fstat", {EIO, ENOMEM, EOVERFLOW, EBADF, ESTALE}},
        {"mmap", {ENOMEM, EAGAIN, EPERM}},
        {"mremap", {ENOMEM, EAGAIN, EFAULT}},
        {"munmap", {ENOMEM, EINVAL}},
        {"mprotect", {ENOMEM, EACCES}},
        {"madvise", {ENOMEM, EINVAL, EAGAIN, EIO}},
        {"fgetxattr", attributes},
        {"getxattr", attributes},
        {"listxattr", attributes},
        {"fsetxattr", attributes},
        {"setxattr", attributes},
        {"removexattr", attributes},
    };
    return errors;
}

// The call fails, and yet, where Linux does so, has its effect: a descriptor is closed whatever close() says. A signal
// may interrupt a call often, but not for ever. Mappings that could not be unmapped come back for later.
SystemCalls::Action FailWith(int error, std::map<void*, std::uint64_t>& unmapLater)
{
    constexpr int kSignals = 5;
    const auto signals = std::make_shared<int>(0);
    return [error, &unmapLater, signals](const SystemCall& call) -> std::optional<std::int64_t> {
        if (error == EINTR && call.name == "read" && ++*signals % kSignals == 0) {
            return std::nullopt;
        }
        if (call.name == "close") {
            ::close(call.fd);
        }
        if (call.name == "munmap") {
            unmapLater[const_cast<void*>(call.buffer)] = call.size;
        }
        errno = error;
        return -1;
    };
}

bool IsLarge(const std::vector<SystemCall>& calls)
{
    return Moved(calls, "write") > kManyBytes;
}

bool IsAttributeQuery(const SystemCall& call)
{
    return call.name == "getxattr" || call.name == "fgetxattr" || call.name == "listxattr";
}

// The kinds of results that are short of `size`.
struct Shortening {
    const char* name;
    std::uint64_t (*shorten)(std::uint64_t size);
};
constexpr std::array kShortenings = {
    Shortening{"nothing", [](std::uint64_t) { return std::uint64_t{0}; }},
    Shortening{"one byte", [](std::uint64_t size) { return std::min<std::uint64_t>(size, 1); }},
    Shortening{"a third", [](std::uint64_t size) { return (size + 2) / 3; }},
    Shortening{"all but one byte", [](std::uint64_t size) { return size - std::min<std::uint64_t>(size, 1); }},
};

// Bytes of memory mapped by others than malloc, which is told to leave mmap alone.
std::uint64_t MappedBytes()
{
    std::uint64_t bytes = 0;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        const auto dash = line.find('-');
        const bool anonymous = line.find('/') == std::string::npos && line.find('[') == std::string::npos;
        bytes += anonymous ? std::stoull(line.substr(dash + 1), nullptr, 16) - std::stoull(line, nullptr, 16) : 0;
    }
    return support::kSanitized ? 0 : bytes;  // sanitizers map what they like
}

// Moves only so many bytes, or makes an attribute call and returns less than the system did.
std::int64_t Shortened(const SystemCall& call, std::uint64_t size)
{
    void* const buffer = const_cast<void*>(call.buffer);
    if (call.name == "read") {
        return ::read(call.fd, buffer, size);
    }
    if (call.name == "write") {
        return ::write(call.fd, buffer, size);
    }
    ssize_t result = 0;
    if (call.name == "getxattr") {
        result = ::getxattr(call.path.c_str(), call.attribute.c_str(), buffer, call.size);
    } else if (call.name == "fgetxattr") {
        result = ::fgetxattr(call.fd, call.attribute.c_str(), buffer, call.size);
    } else {
        result = ::listxattr(call.path.c_str(), static_cast<char*>(buffer), call.size);
    }
    return std::min(result, static_cast<ssize_t>(size));
}

std::string Describe(const SystemCall& call, std::uint64_t nth, const std::string& what)
{
    return call.name + " " + std::to_string(nth) + ": " + what;
}

}  // namespace

Matrix::Matrix(Scenario& scenario) : scenario_(scenario), mapped_(0)
{
    ::mallopt(M_MMAP_THRESHOLD, 1 << 25);  // NOLINT(concurrency-mt-unsafe): one thread
    descriptors_ = support::OpenDescriptors();
    RunUndisturbed();
    mapped_ = MappedBytes();
    calls_ = RunUndisturbed();
}

std::vector<SystemCall> Matrix::RunUndisturbed()
{
    scenario_.Prepare();
    std::vector<SystemCall> calls;
    {
        const SystemCalls system;
        scenario_.Run();
        calls = system.Calls();
    }
    EXPECT_TRUE(scenario_.Succeeded());
    scenario_.Check(calls);
    return calls;
}

void Matrix::CheckAfter(bool persistently, const std::vector<SystemCall>& calls)
{
    ++cases_;
    for (const auto& [address, size] : std::exchange(unmapLater_, {})) {
        ::munmap(address, size);
    }
    scenario_.Check(calls);
    EXPECT_TRUE(persistently || scenario_.Recovered());
    EXPECT_EQ(support::OpenDescriptors(), descriptors_);
    EXPECT_EQ(MappedBytes(), mapped_);
    RunUndisturbed();
}

// Arms something before the scenario's run, and tells after it whether that failed.
bool Matrix::RunCase(const std::string& what, bool persistently, const Arm& arm, const Disarm& disarm)
{
    const testing::ScopedTrace trace(__FILE__, __LINE__, what + (persistently ? ", from then on" : ", once"));
    scenario_.Prepare();
    std::vector<SystemCall> calls;
    bool failed = false;
    {
        SystemCalls system;
        arm(system, persistently);
        scenario_.Run();
        failed = disarm(system);
        calls = system.Calls();
    }
    if (failed) {
        CheckAfter(persistently, calls);
    } else {
        EXPECT_TRUE(scenario_.Succeeded());
    }
    return failed;
}

// The same for a system call, once and persistently.
void Matrix::RunBoth(const std::string& what, const Arm& arm)
{
    for (const bool persistently : {false, true}) {
        if (!testing::Test::HasFailure()) {  // one is enough to look at
            EXPECT_TRUE(RunCase(what, persistently, arm, [](SystemCalls& system) { return system.Fired() != 0; }));
        }
    }
}

void Matrix::FailSystemCalls()
{
    std::map<std::string, std::uint64_t> index;
    for (const SystemCall& call : calls_) {
        const std::uint64_t nth = index[call.name]++;
        const std::vector<int>& errors = Errors().at(call.name);
        const std::size_t number = IsLarge(calls_) ? 2 : errors.size();  // small images show how each error is taken
        for (std::size_t i = 0; i < number; ++i) {
            const int error = errors[i];
            RunBoth(Describe(call, nth, ::strerrorname_np(error)), [&](SystemCalls& system, bool persistently) {
                system.On(call.name, nth, FailWith(error, unmapLater_), persistently);
            });
        }
    }
}

void Matrix::ShortenSystemCalls()
{
    std::map<std::string, std::uint64_t> index;
    for (const SystemCall& call : calls_) {
        const std::uint64_t nth = index[call.name]++;
        const bool transfers = call.name == "read" || call.name == "write";
        if (call.result == 0 || !(transfers || IsAttributeQuery(call))) {
            continue;
        }
        for (const Shortening& kind : kShortenings) {
            const auto action = [&](const SystemCall& made) {
                const std::uint64_t size = transfers ? made.size : static_cast<std::uint64_t>(call.result);
                return Shortened(made, kind.shorten(size));
            };
            if (call.size > kManyBytes && kind.shorten(call.size) == 1) {
                continue;  // as many reads as bytes
            }
            RunBoth(Describe(call, nth, kind.name),
                    [&](SystemCalls& system, bool persistently) { system.On(call.name, nth, action, persistently); });
        }
    }
}

void Matrix::FailEveryUse(const std::string& who, const std::function<void(std::uint64_t, bool)>& fail,
                          const std::function<bool()>& disarm)
{
    bool failed = true;
    for (std::uint64_t k = 0; failed && !testing::Test::HasFailure(); ++k) {
        for (const bool persistently : {false, true}) {
            failed = RunCase(
                who + " " + std::to_string(k), persistently, [&](SystemCalls&, bool) { fail(k, persistently); },
                [&](SystemCalls&) { return disarm(); });
        }
    }
}

void Matrix::FailAllocations()
{
    std::optional<support::Allocations> allocations;
    const auto fail = [&](std::uint64_t k, bool persistently) { allocations.emplace().FailAt(k, persistently); };
    FailEveryUse("allocation", fail, [&] {
        const bool failed = allocations->Failed() != 0;
        allocations.reset();
        return failed;
    });
}

}  // namespace faults
