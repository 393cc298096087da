#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Files.h"
#include "Workloads.h"
#include "harness/ChildProcess.h"
#include "harness/Clock.h"
#include "harness/Cost.h"
#include "harness/Memory.h"
#include "harness/Results.h"
#include "harness/Statistics.h"

namespace bench {

using Corvane::File::DataChunkFileAppender;
using Corvane::Pellin::DataChunk;

namespace {

constexpr std::uint64_t kRecordSize = 64;
constexpr std::uint64_t kFewChunks = 10'000;
constexpr double kMostGrowth = 1.25;  // of the time of an append, from kFewChunks to the largest file
constexpr double kMostMemory = 9;     // bytes for each chunk of the largest file besides its record: a time point has 8
constexpr double kHugePage = 2 << 20U;

// Nanoseconds: of all appends, and with construction, write and destruction.
using Sample = std::vector<std::uint64_t>;

template <typename Appender>
Sample Grow(const std::string& path, bool bounded, std::uint64_t count)
{
    const std::uint64_t maxSize = bounded ? Corvane::File::kHeaderSize + count * kRecordSize : 0;
    DataChunk chunk(kRecordSize);
    double appended = 0;
    const double start = Stopwatch();
    {
        Appender file(path, false, maxSize);
        const double opened = Stopwatch();
        for (std::uint64_t i = 0; i < count; ++i) {
            chunk.SetTime(static_cast<std::int64_t>(i));
            if (!file.Append(chunk)) {
                throw std::runtime_error("could not grow " + path);
            }
        }
        appended = Stopwatch() - opened;
    }
    const double all = Stopwatch() - start;
    return {static_cast<std::uint64_t>(appended * 1e9), static_cast<std::uint64_t>(all * 1e9)};
}

struct Curve {
    std::string name;
    Sample (*grow)(const std::string&, bool, std::uint64_t);
    bool bounded;

    const char* What() const { return bounded ? "bounded" : "unbounded"; }
};

// For each chunk.
struct Point {
    Spread append;  // nanoseconds
    Spread all;     // nanoseconds, with construction, write and destruction
    double memory;  // bytes
};

// Each sample has its own process, because memory that an earlier sample freed would make it cheaper.
Point MeasurePoint(const Options& options, const Curve& curve, std::uint64_t count)
{
    const std::string path = options.folder + "/grown.chunks";
    const auto chunks = static_cast<double>(count);
    std::vector<double> append;
    std::vector<double> all;
    const double end = Now() + (options.quick ? 0.1 : 1.0);
    while (append.size() < 3 || (Now() < end && append.size() < 50)) {
        const Sample sample = InChild([&] {
            WarmFreeMemory(4 * kRecordSize * count);
            return curve.grow(path, curve.bounded, count);
        });
        append.push_back(static_cast<double>(sample[0]) / chunks);
        all.push_back(static_cast<double>(sample[1]) / chunks);
    }
    const auto run = [&] { return curve.grow(path, curve.bounded, count).size(); };
    const double memory = static_cast<double>(CostOf({curve.name, run}, false).peak) / chunks;
    return {SpreadOf(append), SpreadOf(all), memory};
}

Point ReportPoint(const Options& options, const Curve& curve, std::uint64_t count)
{
    const Point point = MeasurePoint(options, curve, count);
    const auto& [append, all, memory] = point;
    std::printf(
        "growth  %-34s %-17s %10llu chunks: append %6.1f ns (%.1f-%.1f), in all %6.1f ns, memory %6.1f B each\n",
        curve.What(), curve.name.c_str(), static_cast<unsigned long long>(count), append.median, append.low,
        append.high, all.median, memory);
    std::fflush(stdout);
    SaveResult(options, {{"workload", Quoted("growth")},
                         {"what", Quoted(curve.What())},
                         {"contender", Quoted(curve.name)},
                         {"operations", std::to_string(count)},
                         {"append_ns", Number(append.median)},
                         {"append_ns_low", Number(append.low)},
                         {"append_ns_high", Number(append.high)},
                         {"all_ns", Number(all.median)},
                         {"memory_bytes", Number(memory)}});
    return point;
}

// Returns false if the goal was missed.
bool ReportGoal(const Options& options, const Curve& curve, const std::string& what, const Spread& value, double goal)
{
    const char* const verdict = Verdict(value, goal);
    std::printf("growth  %-34s %-17s %s: %.2f (%.2f-%.2f), goal %.2f: %s\n", curve.What(), curve.name.c_str(),
                what.c_str(), value.median, value.low, value.high, goal, verdict);
    SaveResult(options, {{"workload", Quoted("growth-goal")},
                         {"what", Quoted(what + ", " + curve.What())},
                         {"value", Number(value.median)},
                         {"value_low", Number(value.low)},
                         {"value_high", Number(value.high)},
                         {"goal", Number(goal)},
                         {"verdict", Quoted(verdict)}});
    return std::strcmp(verdict, "missed") != 0;
}

// An append must not become slower while a file grows, and a chunk takes its record and its time point.
bool ReportGoals(const Options& options, const Curve& curve, double few, const Point& most, std::uint64_t count)
{
    const Spread growth = {most.append.median / few, most.append.low / few, most.append.high / few};
    const double memory = most.memory - static_cast<double>(kRecordSize) - kHugePage / static_cast<double>(count);
    const bool steady = ReportGoal(options, curve, "append, largest file ÷ 10,000 chunks", growth, kMostGrowth);
    return ReportGoal(options, curve, "bytes besides the record", {memory, memory, memory}, kMostMemory) && steady;
}

}  // namespace

bool MeasureGrowth(const Options& options)
{
    bool good = true;
    const std::uint64_t largest = options.quick ? 100'000 : 10'000'000;
    for (const bool bounded : {true, false}) {
        const Curve straightforward = {"straightforward", Grow<StraightforwardAppender>, bounded};
        const Curve ours = {"ours", Grow<DataChunkFileAppender>, bounded};
        double few = 0;
        Point point = {};
        for (std::uint64_t count = 1000; count <= largest; count *= 10) {
            ReportPoint(options, straightforward, count);
            point = ReportPoint(options, ours, count);
            few = count == kFewChunks ? point.append.median : few;
        }
        good = ReportGoals(options, ours, few, point, largest) && good;
    }
    return good;
}

}  // namespace bench
