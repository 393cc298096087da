#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>

#include "Corvane/File/DataChunkFileAppender.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using Corvane::File::DataChunkFileAppender;
using support::ChunkOfSize;
using support::FileOf;
using Lines = std::vector<std::string>;

constexpr std::uint64_t kMegabyte = 1'000'000;

class ReopenMemory : public testing::TestWithParam<bool> {
protected:
    static std::uint64_t MaxSize(std::uint64_t fileSize) { return GetParam() ? fileSize : 0; }

    std::string NotGood() const
    {
        return "40 Chunk 0 in file " + path_ + " of 1 chunks is not good. We skip the remaining 0 chunks";
    }

    support::TemporaryFolder folder_;
    std::string path_ = folder_ / "a";
    support::LogCapture log_{40};
};

TEST_P(ReopenMemory, LongRecordCutOffIsNoCrash)
{
    const std::string whole = FileOf({ChunkOfSize(1, 8 * kMegabyte)});
    for (const std::size_t kept : {std::size_t{16 + 40}, std::size_t{4096}, whole.size() / 2, whole.size() - 1}) {
        log_.Clear();
        const std::string file = whole.substr(0, kept);
        support::WriteFile(path_, file);
        {
            const DataChunkFileAppender appender(path_, true, MaxSize(kept));
            EXPECT_TRUE(appender.GetTimePoints().empty());
        }
        EXPECT_EQ(log_.Lines(), Lines{NotGood()});
        EXPECT_TRUE(support::ReadFile(path_) == file);
    }
}

TEST_P(ReopenMemory, ScarceAddressSpaceIsEnough)
{
    if (support::kSanitized) {
        GTEST_SKIP() << "sanitizers need more address space than this test leaves";
    }
    const std::string whole = FileOf({ChunkOfSize(1, 8 * kMegabyte)});
    for (const std::size_t kept : {whole.size(), whole.size() / 2}) {
        support::WriteFile(path_, whole.substr(0, kept));
        const int result = support::RunInChild([&] {
            const rlimit limit = {1U << 30U, 1U << 30U};
            ASSERT_EQ(::setrlimit(RLIMIT_AS, &limit), 0);
            const DataChunkFileAppender appender(path_, true, MaxSize(kept));
            EXPECT_EQ(appender.GetTimePoints().size(), kept == whole.size() ? 1U : 0U);
        });
        EXPECT_EQ(result, 0);
        EXPECT_TRUE(support::ReadFile(path_) == whole.substr(0, kept));
    }
}

TEST_P(ReopenMemory, PeakIsTheFileAndLittleMore)
{
    if (support::kSanitized) {
        GTEST_SKIP() << "sanitizers take memory of their own";
    }
    constexpr std::uint64_t kRecords = 256;
    {
        DataChunkFileAppender appender(path_, false, 16 + kRecords * kMegabyte);
        for (std::uint64_t i = 0; i < kRecords; ++i) {
            ASSERT_TRUE(appender.Append(ChunkOfSize(static_cast<std::int64_t>(i), kMegabyte)));
        }
    }
    const int result = support::RunInChild([&] {
        std::ofstream("/proc/self/clear_refs") << 5;  // forget the peak of the parent
        const std::uint64_t before = support::PeakMemory();
        const DataChunkFileAppender appender(path_, true, MaxSize(16 + kRecords * kMegabyte));
        EXPECT_EQ(appender.GetTimePoints().size(), kRecords);
        EXPECT_LT(support::PeakMemory() - before, 11 * kRecords * kMegabyte / 10 + 8 * kMegabyte);
        EXPECT_GE(support::PeakMemory() - before, kRecords * kMegabyte);
    });
    EXPECT_EQ(result, 0);
}

INSTANTIATE_TEST_SUITE_P(BoundedAndUnbounded, ReopenMemory, testing::Bool(),
                         [](const auto& parameter) { return parameter.param ? "Bounded" : "Unbounded"; });

}  // namespace
