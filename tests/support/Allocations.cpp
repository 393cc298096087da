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

void* Allocate(std::size_t size)
{
    if (state.active && !bookkeeping) {
        const std::uint64_t index = state.count++;
        if (index == state.failAt || (state.persistently && index > state.failAt)) {
            ++state.failed;
            errno = ENOMEM;
            return nullptr;
        }
    }
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (state.active && !bookkeeping && state.disturbedErrno != 0) {
        errno = state.disturbedErrno;
    }
    return memory;
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
