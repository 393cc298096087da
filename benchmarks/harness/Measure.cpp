#include "harness/Measure.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "harness/Results.h"
#include "harness/Rounds.h"
#include "harness/Statistics.h"

namespace bench {

namespace {

using Fields = std::vector<std::pair<std::string, std::string>>;

// Our figure beside its goal.
struct Judged {
    Goal goal;
    Spread value;
    const char* verdict;
};

// Round by round, because a disturbance of one round affects both sides of its ratio.
Spread Ratio(const Result& result, const Result& base)
{
    std::vector<double> ratios(result.seconds.size());
    std::transform(result.seconds.begin(), result.seconds.end(), base.seconds.begin(), ratios.begin(),
                   std::divides<>());
    return SpreadOf(ratios);
}

Spread NanosecondsEach(const Workload& workload, const Result& result)
{
    const Spread seconds = SpreadOf(result.seconds);
    const double each = 1e9 / static_cast<double>(workload.operations);
    return {seconds.median * each, seconds.low * each, seconds.high * each};
}

std::optional<Judged> Judge(const Workload& workload, const std::vector<Result>& results)
{
    const auto find = [&](std::string_view name) {
        return std::find_if(results.begin(), results.end(), [&](const Result& result) { return result.name == name; });
    };
    if (!workload.goal) {
        return {};
    }
    const Goal& goal = *workload.goal;
    const Spread value = Ratio(*find("ours"), *find(goal.against));
    return Judged{goal, value, Verdict(value, goal.atMost)};
}

void PrintLine(const Workload& workload, const Result& result, const Result& base)
{
    const Spread ratio = Ratio(result, base);
    std::uint64_t calls = 0;
    for (const auto& [name, count] : result.cost.calls) {
        calls += count;
    }
    std::printf("%-7s %-34s %-17s %9.3f ms %10.1f %7.2f  %5.2f-%-5.2f %9llu %9llu %8.1f", workload.id.c_str(),
                workload.what.c_str(), result.name.c_str(), SpreadOf(result.seconds).median * 1e3,
                NanosecondsEach(workload, result).median, ratio.median, ratio.low, ratio.high,
                static_cast<unsigned long long>(calls), static_cast<unsigned long long>(result.cost.faults),
                static_cast<double>(result.cost.peak) / (1 << 20));
}

void PrintVerdict(const Judged& judged)
{
    std::printf("  %.2f (%.2f-%.2f) x %s, goal %.2f: %s", judged.value.median, judged.value.low, judged.value.high,
                std::string(judged.goal.against).c_str(), judged.goal.atMost, judged.verdict);
}

std::string Json(const std::map<std::string, std::uint64_t>& calls)
{
    std::string json;
    for (const auto& [name, count] : calls) {
        json += (json.empty() ? "" : ",") + Quoted(name) + ':' + std::to_string(count);
    }
    return '{' + json + '}';
}

Fields FieldsOf(const Workload& workload, const Result& result, const Result& base)
{
    const Spread ratio = Ratio(result, base);
    return {
        {"workload", Quoted(workload.id)},
        {"what", Quoted(workload.what)},
        {"contender", Quoted(result.name)},
        {"bytes", std::to_string(workload.bytes)},
        {"operations", std::to_string(workload.operations)},
        {"rounds", std::to_string(result.seconds.size())},
        {"seconds", Number(SpreadOf(result.seconds).median)},
        {"base", Quoted(base.name)},
        {"ratio", Number(ratio.median)},
        {"ratio_low", Number(ratio.low)},
        {"ratio_high", Number(ratio.high)},
        {"calls", Json(result.cost.calls)},
        {"faults", std::to_string(result.cost.faults)},
        {"peak", std::to_string(result.cost.peak)},
    };
}

Fields FieldsOf(const Judged& judged)
{
    return {{"goal_against", Quoted(judged.goal.against)},
            {"goal", Number(judged.goal.atMost)},
            {"goal_reason", Quoted(judged.goal.reason)},
            {"value", Number(judged.value.median)},
            {"value_low", Number(judged.value.low)},
            {"value_high", Number(judged.value.high)},
            {"verdict", Quoted(judged.verdict)}};
}

}  // namespace

void PrintHead(const Options& options)
{
    std::printf("Files in %s, %llu MiB, up to %zu rounds\n\n", options.folder.c_str(),
                static_cast<unsigned long long>(options.bytes >> 20U), kMostRounds);
    std::printf("%-7s %-34s %-17s %12s %10s %7s  %-11s %9s %9s %8s\n", "", "", "", "time", "ns each", "ratio",
                "quartiles", "calls", "faults", "MiB peak");
}

bool Measure(const Workload& workload, const Options& options)
{
    const std::vector<Result> results = RunRounds(workload, options);
    const std::optional<Judged> judged = Judge(workload, results);
    for (const Result& result : results) {
        Fields fields = FieldsOf(workload, result, results.front());
        PrintLine(workload, result, results.front());
        if (judged && result.name == "ours") {
            PrintVerdict(*judged);
            const Fields more = FieldsOf(*judged);
            fields.insert(fields.end(), more.begin(), more.end());
        }
        std::printf("\n");
        std::fflush(stdout);
        SaveResult(options, fields);
    }
    return !judged || std::strcmp(judged->verdict, "missed") != 0;
}

}  // namespace bench
