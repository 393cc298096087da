// The resident memory of many open appenders beside straightforward ones, right after they were made and later. Until
// then the kernel may collect small pages into huge ones.
//
// CORVANE_MEMORY_SECONDS says how much later. Without it, a few appenders are measured once.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/StraightforwardAppender.h"

namespace {

using Corvane::File::DataChunkFileAppender;
using Corvane::Pellin::DataChunk;
using support::kUnbounded;
using support::StraightforwardAppender;

constexpr std::uint64_t kKibibyte = 1024;
constexpr std::uint64_t kMebibyte = 1024 * kKibibyte;
constexpr std::uint64_t kHugePage = 2 * kMebibyte;

// Equal appenders with equal records. A reopened appender finds them in its file, a new one appends them.
struct Scenario {
    const char* name;
    std::uint64_t appenders;
    bool reopen;
    std::uint64_t maxSize;
    int records;
    std::uint64_t recordSize;

    std::uint64_t Used() const { return 16 + static_cast<std::uint64_t>(records) * recordSize; }
    bool IsLarge() const { return std::max(Used(), maxSize) >= kHugePage; }
    bool HasGrown() const { return !reopen && maxSize == kUnbounded; }

    // A large image may take a huge page more than it uses, and one that has grown a huge page more than a vector.
    std::uint64_t Most() const { return Used() + (IsLarge() ? kHugePage : 0); }
    std::uint64_t MostBeside(std::uint64_t vector) const { return vector + (IsLarge() && HasGrown() ? kHugePage : 0); }
};

constexpr std::array kScenarios = {
    Scenario{"reopened, 116 bytes", 60, true, kUnbounded, 1, 100},
    Scenario{"new, unbounded, 1 MiB", 60, false, kUnbounded, 16, 64 * kKibibyte},
    Scenario{"new, bounded to 1 MiB, 3 kB in use", 1000, false, kMebibyte, 3, 1000},
    Scenario{"new, bounded to 4 MiB, 3 kB in use", 300, false, 4 * kMebibyte, 3, 1000},
    Scenario{"new, unbounded, 2.1 MiB", 60, false, kUnbounded, 34, 64 * kKibibyte},
    Scenario{"new, unbounded, 3 MiB", 60, false, kUnbounded, 48, 64 * kKibibyte},
    Scenario{"reopened, 5 MiB", 60, true, kUnbounded, 80, 64 * kKibibyte},
};

// Resident bytes of one appender, on average.
struct Memory {
    std::uint64_t now;
    std::uint64_t later;
};

std::chrono::seconds Wait()
{
    const char* const text = std::getenv("CORVANE_MEMORY_SECONDS");  // NOLINT(concurrency-mt-unsafe): nothing sets it
    return std::chrono::seconds(text == nullptr ? 0 : std::stoi(text));
}

std::uint64_t HowMany(const Scenario& scenario)
{
    return Wait().count() == 0 ? 10 : scenario.appenders;
}

std::vector<DataChunk> ChunksOf(const Scenario& scenario)
{
    std::vector<DataChunk> chunks;
    chunks.reserve(static_cast<std::size_t>(scenario.records));
    for (int i = 0; i < scenario.records; ++i) {
        chunks.push_back(support::ChunkOfSize(i, scenario.recordSize));
    }
    return chunks;
}

template <typename Appender>
Memory Measure(const Scenario& scenario, const std::string& path)
{
    const std::uint64_t appenders = HowMany(scenario);
    const std::vector<DataChunk> chunks = ChunksOf(scenario);
    std::vector<std::unique_ptr<Appender>> open;
    const std::uint64_t before = support::OwnMemory();
    for (std::uint64_t i = 0; i < appenders; ++i) {
        open.push_back(std::make_unique<Appender>(path, scenario.reopen, scenario.maxSize));
        if (!scenario.reopen) {
            std::for_each(chunks.begin(), chunks.end(),
                          [&](const DataChunk& chunk) { std::ignore = open.back()->Append(chunk); });
        }
    }
    const std::uint64_t now = support::OwnMemory();
    std::this_thread::sleep_for(Wait());
    const std::uint64_t later = support::OwnMemory();
    std::for_each(open.begin(), open.end(), [](auto& appender) { std::ignore = appender.release(); });  // no writing
    return {(now - before) / appenders, (later - before) / appenders};  // NOLINT(clang-analyzer-core.DivideZero): not 0
}

// Measures in a child process. All children run at the same time, so that the test waits once.
class Child {
public:
    template <typename Function>
    explicit Child(const Function& measure)
    {
        EXPECT_EQ(::pipe(pipe_.data()), 0);
        pid_ = ::fork();
        if (pid_ == 0) {
            const Memory memory = measure();
            ::_exit(::write(pipe_[1], &memory, sizeof memory) == ssize_t{sizeof memory} ? 0 : 1);
        }
        ::close(pipe_[1]);
    }

    Memory Result()
    {
        Memory memory = {};
        EXPECT_EQ(::read(pipe_[0], &memory, sizeof memory), ssize_t{sizeof memory});
        ::close(pipe_[0]);
        ::waitpid(pid_, nullptr, 0);
        return memory;
    }

private:
    std::array<int, 2> pipe_ = {};
    pid_t pid_ = -1;
};

void Print(const Scenario& scenario, const Memory& ours, const Memory& straightforward)
{
    const auto kibibytes = [](std::uint64_t bytes) { return static_cast<unsigned long long>(bytes / kKibibyte); };
    std::printf("| %-34s | %5llu | %5llu | %5llu | %5llu |\n", scenario.name, kibibytes(ours.now),
                kibibytes(ours.later), kibibytes(straightforward.now), kibibytes(straightforward.later));
}

// Each appender may take two pages besides its image, and all together what growth leaves in the heap.
void Expect(const Scenario& scenario, std::uint64_t ours, std::uint64_t straightforward)
{
    const std::uint64_t besides = 8 * kKibibyte + kMebibyte / HowMany(scenario);
    EXPECT_LE(ours, scenario.Most() + besides) << scenario.name;
    EXPECT_LE(ours, scenario.MostBeside(straightforward) + besides) << scenario.name;
}

TEST(ManyAppenders, TakeTheirBytesAndOneHugePageAtMost)
{
    if (support::kSanitized) {
        GTEST_SKIP() << "sanitizers take memory of their own";
    }
    const support::TemporaryFolder folder;
    std::vector<std::pair<Child, Child>> children;
    for (const Scenario& scenario : kScenarios) {
        const std::string path = folder / std::to_string(children.size());
        if (scenario.reopen) {
            support::WriteFile(path, support::FileOf(ChunksOf(scenario)));
        }
        children.emplace_back(Child([&] { return Measure<DataChunkFileAppender>(scenario, path); }),
                              Child([&] { return Measure<StraightforwardAppender<DataChunk>>(scenario, path); }));
    }
    std::printf("| KiB of each appender               |  ours | later | straightforward | later |\n");
    for (std::size_t i = 0; i < kScenarios.size(); ++i) {
        const Memory ours = children[i].first.Result();
        const Memory straightforward = children[i].second.Result();
        Print(kScenarios[i], ours, straightforward);
        Expect(kScenarios[i], ours.now, straightforward.now);
        Expect(kScenarios[i], ours.later, straightforward.later);
    }
}

}  // namespace
