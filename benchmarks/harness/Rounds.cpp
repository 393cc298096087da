#include "harness/Rounds.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "harness/Clock.h"
#include "harness/Memory.h"

namespace bench {

namespace {

constexpr std::size_t kFewestRounds = 7;

// The first value is expected of all that follow.
template <typename Value>
void ExpectSame(std::optional<Value>& expected, const Value& value, const std::string& complaint)
{
    if (value != expected.value_or(value)) {
        throw std::runtime_error(complaint);
    }
    expected = value;
}

double Timed(const Workload& workload, const Contender& contender, std::optional<std::uint64_t>& expected)
{
    JoinFreeBlocks();
    WarmFreeMemory(workload.memory);
    contender.prepare();
    const double start = Stopwatch();
    const std::uint64_t outcome = contender.run();
    const double seconds = Stopwatch() - start;
    ExpectSame(expected, outcome, contender.name + " does other work than the first contender");
    return seconds;
}

std::size_t Digest(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::hash<std::string>()({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
}

// One run of each that is not measured: it warms the caches and compares the files.
void WarmUp(const Workload& workload, const std::vector<Contender>& contenders)
{
    std::optional<std::uint64_t> outcome;
    std::optional<std::size_t> digest;
    for (const Contender& contender : contenders) {
        Timed(workload, contender, outcome);
        if (!workload.file.empty()) {
            ExpectSame(digest, Digest(workload.file), contender.name + " leaves another file than the first contender");
        }
    }
}

}  // namespace

std::vector<Result> RunRounds(const Workload& workload, const Options& options)
{
    const std::vector<Contender> contenders = workload.contenders();
    WarmUp(workload, contenders);
    std::vector<Result> results(contenders.size());
    std::optional<std::uint64_t> outcome;
    const double end = Now() + (workload.seconds != 0 ? workload.seconds : options.seconds);
    const std::size_t fewest = options.quick ? 1 : kFewestRounds;
    for (std::size_t round = 0; round < kMostRounds && (round < fewest || Now() < end); ++round) {
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            const std::size_t turn = (round + i) % contenders.size();  // nobody is always first
            results[turn].seconds.push_back(Timed(workload, contenders[turn], outcome));
        }
    }
    for (std::size_t i = 0; i < contenders.size(); ++i) {
        results[i].name = contenders[i].name;
        results[i].cost = workload.costs ? CostOf(contenders[i]) : Cost();
    }
    return results;
}

}  // namespace bench
