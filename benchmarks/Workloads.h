#pragma once

#include <vector>

#include "harness/Options.h"
#include "harness/Workload.h"

namespace bench {

// The workloads in the order of their table. Each kind stands in the source of its name.
std::vector<Workload> WritingWorkloads(const Options& options);
std::vector<Workload> ReopeningWorkloads(const Options& options);
std::vector<Workload> ReadingWorkloads(const Options& options);
std::vector<Workload> TimePointWorkloads(const Options& options);
std::vector<Workload> ScanningWorkloads(const Options& options);
std::vector<Workload> AttributeWorkloads(const Options& options);
std::vector<Workload> SmallFileWorkloads(const Options& options);
std::vector<Workload> RefusalWorkloads(const Options& options);

// Measures time and memory of each chunk of 64 bytes in files of 10^3 to 10^7 chunks. Returns false if a
// goal was missed.
bool MeasureGrowth(const Options& options);

}  // namespace bench
