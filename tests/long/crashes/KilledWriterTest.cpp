#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/WriteChunkFileDurably.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using Corvane::File::DataChunkFileAppender;
using Corvane::File::kHeaderSize;
using support::DataChunk;
using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kSize = 8'000'000;  // bytes of the file

// A whole file: chunks of one size, and the file's bytes.
struct Image {
    Image(std::int64_t firstTime, std::uint64_t size) : chunkSize(size)
    {
        for (std::int64_t i = 0; kHeaderSize + (chunks.size() + 2) * size <= kSize; ++i) {
            chunks.push_back(support::ChunkOfSize(firstTime + i, size));
        }
        bytes = support::FileOf(chunks);
        bytes.resize(kSize);
    }

    std::uint64_t chunkSize;
    std::vector<DataChunk> chunks;
    std::string bytes;
};

// A child process that writes a file. The constructor returns when the child says that it is about to.
class Writer {
public:
    using Write = std::function<void(const std::function<void()>& sayStarted)>;

    explicit Writer(const Write& write)
    {
        *started_ = 0;
        child_ = ::fork();
        if (child_ == 0) {
            write([this] { *started_ = 1; });
            ::_exit(0);
        }
        while (*started_ == 0 && ::waitpid(child_, &status_, WNOHANG) == 0) {
        }
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer() = default;

    // Waits for its end; true if Kill ended it.
    bool WasKilled()
    {
        ::waitpid(child_, &status_, 0);
        return WIFSIGNALED(status_) && WTERMSIG(status_) == SIGKILL;
    }

    void Kill() const { ::kill(child_, SIGKILL); }

private:
    static std::atomic<int>* Shared()
    {
        static void* const page =
            ::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        return static_cast<std::atomic<int>*>(page);
    }

    std::atomic<int>* started_ = Shared();
    pid_t child_ = -1;
    int status_ = 0;
};

class KilledWriter : public testing::Test {
protected:
    // Kills writers at random moments of their work, and calls `judge` after each.
    void KillWriters(const Writer::Write& write, const std::function<void()>& judge)
    {
        const char* const chosen = std::getenv("CORVANE_KILLS");  // NOLINT(concurrency-mt-unsafe): one thread
        const int kills = chosen != nullptr ? std::stoi(chosen) : 20;
        std::int64_t longest = Duration(write).count();
        std::mt19937_64 random(20);  // NOLINT(cert-msc51-cpp): the same moments each time
        for (int attempt = 0; killed_ < kills && attempt < 10 * kills && !HasFailure(); ++attempt) {
            const auto delay = std::uniform_int_distribution<std::int64_t>(0, longest)(random);
            if (!KillAfter(write, Clock::duration(delay))) {
                longest /= 2;  // the machine has got faster
                continue;
            }
            longest += longest / 4;
            ++killed_;
            judge();
            if (killed_ % 50 == 0) {
                std::cout << killed_ << " of " << kills << " writers killed\n" << std::flush;
            }
        }
        EXPECT_EQ(killed_, kills);
    }

    void Overwrite(const std::function<void()>& sayStarted)
    {
        auto appender = support::NewFile(path_, kSize);
        Fill(appender);
        sayStarted();
    }

    void ReplaceDurably(const std::function<void()>& sayStarted)
    {
        Corvane::File::WriteChunkFileDurably(path_, kSize, [&](DataChunkFileAppender& appender) {
            Fill(appender);
            sayStarted();
        });
    }

    // Counts what a killed overwriter left and compares it with what it may leave.
    void JudgeOverwriting()
    {
        const std::string bytes = support::ReadFile(path_);
        ASSERT_EQ(bytes.size(), kSize);
        if (bytes == old_.bytes || bytes == new_.bytes) {
            const bool isOld = bytes == old_.bytes;
            ++(isOld ? untouched_ : finished_);
            ExpectRecovery(isOld ? old_ : new_, kSize);
            return;
        }
        ++torn_;
        const auto different = std::mismatch(bytes.begin(), bytes.end(), new_.bytes.begin()).first;
        const auto count = static_cast<std::uint64_t>(different - bytes.begin());
        EXPECT_TRUE(bytes.compare(count, std::string::npos, old_.bytes, count, std::string::npos) == 0) << count;
        ExpectRecovery(count < kHeaderSize ? old_ : new_, count < kHeaderSize ? kSize : count);
    }

    // The same for a durable replacement: a whole file, and at most one fresh file beside it.
    void JudgeReplacement()
    {
        const std::string bytes = support::ReadFile(path_);
        const bool isOld = bytes == old_.bytes;
        EXPECT_TRUE(isOld || bytes == new_.bytes);
        ++(isOld ? untouched_ : finished_);
        std::set<std::string> names = folder_.Names();
        EXPECT_EQ(names.erase("a"), 1U);
        EXPECT_LE(names.size(), 1U);
        for (const std::string& name : names) {
            EXPECT_TRUE(std::regex_match(name, std::regex("\\.corvane\\.[0-9a-f]{16}"))) << name;
            std::filesystem::remove(folder_ / name);
            ++leftovers_;
        }
    }

    support::TemporaryFolder folder_;
    support::LogCapture log_{51};
    std::string path_ = folder_ / "a";
    Image old_{1'000, 50'000};
    Image new_{5'000, 65'000};
    int killed_ = 0;
    int untouched_ = 0;
    int finished_ = 0;
    int torn_ = 0;
    int leftovers_ = 0;

private:
    void Fill(DataChunkFileAppender& appender) const
    {
        for (const DataChunk& chunk : new_.chunks) {
            EXPECT_TRUE(appender.Append(chunk));
        }
    }

    // How long an undisturbed writer takes from the constructor's return to its end.
    Clock::duration Duration(const Writer::Write& write) const
    {
        Writer writer(write);
        const auto start = Clock::now();
        EXPECT_FALSE(writer.WasKilled());
        EXPECT_TRUE(support::ReadFile(path_) == new_.bytes);
        return Clock::now() - start;
    }

    // Kills a writer when it has written for this long; false if it had already ended.
    bool KillAfter(const Writer::Write& write, Clock::duration delay) const
    {
        support::WriteFile(path_, old_.bytes);
        Writer writer(write);
        const auto end = Clock::now() + delay;
        while (Clock::now() < end) {
        }
        writer.Kill();
        return writer.WasKilled();
    }

    // Reopening keeps the chunks of `kept` that lie before the tear, and the next chunk follows them.
    void ExpectRecovery(const Image& kept, std::uint64_t tear) const
    {
        const std::uint64_t number = std::min(kept.chunks.size(), (tear - kHeaderSize) / kept.chunkSize);
        std::vector<DataChunk> expected(kept.chunks.begin(), kept.chunks.begin() + static_cast<std::ptrdiff_t>(number));
        expected.push_back(support::ChunkOfSize(-1, 100));
        {
            auto appender = support::Reopened(path_, kSize);
            EXPECT_EQ(appender.GetTimePoints().size(), number);
            EXPECT_TRUE(appender.Append(expected.back()));
        }
        EXPECT_EQ(support::TimesOf(support::ReadAll(path_)), support::TimesOf(expected));
    }
};

TEST_F(KilledWriter, LeavesNewBytesThenOldOnesAndReopeningKeepsTheGood)
{
    KillWriters([this](const auto& sayStarted) { Overwrite(sayStarted); }, [this] { JudgeOverwriting(); });
    std::cout << killed_ << " writers killed while overwriting: " << torn_ << " torn, " << untouched_ << " old, "
              << finished_ << " new files\n";
}

TEST_F(KilledWriter, OfADurableReplacementLeavesAWholeFileAndAtMostTheFreshOne)
{
    KillWriters([this](const auto& sayStarted) { ReplaceDurably(sayStarted); }, [this] { JudgeReplacement(); });
    std::cout << killed_ << " writers killed while replacing durably: " << untouched_ << " old, " << finished_
              << " new files, " << leftovers_ << " fresh files beside them\n";
}

}  // namespace
