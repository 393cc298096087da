#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <tuple>

#include "support/Allocations.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/SystemCalls.h"

namespace {

using support::ChunkOfSize;
using support::kUnbounded;
using support::Lines;

class AppenderCalls : public support::ChunkFileTest {
protected:
    support::LogCapture log_;
};

TEST_F(AppenderCalls, NewFileTakesOneOpenOneWriteOneClose)
{
    support::SystemCalls calls;
    {
        auto appender = NewFile(512);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
    }
    ASSERT_EQ(calls.Names(), (Lines{"open", "write", "close"}));
    EXPECT_EQ(calls.Calls()[0].path, path_);
    EXPECT_EQ(calls.Calls()[0].flags, 0x40041);  // O_WRONLY | O_CREAT | O_NOATIME
    EXPECT_EQ(calls.Calls()[0].mode, 0664U);
    EXPECT_EQ(calls.Calls()[1].size, 512U);
    EXPECT_EQ(calls.Calls()[1].fd, calls.Calls()[0].result);
    EXPECT_EQ(calls.Calls()[2].fd, calls.Calls()[0].result);
}

TEST_F(AppenderCalls, EmptyUnboundedImageIsNotWritten)
{
    support::SystemCalls calls;
    WriteNewFile(kUnbounded);
    EXPECT_EQ(calls.Names(), (Lines{"open", "close"}));
}

TEST_F(AppenderCalls, LargeImageIsWrittenInOneCallToo)
{
    support::SystemCalls calls;
    {
        auto appender = NewFile(64'000'000);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
    }
    ASSERT_EQ(calls.Calls("write").size(), 1U);
    EXPECT_EQ(calls.Calls("write")[0].result, 64'000'000);
}

TEST_F(AppenderCalls, UntouchedEndOfALargeImageIsMappedBeforeItIsWritten)
{
    support::SystemCalls calls;
    {
        auto appender = NewFile(64'000'000);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 5000)));
    }
    const support::SystemCall populated = calls.Calls("madvise").back();
    EXPECT_EQ(populated.flags, 22);  // MADV_POPULATE_READ
    EXPECT_EQ(populated.size, 64'000'000U - 8192U);
}

TEST_F(AppenderCalls, AppendMakesNoCall)
{
    auto appender = NewFile(512);
    const auto chunk = ChunkOfSize(1, 100);
    const support::SystemCalls calls;
    EXPECT_TRUE(appender.Append(chunk));
    EXPECT_EQ(calls.Names(), Lines{});
}

TEST_F(AppenderCalls, AppendAllocatesForABlockOfTimePointsOnly)
{
    auto appender = NewFile(512);
    const std::array chunks = {ChunkOfSize(3, 100), ChunkOfSize(1, 100), ChunkOfSize(2, 100)};
    const support::Allocations allocations;
    EXPECT_TRUE(appender.Append(chunks[0]));
    EXPECT_EQ(allocations.Count(), 0U);
    EXPECT_TRUE(appender.Append(chunks[1]));
    EXPECT_EQ(allocations.Count(), 2U);  // the first late one: its block, and the block's place
    EXPECT_TRUE(appender.Append(chunks[2]));
    EXPECT_EQ(allocations.Count(), 2U);
}

TEST_F(AppenderCalls, RefusalThatIsNotLoggedAllocatesNothing)
{
    auto appender = NewFile(16);
    const auto chunk = ChunkOfSize(1, 100);
    support::LogCapture::SetLevel(51);
    const support::Allocations allocations;
    EXPECT_FALSE(appender.Append(chunk));
    EXPECT_EQ(allocations.Count(), 0U);
}

TEST_F(AppenderCalls, FailedWriteIsLoggedWithMinusOne)
{
    support::SystemCalls calls;
    calls.Fail("write", ENOSPC);
    WriteNewFile(512);
    EXPECT_EQ(calls.Fired(), 1U);
    EXPECT_EQ(log_.Lines(), Lines{"50 Could not write 512B. Wrote instead: -1"});
    EXPECT_EQ(calls.Names(), (Lines{"open", "write", "close"}));
}

TEST_F(AppenderCalls, ShortWriteIsLoggedAndNotRepeated)
{
    for (const std::uint64_t moved : {0U, 1U, 511U}) {
        log_.Clear();
        support::SystemCalls calls;
        calls.Shorten("write", moved);
        WriteNewFile(512);
        EXPECT_EQ(calls.Fired(), 1U);
        EXPECT_EQ(log_.Lines(), Lines{"50 Could not write 512B. Wrote instead: " + std::to_string(moved)});
        EXPECT_EQ(calls.Calls("write").size(), 1U);
    }
}

TEST_F(AppenderCalls, FailedCloseIsIgnoredAndNotRepeated)
{
    support::SystemCalls calls;
    calls.On("close", 0, [](const support::SystemCall& call) {
        ::close(call.fd);
        errno = EIO;
        return -1;
    });
    WriteNewFile(512);
    EXPECT_EQ(calls.Calls("close").size(), 1U);
    EXPECT_EQ(log_.Lines(), Lines{});
}

TEST_F(AppenderCalls, EveryReasonOfAFailedOpenIsReported)
{
    for (const int error : {EACCES, EPERM, EMFILE, EISDIR, ENOSPC, EROFS, ELOOP}) {
        support::SystemCalls calls;
        calls.Fail("open", error);
        const std::string reason = std::strerror(error);  // NOLINT(concurrency-mt-unsafe): there is one thread
        EXPECT_EQ(ErrorOfNewFile(64), "DataChunkFileAppender could not open file " + path_ + ": " + reason);
    }
    EXPECT_EQ(log_.Lines(), Lines{});
}

TEST_F(AppenderCalls, ReasonIsRightAlthoughAllocatingChangesErrno)
{
    path_ = folder_ / "none/a";
    support::Allocations allocations;
    allocations.DisturbErrno(EDOM);
    EXPECT_EQ(ErrorOfNewFile(64), "DataChunkFileAppender could not open file " + path_ + ": No such file or directory");
}

TEST_F(AppenderCalls, FailedConstructionLeavesNoDescriptor)
{
    const auto before = support::OpenDescriptors();
    path_ = folder_ / "none/a";
    EXPECT_NE(ErrorOfNewFile(64), "none");
    EXPECT_EQ(support::OpenDescriptors(), before);
    EXPECT_TRUE(folder_.Names().empty());
}

TEST_F(AppenderCalls, FailedAllocationInConstructionLeavesNeitherFileNorDescriptor)
{
    const auto before = support::OpenDescriptors();
    const auto expectNoFile = [this] { EXPECT_TRUE(folder_.Names().empty()); };
    EXPECT_GE(support::FailEveryAllocation([this] { NewFile(512); }, expectNoFile), 2U);
    EXPECT_EQ(support::OpenDescriptors(), before);
}

TEST_F(AppenderCalls, RefusedMappingIsAFailedAllocation)
{
    for (const std::uint64_t maxSize : {std::uint64_t{2} << 20U, std::uint64_t{64} << 20U}) {
        support::SystemCalls calls;
        calls.Fail("mmap", ENOMEM);
        EXPECT_THROW(NewFile(maxSize), std::bad_alloc);
        EXPECT_EQ(calls.Fired(), 1U);
    }
    EXPECT_TRUE(folder_.Names().empty());
}

TEST_F(AppenderCalls, RefusedGrowthLeavesAMappedImageAsItWas)
{
    const auto first = ChunkOfSize(1, 3'000'000);
    const auto second = ChunkOfSize(2, 5'000'000);
    for (const char* const call : {"mmap", "mremap"}) {
        {
            auto appender = NewFile(kUnbounded);
            EXPECT_TRUE(appender.Append(first));
            support::SystemCalls calls;
            calls.Fail(call, ENOMEM);
            EXPECT_THROW(std::ignore = appender.Append(second), std::bad_alloc);
            EXPECT_EQ(calls.Fired(), 1U);
        }
        EXPECT_TRUE(support::ReadFile(path_) == support::FileOf({first}, 0));
    }
}

TEST_F(AppenderCalls, FullDeviceIsLogged)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, whose device it is";
    }
    {
        const auto appender = support::NewFile("/dev/full", 512);
    }
    EXPECT_EQ(log_.Lines(), Lines{"50 Could not write 512B. Wrote instead: -1"});
}

TEST_F(AppenderCalls, FileSizeLimitTruncatesTheImage)
{
    const int result = support::RunInChild([this] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {300, 300};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        WriteNewFile(512);
        EXPECT_EQ(log_.Lines(), Lines{"50 Could not write 512B. Wrote instead: 300"});
    });
    EXPECT_EQ(result, 0);
}

TEST_F(AppenderCalls, ImageLongerThanOneWriteIsTruncated)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, whose device it is";
    }
    {
        const auto appender = support::NewFile("/dev/null", 3'000'000'000);
    }
    EXPECT_EQ(log_.Lines(), Lines{"50 Could not write 3000000000B. Wrote instead: 2147479552"});
}

TEST_F(AppenderCalls, AnotherUsersWritableFileIsNotPermitted)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to make another user's file";
    }
    support::WriteFile(path_, "");
    ASSERT_EQ(::chmod(path_.c_str(), 0666), 0);
    ASSERT_EQ(::chmod(folder_.Path().c_str(), 0777), 0);
    const int result = support::RunInChild([this] {
        support::BecomeUnprivileged();
        EXPECT_EQ(ErrorOfNewFile(64),
                  "DataChunkFileAppender could not open file " + path_ + ": Operation not permitted");
    });
    EXPECT_EQ(result, 0);
}

}  // namespace
