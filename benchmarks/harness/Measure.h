#pragma once

#include "harness/Options.h"
#include "harness/Workload.h"

namespace bench {

// Prints the head of the table that Measure fills.
void PrintHead(const Options& options);

// Measures all contenders; prints and saves one line each. Returns false if the goal was missed.
bool Measure(const Workload& workload, const Options& options);

}  // namespace bench
