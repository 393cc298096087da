#pragma once

namespace support {

// While an observer of system calls does its own work on this thread: what it allocates is not the library's.
inline thread_local bool bookkeeping = false;

}  // namespace support
