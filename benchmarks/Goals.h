#pragma once

#include "harness/Workload.h"

// What our time may be at most, on any machine. Where the limit is the same work, a goal is a multiple of the limit.
// Where copying dominates, a limit in touched memory says more about the machine than about the library. There the goal
// is a share of the straightforward appender's time.
namespace bench::goals {

inline constexpr Goal kWriteSmallest = {"limit", 2.3, "a time point is compared and kept: twice the copy of 64 bytes"};
inline constexpr Goal kWriteSmall = {"limit", 1.3, "a time point costs a tenth of the copy, fresh memory two tenths"};
inline constexpr Goal kWriteBounded = {"straightforward", 0.75,
                                       "one pass less over the bytes, and no page faults on small pages"};
inline constexpr Goal kWriteUnbounded = {"straightforward", 0.5, "besides, growth moves pages instead of bytes"};
inline constexpr Goal kWriteSparse = {"limit", 1.2, "the same `write`; untouched pages are one page of zeros"};
inline constexpr Goal kWriteRandom = {"straightforward", 0.8, "late time points share nodes: fewer cache misses"};
inline constexpr Goal kReopenSmallest = {"limit", 1.4, "the same parsing; a time point is compared and kept"};
inline constexpr Goal kReopen = {"limit", 1.15, "the same read, parsing and `write`"};
inline constexpr Goal kTimePoints = {"limit", 1.3, "the same nodes of a set, each inserted at the end"};
inline constexpr Goal kRead = {"limit", 1.1, "the same calls; a tenth for the chunk's checks"};
inline constexpr Goal kScanSmallest = {"limit", 1.25, "the same parsing; counters and checks for each record"};
inline constexpr Goal kScan = {"limit", 1.15, "the same parsing; a smaller window, so a few more calls"};
inline constexpr Goal kScanLarge = {"reader", 1.05, "the same calls: such a record comes through the descriptor"};
inline constexpr Goal kScanAtRandom = {"reader", 0.7, "one call instead of three"};
inline constexpr Goal kScanMixed = {"reader", 0.75, "one call instead of three, but sometimes a longer one"};
inline constexpr Goal kScanOne = {"reader", 1.2, "the same calls, and the scanner's own memory"};
inline constexpr Goal kFind = {"limit", 5, "the same parsing, but a chunk in memory and no longer in registers"};
inline constexpr Goal kAttribute = {"limit", 1.1, "the same calls; a tenth for the flag and the arguments"};
inline constexpr Goal kFailedAttribute = {"limit", 1.1,
                                          "the same call and copy of the system's text; a tenth for one lookup"};
inline constexpr Goal kSmallFiles = {"limit", 1.15, "the same calls: creating the files dominates"};
inline constexpr Goal kRefusal = {"straightforward", 2.5, "the same comparisons, but a call into a shared library"};

}  // namespace bench::goals
