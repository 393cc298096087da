// Measures each workload against its limit, side by side: see docs/performance.md.
#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "Workloads.h"

namespace {

using bench::Options;
using bench::Workload;

bool Wanted(const Options& options, const std::string& id)
{
    return options.only.empty() || std::find(options.only.begin(), options.only.end(), id) != options.only.end();
}

void DemandKnown(const std::vector<std::string>& ids)
{
    for (const std::string& id : ids) {
        if (id != "growth" && (id.size() != 2 || id[0] != 'W' || id[1] < '1' || id[1] > '9')) {
            throw std::invalid_argument("no workload " + id);
        }
    }
}

// Whether all goals held.
bool MeasureAll(const Options& options)
{
    bool holds = true;
    for (const auto& make : {bench::WritingWorkloads, bench::ReopeningWorkloads, bench::ReadingWorkloads,
                             bench::AttributeWorkloads, bench::SmallFileWorkloads, bench::RefusalWorkloads}) {
        for (const Workload& workload : make(options)) {
            if (Wanted(options, workload.id)) {
                holds = bench::Measure(workload, options) && holds;
            }
        }
    }
    if (Wanted(options, "growth")) {
        holds = bench::MeasureGrowth(options) && holds;
    }
    return holds;
}

}  // namespace

int main(int count, char** arguments)
{
    return bench::Main({arguments + 1, arguments + count}, [](const Options& options) {
        DemandKnown(options.only);
        std::cout << (MeasureAll(options) ? "\nAll goals hold.\n" : "\nSome goals were missed.\n");
    });
}
