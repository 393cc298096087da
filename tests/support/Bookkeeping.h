#pragma once

namespace support {

// True while SystemCalls does its own work on this thread. Its allocations are not the library's.
inline thread_local bool bookkeeping = false;

}  // namespace support
