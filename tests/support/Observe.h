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

// If a SystemCalls object lives in this thread, it keeps the call, and a rule of it may replace make(). Else just
// returns make(). Pass make() by std::cref, which does not allocate.
std::int64_t Observe(const CallDescription& description, const std::function<std::int64_t()>& make);

}  // namespace support
