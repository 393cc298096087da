// Measures each workload beside its limit: see docs/performance.md.
#include <algorithm>
#include <iostream>
#include <set>
#include <stdexcept>

#include "Workloads.h"
#include "harness/Measure.h"
#include "harness/Program.h"

namespace {

using bench::Options;
using bench::Workload;

bool Wanted(const Options& options, const std::string& id)
{
    return options.only.empty() || std::find(options.only.begin(), options.only.end(), id) != options.only.end();
}

void RefuseUnknown(const std::vector<std::string>& ids)
{
    static const std::set<std::string> known = {"W1", "W2", "W3", "W4",  "W5",  "W6",
                                                "W7", "W8", "W9", "W10", "W11", "growth"};
    for (const std::string& id : ids) {
        if (!known.contains(id)) {
            throw std::invalid_argument("no workload " + id);
        }
    }
}

// Returns false if a goal was missed.
bool MeasureAll(const Options& options)
{
    bool good = true;
    for (const auto& make :
         {bench::WritingWorkloads, bench::ReopeningWorkloads, bench::ReadingWorkloads, bench::AttributeWorkloads,
          bench::SmallFileWorkloads, bench::RefusalWorkloads, bench::ScanningWorkloads, bench::TimePointWorkloads}) {
        for (const Workload& workload : make(options)) {
            if (Wanted(options, workload.id)) {
                good = bench::Measure(workload, options) && good;
            }
        }
    }
    if (Wanted(options, "growth")) {
        good = bench::MeasureGrowth(options) && good;
    }
    return good;
}

}  // namespace

int main(int count, char** arguments)
{
    return bench::Main({arguments + 1, arguments + count}, [](const Options& options) {
        RefuseUnknown(options.only);
        std::cout << (MeasureAll(options) ? "\nNo goal was missed.\n" : "\nSome goals were missed.\n");
    });
}
