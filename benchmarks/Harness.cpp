#include "Harness.h"

#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "SystemCallCount.h"

namespace bench {

namespace {

constexpr std::size_t kFewestRounds = 7;
constexpr std::size_t kMostRounds = 25;

bool processorTime = false;

// What is known of one contender after all rounds.
struct Result {
    std::string name;
    std::vector<double> seconds;  // of each round
    Cost cost;
};

// A large allocation joins the heap's small free blocks. Without it, a set's nodes lie in the holes that the set of the
// run before has left, in the order in which they were freed.
void JoinFreeBlocks()
{
    void* volatile block = std::malloc(std::size_t{1} << 20U);
    std::free(block);
}

double Timed(const Workload& workload, const Contender& contender, std::optional<std::uint64_t>& expected)
{
    JoinFreeBlocks();
    WarmFreeMemory(workload.memory);
    if (contender.prepare) {
        contender.prepare();
    }
    const double start = Stopwatch();
    const std::uint64_t outcome = contender.run();
    const double seconds = Stopwatch() - start;
    if (outcome != expected.value_or(outcome)) {
        throw std::runtime_error(contender.name + " does other work than the first contender");
    }
    expected = outcome;
    return seconds;
}

std::string Content(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// One run of each, not recorded: warms caches, and sees to it that all leave the same file behind.
void WarmUp(const Workload& workload, const std::vector<Contender>& contenders)
{
    std::optional<std::uint64_t> outcome;
    std::optional<std::size_t> expected;
    for (const Contender& contender : contenders) {
        Timed(workload, contender, outcome);
        if (!workload.file.empty()) {
            const std::size_t digest = std::hash<std::string>()(Content(workload.file));
            if (digest != expected.value_or(digest)) {
                throw std::runtime_error(contender.name + " leaves another file than the first contender");
            }
            expected = digest;
        }
    }
}

std::vector<Result> RunRounds(const Workload& workload, const Options& options,
                              const std::vector<Contender>& contenders)
{
    std::vector<Result> results;
    results.reserve(contenders.size());
    for (const Contender& contender : contenders) {
        results.push_back({contender.name, {}, {}});
    }
    std::optional<std::uint64_t> outcome;
    const double end = Now() + (workload.seconds != 0 ? workload.seconds : options.seconds);
    const std::size_t fewest = options.quick ? 1 : kFewestRounds;
    for (std::size_t round = 0; round < kMostRounds && (round < fewest || Now() < end); ++round) {
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            const std::size_t turn = (round + i) % contenders.size();  // nobody is always first
            results[turn].seconds.push_back(Timed(workload, contenders[turn], outcome));
        }
    }
    return results;
}

const Result* Find(const std::vector<Result>& results, const std::string& name)
{
    const auto found = std::find_if(results.begin(), results.end(), [&](const Result& r) { return r.name == name; });
    return found == results.end() ? nullptr : &*found;
}

// Round by round, so that what disturbs one round disturbs both sides of its ratio.
Spread Ratio(const Result& result, const Result& base)
{
    std::vector<double> ratios;
    ratios.reserve(result.seconds.size());
    for (std::size_t i = 0; i < result.seconds.size(); ++i) {
        ratios.push_back(result.seconds[i] / base.seconds[i]);
    }
    return SpreadOf(ratios);
}

std::string Json(const Cost& cost)
{
    std::ostringstream json;
    json << '{';
    for (const auto& [name, count] : cost.calls) {
        json << (name == cost.calls.begin()->first ? "" : ",") << Quoted(name) << ':' << count;
    }
    json << '}';
    return json.str();
}

std::uint64_t AllCalls(const Cost& cost)
{
    std::uint64_t sum = 0;
    for (const auto& [name, count] : cost.calls) {
        sum += count;
    }
    return sum;
}

struct Judged {
    Goal goal;
    double value = 0;
    bool holds = true;
};

std::optional<Judged> Judge(const Workload& workload, const std::vector<Result>& results)
{
    const Result* const ours = Find(results, "ours");
    if (!workload.goal || ours == nullptr) {
        return {};
    }
    const Goal& goal = *workload.goal;
    const double value = goal.against == "ns"
                             ? SpreadOf(ours->seconds).median / static_cast<double>(workload.operations) * 1e9
                             : Ratio(*ours, *Find(results, goal.against)).median;
    return Judged{goal, value, value <= goal.atMost};
}

void PrintLine(const Workload& workload, const Result& result, const Result& base, const std::optional<Judged>& judged)
{
    const Spread seconds = SpreadOf(result.seconds);
    const Spread ratio = Ratio(result, base);
    std::printf("%-7s %-34s %-17s %9.3f ms %10.1f %7.2f  %5.2f-%-5.2f %9llu %9llu %8.1f", workload.id.c_str(),
                workload.what.c_str(), result.name.c_str(), seconds.median * 1e3,
                seconds.median / static_cast<double>(workload.operations) * 1e9, ratio.median, ratio.low, ratio.high,
                static_cast<unsigned long long>(AllCalls(result.cost)),
                static_cast<unsigned long long>(result.cost.faults), static_cast<double>(result.cost.peak) / (1 << 20));
    if (judged && result.name == "ours") {
        const bool absolute = judged->goal.against == "ns";
        std::printf("  %.2f %s goal %.2f %s", judged->value,
                    absolute ? "ns," : ("x " + judged->goal.against + ",").c_str(), judged->goal.atMost,
                    judged->holds ? "holds" : "MISSED");
    }
    std::printf("\n");
    std::fflush(stdout);
}

void RecordResult(const Workload& workload, const Options& options, const Result& result, const Result& base,
                  const std::optional<Judged>& judged)
{
    const Spread seconds = SpreadOf(result.seconds);
    const Spread ratio = Ratio(result, base);
    std::vector<std::pair<std::string, std::string>> fields = {
        {"workload", Quoted(workload.id)},
        {"what", Quoted(workload.what)},
        {"contender", Quoted(result.name)},
        {"bytes", std::to_string(workload.bytes)},
        {"operations", std::to_string(workload.operations)},
        {"rounds", std::to_string(result.seconds.size())},
        {"seconds", Number(seconds.median)},
        {"base", Quoted(base.name)},
        {"ratio", Number(ratio.median)},
        {"ratio_low", Number(ratio.low)},
        {"ratio_high", Number(ratio.high)},
        {"calls", Json(result.cost)},
        {"faults", std::to_string(result.cost.faults)},
        {"peak", std::to_string(result.cost.peak)},
    };
    if (judged && result.name == "ours") {
        fields.insert(fields.end(), {{"goal_against", Quoted(judged->goal.against)},
                                     {"goal", Number(judged->goal.atMost)},
                                     {"value", Number(judged->value)},
                                     {"holds", judged->holds ? "true" : "false"}});
    }
    Record(options, fields);
}

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

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void WarmFreeMemory(std::uint64_t bytes)
{
    if (bytes == 0) {
        return;
    }
    void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) {
        ::madvise(memory, bytes, MADV_HUGEPAGE);
        std::memset(memory, 1, bytes);
        ::munmap(memory, bytes);
    }
}

void MeasureProcessorTime()
{
    processorTime = true;
}

bool MeasuresProcessorTime()
{
    return processorTime;
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

Spread SpreadOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const auto at = [&](double part) {  // of the way from the first value to the last, between two where it falls
        const double place = part * static_cast<double>(values.size() - 1);
        const auto before = static_cast<std::size_t>(place);
        const std::size_t behind = std::min(before + 1, values.size() - 1);
        return values[before] + (place - std::floor(place)) * (values[behind] - values[before]);
    };
    return {at(0.5), at(0.25), at(0.75)};
}

Cost CostOf(const Contender& contender, bool countCalls)
{
    const auto prepare = [&] {
        if (contender.prepare) {
            contender.prepare();
        }
    };
    Cost cost;
    const std::vector<std::uint64_t> figures = InChild([&] {
        prepare();
        ::malloc_trim(0);                             // memory that earlier runs have left behind is not this one's
        std::ofstream("/proc/self/clear_refs") << 5;  // forget the peak so far
        const std::uint64_t memory = PeakMemory();
        const std::uint64_t faults = PageFaults();
        contender.run();
        return std::vector<std::uint64_t>{PageFaults() - faults, PeakMemory() - memory};
    });
    cost.faults = figures[0];
    cost.peak = figures[1];
    if (countCalls) {
        cost.calls = CountSystemCalls(prepare, [&] { contender.run(); });
    }
    return cost;
}

void PrintHead(const Options& options)
{
    std::printf("Files in %s, %llu MiB, up to %zu rounds\n\n", options.folder.c_str(),
                static_cast<unsigned long long>(options.bytes >> 20U), kMostRounds);
    std::printf("%-7s %-34s %-17s %12s %10s %7s  %-11s %9s %9s %8s\n", "", "", "", "time", "ns each", "ratio",
                "quartiles", "calls", "faults", "MiB peak");
}

bool Measure(const Workload& workload, const Options& options)
{
    const std::vector<Contender> contenders = workload.contenders();
    WarmUp(workload, contenders);
    std::vector<Result> results = RunRounds(workload, options, contenders);
    for (std::size_t i = 0; workload.costs && i < contenders.size(); ++i) {
        results[i].cost = CostOf(contenders[i]);
    }
    const std::optional<Judged> judged = Judge(workload, results);
    for (const Result& result : results) {
        PrintLine(workload, result, results.front(), judged);
        RecordResult(workload, options, result, results.front(), judged);
    }
    return !judged || judged->holds;
}

void Record(const Options& options, const std::vector<std::pair<std::string, std::string>>& fields)
{
    if (options.results.empty()) {
        return;
    }
    std::ostringstream line;
    for (const auto& [name, value] : fields) {
        line << (line.tellp() == 0 ? '{' : ',') << Quoted(name) << ':' << value;
    }
    std::ofstream(options.results, std::ios::app) << line.str() << "}\n";
}

std::string Quoted(const std::string& text)
{
    return '"' + text + '"';
}

std::string Number(double value)
{
    std::ostringstream text;
    text.precision(6);
    text << value;
    return text.str();
}

}  // namespace bench
