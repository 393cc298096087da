#pragma once

#include <cstdint>
#include <functional>

namespace support {

// A call as its interposer describes it: SystemCall without copied texts, because an unobserved call must not allocate.
struct CallDescription {
    const char* name;
    int fd = -1;
    const char* path = nullptr;
    const char* target = nullptr;
    const char* attribute = nullptr;
    int flags = 0;
    unsigned mode = 0;
    const void* buffer = nullptr;
    std::uint64_t size = 0;
    std::int64_t offset = 0;
};

// Keeps the call if this thread has a SystemCalls object, whose rules may replace make(). Returns what the call returns.
// Pass make by std::cref, which does not allocate.
std::int64_t Observe(const CallDescription& description, const std::function<std::int64_t()>& make);

}  // namespace support
