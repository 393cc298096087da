#include "support/Allocations.h"

#include <cerrno>
#include <cstdlib>
#include <new>

#include "support/Bookkeeping.h"

namespace support {

namespace {

struct State {
    bool active;
    std::uint64_t count;
    std::uint64_t failed;
    std::uint64_t failAt;
    bool persistently;
    int disturbedErrno;
};

constexpr std::uint64_t kNever = UINT64_MAX;
thread_local State state = {false, 0, 0, kNever, false, 0};

// The system's calloc: programs that link this have one of their own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
extern "C" void* __interceptor_calloc(std::size_t, std::size_t);  // NOLINT(bugprone-reserved-identifier)
constexpr auto kRealCalloc = __interceptor_calloc;
#else
extern "C" void* __libc_calloc(std::size_t, std::size_t);  // NOLINT(bugprone-reserved-identifier)
constexpr auto kRealCalloc = __libc_calloc;
#endif

// Makes an allocation, unless this thread wants it to fail.
template <typename Make>
void* Allocate(const Make& make)
{
    if (state.active && !bookkeeping) {
        const std::uint64_t index = state.count++;
        if (index == state.failAt || (state.persistently && index > state.failAt)) {
            ++state.failed;
            errno = ENOMEM;
            return nullptr;
        }
    }
    void* const memory = make();
    if (state.active && !bookkeeping && state.disturbedErrno != 0) {
        errno = state.disturbedErrno;
    }
    return memory;
}

void* Allocate(std::size_t size)
{
    return Allocate([size] { return std::malloc(size != 0 ? size : 1); });
}

void* AllocateOrThrow(std::size_t size)
{
    void* const memory = Allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

Allocations::Allocations()
{
    state = {true, 0, 0, kNever, false, 0};
}

Allocations::~Allocations()
{
    state = {false, 0, 0, kNever, false, 0};
}

void Allocations::FailAt(std::uint64_t nth, bool persistently)
{
    state.count = 0;
    state.failed = 0;
    state.failAt = nth;
    state.persistently = persistently;
}

void Allocations::DisturbErrno(int error)
{
    state.disturbedErrno = error;
}

std::uint64_t Allocations::Count() const
{
    return state.count;
}

std::uint64_t Allocations::Failed() const
{
    return state.failed;
}

std::uint64_t FailEveryAllocation(const std::function<void()>& function, const std::function<void()>& afterFailure)
{
    std::uint64_t failures = 0;
    for (bool failed = true; failed; failures += failed ? 1 : 0) {
        {
            Allocations allocations;
            allocations.FailAt(failures);
            try {
                function();
            } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): Failed() tells
            }
            failed = allocations.Failed() != 0;
        }
        if (failed) {
            afterFailure();
        }
    }
    return failures;
}

}  // namespace support

// Small images come from calloc.
extern "C" void* calloc(std::size_t count, std::size_t size) noexcept
{
    return support::Allocate([=] { return support::kRealCalloc(count, size); });
}

void* operator new(std::size_t size)
{
    return support::AllocateOrThrow(size);
}

void* operator new[](std::size_t size)
{
    return support::AllocateOrThrow(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return support::Allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return support::Allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}
