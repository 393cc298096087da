#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using Corvane::File::DataChunkFileReader;
using Corvane::File::kHeaderSize;
using Corvane::Time::TimePoint;
using support::DataChunk;
using Clock = std::chrono::steady_clock;

constexpr double kMebi = 1 << 20;

double OwnMebibytes()
{
    return static_cast<double>(support::OwnMemory()) / kMebi;
}

// A file and a model of its contents, for one thread.
class ModelledFile {
public:
    ModelledFile(std::string path, unsigned seed) : path_(std::move(path)), random_(seed) {}

    // Writes the file with an appender and reads it with two readers. Returns false if they differ from the model.
    bool RunRound()
    {
        const bool reopen = Pick(4) != 0 && !chunks_.empty();
        if (!reopen) {
            chunks_.clear();
            used_ = kHeaderSize;
        }
        return AreAppended(reopen) && AreRead() && AreRead();
    }

private:
    static constexpr std::uint64_t kMaxSize = 200'000;

    std::uint64_t Pick(std::uint64_t number) { return random_() % number; }

    // Appends chunks; duplicates and oversize chunks must be refused.
    bool AreAppended(bool reopen)
    {
        auto appender = reopen ? support::Reopened(path_, kMaxSize) : support::NewFile(path_, kMaxSize);
        bool right = appender.GetTimePoints().size() == chunks_.size();
        for (std::uint64_t i = Pick(60); i != 0; --i) {
            const auto time = static_cast<std::int64_t>(Pick(1000));
            const DataChunk chunk = support::ChunkOfSize(time, 60 + Pick(2000));
            const bool accepted = chunk.GetSizeOnFile() <= kMaxSize - used_ && !chunks_.contains(time);
            right = right && appender.Append(chunk) == accepted;
            if (accepted) {
                chunks_[time] = {used_, support::RecordOf(chunk)};
                used_ += chunk.GetSizeOnFile();
            }
        }
        return right;
    }

    bool AreRead() const
    {
        DataChunkFileReader reader(path_);
        bool right = reader.GetNumberOfChunks() == chunks_.size();
        for (const auto& [time, stored] : chunks_) {
            DataChunk chunk;
            right = right && reader.GetChunk(chunk, stored.first) != 0 && support::RecordOf(chunk) == stored.second;
        }
        return right;
    }

    std::string path_;
    std::mt19937_64 random_;
    std::map<std::int64_t, std::pair<std::uint64_t, std::string>> chunks_;  // by time: position and record
    std::uint64_t used_ = kHeaderSize;
};

class Load : public testing::Test {
protected:
    Load() : descriptors_(support::OpenDescriptors()) {}
    ~Load() override { EXPECT_EQ(support::OpenDescriptors(), descriptors_); }

    // Appends `number` chunks to a new file in time order.
    static void Fill(const std::string& path, std::uint64_t number)
    {
        auto appender = support::NewFile(path, kHeaderSize + (number + 1) * DataChunk().GetSizeOnFile());
        for (std::uint64_t i = 0; i < number; ++i) {
            ASSERT_TRUE(appender.Append(DataChunk(TimePoint(static_cast<std::int64_t>(i)))));
        }
    }

    // Reopens the file and appends one more chunk.
    static void Continue(const std::string& path, std::uint64_t number)
    {
        auto appender = support::Reopened(path, support::kUnbounded);
        EXPECT_EQ(appender.GetTimePoints().size(), number);
        EXPECT_TRUE(appender.Append(DataChunk(TimePoint(-1))));
    }

    support::TemporaryFolder folder_;
    support::LogCapture log_{51};
    std::set<int> descriptors_;
};

TEST_F(Load, ThreadsWithTheirOwnFilesAgreeWithTheirModelsInConstantMemory)
{
    constexpr unsigned kThreads = 16;
    const char* const chosen = std::getenv("CORVANE_SOAK_SECONDS");  // NOLINT(concurrency-mt-unsafe): one thread yet
    const std::chrono::seconds duration(chosen != nullptr ? std::stoi(chosen) : 3);
    const auto start = Clock::now();
    std::atomic<std::uint64_t> rounds = 0;
    std::atomic<std::uint64_t> wrong = 0;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (unsigned i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (ModelledFile file(folder_ / std::to_string(i), i); wrong == 0 && Clock::now() - start < duration;) {
                wrong += file.RunRound() ? 0U : 1U;
                ++rounds;
            }
        });
    }
    std::this_thread::sleep_until(start + duration / 3);
    const double before = OwnMebibytes();
    for (auto next = start + std::chrono::seconds(10); next < start + duration; next += std::chrono::seconds(10)) {
        std::this_thread::sleep_until(next);
        std::cout << rounds << " files written and read, " << OwnMebibytes() << " MiB\n" << std::flush;
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::cout << rounds << " files written and read by " << kThreads << " threads in " << duration.count() << " s; "
              << before << " MiB after a third of the time, " << OwnMebibytes() << " MiB at the end\n";
    EXPECT_EQ(wrong, 0U);
    EXPECT_GE(rounds, kThreads);
    EXPECT_TRUE(support::kSanitized || OwnMebibytes() < before * 1.1 + 8)
        << "MiB " << before << " -> " << OwnMebibytes();
}

TEST_F(Load, MillionChunksInOneFileAreContinuedAndRead)
{
    const std::uint64_t number = support::kSanitized ? 50'000 : 1'000'000;
    const std::string path = folder_ / "a";
    Fill(path, number);
    Continue(path, number);
    DataChunkFileReader reader(path);
    ASSERT_EQ(reader.GetNumberOfChunks(), number + 1);
    std::uint64_t position = kHeaderSize;
    for (std::uint64_t i = 0; i <= number; ++i) {
        DataChunk chunk;
        ASSERT_NE(reader.GetChunk(chunk, position), 0U) << i;
        ASSERT_EQ(chunk.GetTimePoint().Nanoseconds(), i == number ? -1 : static_cast<std::int64_t>(i));
        position += chunk.GetSizeOnFile();
    }
}

TEST_F(Load, TenThousandFilesAreWrittenContinuedAndRead)
{
    const std::uint64_t number = support::kSanitized ? 500 : 10'000;
    for (std::uint64_t i = 0; i < number; ++i) {
        Fill(folder_ / std::to_string(i), i % 8 + 1);
    }
    EXPECT_EQ(folder_.Names().size(), number);
    for (std::uint64_t i = 0; i < number; ++i) {
        Continue(folder_ / std::to_string(i), i % 8 + 1);
        ASSERT_EQ(support::ReadAll(folder_ / std::to_string(i)).size(), i % 8 + 2);
    }
}

}  // namespace
