#pragma once

namespace bench {

// Seconds of the monotonic clock.
double Now();

// Seconds of the clock that measurements use: Now(), or this thread's processor time after MeasureProcessorTime().
double Stopwatch();
void MeasureProcessorTime();
bool MeasuresProcessorTime();

}  // namespace bench
