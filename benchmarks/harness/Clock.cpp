#include "harness/Clock.h"

#include <chrono>
#include <ctime>

namespace bench {

namespace {

bool processorTime = false;

}  // namespace

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double Stopwatch()
{
    if (!processorTime) {
        return Now();
    }
    timespec time = {};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void UseProcessorTime(bool use)
{
    processorTime = use;
}

}  // namespace bench
