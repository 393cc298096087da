#include "harness/Cost.h"

#include <malloc.h>
#include <sys/resource.h>

#include <fstream>

#include "harness/ChildProcess.h"

namespace bench {

namespace {

std::uint64_t PeakMemory()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::stoull(line.substr(6)) * 1024;
        }
    }
    return 0;
}

std::uint64_t PageFaults()
{
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::uint64_t>(usage.ru_minflt + usage.ru_majflt);
}

}  // namespace

Cost CostOf(const Contender& contender, bool countCalls)
{
    const std::vector<std::uint64_t> figures = InChild([&] {
        contender.prepare();
        ::malloc_trim(0);                             // the run must not reuse memory that the parent had freed
        std::ofstream("/proc/self/clear_refs") << 5;  // resets the peak
        const std::uint64_t memory = PeakMemory();
        const std::uint64_t faults = PageFaults();
        contender.run();
        return std::vector<std::uint64_t>{PageFaults() - faults, PeakMemory() - memory};
    });
    Cost cost = {{}, figures[0], figures[1]};
    if (countCalls) {
        cost.calls = CountSystemCalls(contender);
    }
    return cost;
}

}  // namespace bench
