#include <gtest/gtest.h>
#include <sys/resource.h>

#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using support::ChunkOfSize;
using support::FileOf;
using support::Lines;

constexpr std::uint64_t kMegabyte = 1'000'000;

class ReopenMemory : public support::ChunkFileTest, public testing::WithParamInterface<bool> {
protected:
    static std::uint64_t MaxSize(std::uint64_t fileSize) { return GetParam() ? fileSize : support::kUnbounded; }

    support::LogCapture log_{40};
};

TEST_P(ReopenMemory, TruncatedLongRecordDoesNotCrash)
{
    const std::string whole = FileOf({ChunkOfSize(1, 8 * kMegabyte)});
    for (const std::size_t kept : {std::size_t{16 + 40}, std::size_t{4096}, whole.size() / 2, whole.size() - 1}) {
        log_.Clear();
        const std::string file = whole.substr(0, kept);
        support::WriteFile(path_, file);
        {
            const auto appender = Reopened(MaxSize(kept));
            EXPECT_TRUE(appender.GetTimePoints().empty());
        }
        EXPECT_EQ(log_.Lines(), Lines{NotGood(0, 1, 0)});
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
            const auto appender = Reopened(MaxSize(kept));
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
        auto appender = NewFile(16 + kRecords * kMegabyte);
        for (std::uint64_t i = 0; i < kRecords; ++i) {
            ASSERT_TRUE(appender.Append(ChunkOfSize(static_cast<std::int64_t>(i), kMegabyte)));
        }
    }
    const int result = support::RunInChild([&] {
        const std::uint64_t before = support::OwnMemory();
        const std::uint64_t peak = support::PeakGrowth([&] {
            const auto appender = Reopened(MaxSize(16 + kRecords * kMegabyte));
            EXPECT_EQ(appender.GetTimePoints().size(), kRecords);
            EXPECT_GE(support::OwnMemory() - before, kRecords * kMegabyte);
        });
        EXPECT_LT(peak, 11 * kRecords * kMegabyte / 10 + 8 * kMegabyte);
    });
    EXPECT_EQ(result, 0);
}

INSTANTIATE_TEST_SUITE_P(BoundedAndUnbounded, ReopenMemory, testing::Bool(),
                         [](const auto& parameter) { return parameter.param ? "Bounded" : "Unbounded"; });

}  // namespace
