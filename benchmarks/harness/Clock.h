#pragma once

namespace bench {

// Seconds of the monotonic clock.
double Now();

// Seconds of the clock that measurements use: Now(), or this thread's processor time.
double Stopwatch();
void UseProcessorTime(bool use);

}  // namespace bench
