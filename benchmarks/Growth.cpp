#include <cmath>
#include <cstdio>
#include <fstream>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Literal.h"
#include "SystemCallCount.h"
#include "Workloads.h"

namespace bench {

using Corvane::File::DataChunkFileAppender;
using Corvane::Pellin::DataChunk;

namespace {

constexpr std::uint64_t kRecordSize = 64;
constexpr double kMostGrowth = 1.25;  // of the time of an append, from 10^4 chunks on

std::uint64_t Nanoseconds(double seconds)
{
    return static_cast<std::uint64_t>(seconds * 1e9);
}

struct Sample {
    double appendSeconds;
    double allSeconds;  // with construction, write and destruction
};

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
            file.Append(chunk);
        }
        appended = Stopwatch() - opened;
    }
    return {appended, Stopwatch() - start};
}

using Grower = Sample (*)(const std::string&, bool, std::uint64_t);

// Each sample in a process of its own: memory that an earlier one has left behind would make it cheaper.
std::vector<Sample> Samples(const Options& options, Grower grow, bool bounded, std::uint64_t count)
{
    const std::string path = options.folder + "/grown.chunks";
    std::vector<Sample> samples;
    const double end = Now() + (options.quick ? 0.1 : 1.0);
    while (samples.size() < 3 || (Now() < end && samples.size() < 50)) {
        const auto figures = InChild([&] {
            WarmFreeMemory(4 * kRecordSize * count);
            const Sample sample = grow(path, bounded, count);
            return std::vector<std::uint64_t>{Nanoseconds(sample.appendSeconds), Nanoseconds(sample.allSeconds)};
        });
        samples.push_back({static_cast<double>(figures[0]) * 1e-9, static_cast<double>(figures[1]) * 1e-9});
    }
    return samples;
}

// One point of a curve; returns the nanoseconds of an append.
double MeasurePoint(const Options& options, const std::string& name, Grower grow, bool bounded, std::uint64_t count)
{
    const std::string path = options.folder + "/grown.chunks";
    std::vector<double> append;
    std::vector<double> all;
    for (const Sample& sample : Samples(options, grow, bounded, count)) {
        append.push_back(sample.appendSeconds / static_cast<double>(count) * 1e9);
        all.push_back(sample.allSeconds / static_cast<double>(count) * 1e9);
    }
    const auto run = [&] {
        grow(path, bounded, count);
        return std::uint64_t{0};
    };
    const double memory = static_cast<double>(CostOf({name, {}, run}, false).peak) / static_cast<double>(count);
    const Spread appendSpread = SpreadOf(append);
    const Spread allSpread = SpreadOf(all);
    std::printf("growth  %-34s %-8s %10llu chunks: append %6.1f ns (%.1f-%.1f), in all %6.1f ns, memory %6.1f B each\n",
                bounded ? "bounded" : "unbounded", name.c_str(), static_cast<unsigned long long>(count),
                appendSpread.median, appendSpread.low, appendSpread.high, allSpread.median, memory);
    std::fflush(stdout);
    Record(options, {{"workload", Quoted("growth")},
                     {"what", Quoted(bounded ? "bounded" : "unbounded")},
                     {"contender", Quoted(name)},
                     {"operations", std::to_string(count)},
                     {"append_ns", Number(appendSpread.median)},
                     {"append_ns_low", Number(appendSpread.low)},
                     {"append_ns_high", Number(appendSpread.high)},
                     {"all_ns", Number(allSpread.median)},
                     {"memory_bytes", Number(memory)}});
    return appendSpread.median;
}

}  // namespace

bool MeasureGrowth(const Options& options)
{
    bool holds = true;
    const std::uint64_t most = options.quick ? 100'000 : 10'000'000;
    for (const bool bounded : {true, false}) {
        double atTenThousand = 0;
        double atMost = 0;
        for (std::uint64_t count = 1000; count <= most; count *= 10) {
            MeasurePoint(options, "literal", Grow<LiteralAppender>, bounded, count);
            atMost = MeasurePoint(options, "ours", Grow<DataChunkFileAppender>, bounded, count);
            atTenThousand = count == 10'000 ? atMost : atTenThousand;
        }
        const double growth = atMost / atTenThousand;
        std::printf("growth  %-34s ours: an append at %llu chunks costs %.2f of one at 10000, goal %.2f %s\n",
                    bounded ? "bounded" : "unbounded", static_cast<unsigned long long>(most), growth, kMostGrowth,
                    growth <= kMostGrowth ? "holds" : "MISSED");
        Record(options, {{"workload", Quoted("growth-goal")},
                         {"what", Quoted(bounded ? "bounded" : "unbounded")},
                         {"value", Number(growth)},
                         {"goal", Number(kMostGrowth)},
                         {"holds", growth <= kMostGrowth ? "true" : "false"}});
        holds = holds && growth <= kMostGrowth;
    }
    return holds;
}

}  // namespace bench
