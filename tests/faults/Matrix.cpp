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
        {"pread", {EIO, EINTR, EAGAIN, EBADF, EISDIR, EINVAL, ENOMEM, ESTALE, ETIMEDOUT}},
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

// The call fails. As on Linux, close() closes the descriptor anyway. A signal interrupts reads at most four times
// in a row. A mapping that munmap() refused goes into unmapLater.
SystemCalls::Action FailWith(int error, std::map<void*, std::uint64_t>& unmapLater)
{
    constexpr int kSignals = 5;
    const auto signals = std::make_shared<int>(0);
    return [error, &unmapLater, signals](const SystemCall& call) -> std::optional<std::int64_t> {
        const bool reads = call.name == "read" || call.name == "pread";
        if (error == EINTR && reads && ++*signals % kSignals == 0) {
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

bool IsWrite(const SystemCall& call)
{
    return call.name == "write";
}

// Whether the library reports the call's failure with a text and never repeats the call.
bool IsReported(const SystemCall& call)
{
    return call.name == "open" || call.name == "fstat" || IsWrite(call) || call.name.find("xattr") != std::string::npos;
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

// Bytes of memory mapped by others than malloc, which mallopt keeps from using mmap.
std::uint64_t MappedBytes()
{
    std::uint64_t bytes = 0;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        const auto dash = line.find('-');
        const bool anonymous = line.find('/') == std::string::npos && line.find('[') == std::string::npos;
        bytes += anonymous ? std::stoull(line.substr(dash + 1), nullptr, 16) - std::stoull(line, nullptr, 16) : 0;
    }
    return support::kSanitized ? 0 : bytes;  // sanitizers map memory of their own
}

// Moves `size` bytes at most, or makes an attribute call and returns at most `size`.
std::int64_t Shortened(const SystemCall& call, std::uint64_t size)
{
    void* const buffer = const_cast<void*>(call.buffer);
    if (call.name == "read") {
        return ::read(call.fd, buffer, size);
    }
    if (call.name == "pread") {
        return ::pread(call.fd, buffer, size, call.offset);
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

Traces Matrix::Run(const std::function<void(SystemCalls&)>& before, const std::function<void(SystemCalls&)>& after)
{
    scenario_.Prepare();
    scenario_.thrown.clear();
    TakeLogLines();
    Traces traces;
    SystemCalls system;
    before(system);
    scenario_.Run();
    after(system);
    traces.calls = system.Calls();
    traces.lines = TakeLogLines();
    return traces;
}

std::vector<SystemCall> Matrix::RunUndisturbed()
{
    const Traces traces = Run([](SystemCalls&) {}, [](SystemCalls&) {});
    EXPECT_TRUE(scenario_.Succeeded());
    scenario_.Check(traces);
    return traces.calls;
}

// Neither std::bad_alloc nor a collaborator's exception is swallowed; a single fault throws once.
void Matrix::CheckThrown(const Fault& fault) const
{
    const std::string expected = fault.allocation ? "std::bad_alloc" : "CollaboratorFault";
    const auto number = std::count(scenario_.thrown.begin(), scenario_.thrown.end(), expected);
    EXPECT_GE(number, 1);
    EXPECT_TRUE(fault.persistently || number == 1) << number;
    EXPECT_EQ(static_cast<std::size_t>(number), scenario_.thrown.size()) << testing::PrintToString(scenario_.thrown);
}

void Matrix::CheckAfter(const Traces& traces)
{
    ++cases_;
    for (const auto& [address, size] : std::exchange(unmapLater_, {})) {
        ::munmap(address, size);
    }
    scenario_.Check(traces);
    if (traces.fault.allocation || traces.fault.collaborator) {
        CheckThrown(traces.fault);
    }
    EXPECT_TRUE(traces.fault.persistently || scenario_.Recovered());
    EXPECT_EQ(support::OpenDescriptors(), descriptors_);
    EXPECT_EQ(MappedBytes(), mapped_);
    RunUndisturbed();
}

// Arms a fault, runs the scenario and returns whether the fault struck.
bool Matrix::RunCase(const std::string& what, const Fault& fault, const Arm& arm, const Disarm& disarm)
{
    const testing::ScopedTrace trace(__FILE__, __LINE__, what + (fault.persistently ? ", from then on" : ", once"));
    bool struck = false;
    Traces traces = Run([&](SystemCalls& system) { arm(system, fault.persistently); },
                        [&](SystemCalls& system) { struck = disarm(system); });
    if (struck) {
        traces.fault = fault;
        CheckAfter(traces);
    } else {
        scenario_.Check(traces);
    }
    return struck;
}

// The same for a system call, once and from then on.
void Matrix::RunBoth(const std::string& what, const Arm& arm)
{
    for (const bool persistently : {false, true}) {
        if (!testing::Test::HasFailure()) {  // the first failure is enough
            EXPECT_TRUE(RunCase(what, {.persistently = persistently}, arm,
                                [](SystemCalls& system) { return system.Fired() != 0; }));
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
        const bool transfers = call.name == "read" || call.name == "pread" || call.name == "write";
        if (call.result == 0 || !(transfers || IsAttributeQuery(call))) {
            continue;
        }
        for (const Shortening& kind : kShortenings) {
            const auto action = [&](const SystemCall& made) {
                const std::uint64_t size = transfers ? made.size : static_cast<std::uint64_t>(call.result);
                return Shortened(made, kind.shorten(size));
            };
            if (call.size > kManyBytes && kind.shorten(call.size) == 1) {
                continue;  // would take one read for each byte
            }
            RunBoth(Describe(call, nth, kind.name),
                    [&](SystemCalls& system, bool persistently) { system.On(call.name, nth, action, persistently); });
        }
    }
}

void Matrix::FailCollaborator(const std::string& who, const std::function<void(std::uint64_t, bool)>& fail,
                              const std::function<bool()>& disarm)
{
    bool failed = true;
    for (std::uint64_t k = 0; failed && !testing::Test::HasFailure(); ++k) {
        for (const bool persistently : {false, true}) {
            failed = RunCase(
                who + " " + std::to_string(k), {.collaborator = true, .persistently = persistently},
                [&](SystemCalls&, bool) { fail(k, persistently); }, [&](SystemCalls&) { return disarm(); });
        }
    }
}

void Matrix::FailAllocationsWith(const std::string& what, const std::function<void(SystemCalls&)>& armAnother)
{
    std::optional<support::Allocations> allocations;
    bool failed = true;
    for (std::uint64_t k = 0; failed && !testing::Test::HasFailure(); ++k) {
        for (const bool persistently : {false, true}) {
            const auto arm = [&](SystemCalls& system, bool) {
                armAnother(system);
                allocations.emplace().FailAt(k, persistently);
            };
            const auto disarm = [&](SystemCalls&) {
                failed = allocations->Failed() != 0;
                allocations.reset();
                return failed;
            };
            RunCase(what + std::to_string(k), {.allocation = true, .persistently = persistently}, arm, disarm);
        }
    }
}

void Matrix::FailAllocations()
{
    FailAllocationsWith("allocation ", [](SystemCalls&) {});
}

void Matrix::FailAllocationsAndCalls()
{
    const auto writes = std::count_if(calls_.begin(), calls_.end(), IsWrite);
    std::map<std::string, std::uint64_t> index;
    for (const SystemCall& call : calls_) {
        const std::uint64_t nth = index[call.name]++;
        const bool last = IsWrite(call) && nth + 1 == static_cast<std::uint64_t>(writes);
        if (!IsReported(call) || last) {
            continue;
        }
        const int error = Errors().at(call.name)[0];
        FailAllocationsWith(Describe(call, nth, ::strerrorname_np(error)) + " and allocation ",
                            [&](SystemCalls& system) { system.On(call.name, nth, FailWith(error, unmapLater_)); });
    }
}

}  // namespace faults
