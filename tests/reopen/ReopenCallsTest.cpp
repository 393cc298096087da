#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <new>
#include <numeric>
#include <stdexcept>

#include "support/Allocations.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/SystemCalls.h"

namespace {

using support::ChunkOfSize;
using support::FileOf;
using support::kUnbounded;
using support::Lines;
using support::ReadFile;
using support::SystemCall;
using support::SystemCalls;

std::uint64_t TotalSize(const std::vector<SystemCall>& calls)
{
    return std::accumulate(calls.begin(), calls.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const SystemCall& call) { return sum + call.size; });
}

// Whatever fails while a file is reopened, its bytes stay the same.
class ReopenCalls : public support::ChunkFileTest, public testing::WithParamInterface<std::uint64_t> {
protected:
    ReopenCalls() { Write(FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 3000), ChunkOfSize(3, 40)})); }
    ~ReopenCalls() override
    {
        EXPECT_TRUE(ReadFile(path_) == file_);
        EXPECT_EQ(support::OpenDescriptors(), descriptors_);
        EXPECT_EQ(folder_.Names(), std::set<std::string>{"a"});
    }

    void Write(const std::string& file)
    {
        file_ = file;
        support::WriteFile(path_, file_);
        descriptors_ = support::OpenDescriptors();
    }

    // The image is bounded to exactly the file, or unbounded.
    std::uint64_t MaxSize() const { return GetParam() == 0 ? kUnbounded : file_.size(); }

    // The number of chunks that reopening finds; -1 if it throws. Then the file was not opened for writing.
    int Reopen(SystemCalls& calls) const
    {
        try {
            return static_cast<int>(Reopened(MaxSize()).GetTimePoints().size());
        } catch (const std::exception&) {
            for (const SystemCall& call : calls.Calls("open")) {
                EXPECT_EQ(call.flags, O_RDONLY);
            }
            return -1;
        }
    }

    // How often a reopening without failures makes this call.
    std::uint64_t CountCalls(const std::string& name) const
    {
        SystemCalls calls;
        EXPECT_EQ(Reopen(calls), 3);
        return calls.Calls(name).size();
    }

    support::LogCapture log_{41};
    std::string file_;
    std::set<int> descriptors_;
};

TEST_P(ReopenCalls, FileIsLoadedPlainlyBeforeItIsOpenedForWriting)
{
    SystemCalls calls;
    EXPECT_EQ(Reopen(calls), 3);
    const auto opens = calls.Calls("open");
    ASSERT_EQ(opens.size(), 2U);
    EXPECT_EQ(opens[0].flags, O_RDONLY);
    EXPECT_EQ(opens[1].flags, 0x40041);
    EXPECT_EQ(calls.Calls("close").at(0).fd, opens[0].result);
    EXPECT_EQ(calls.Calls("write").size(), 1U);
    EXPECT_EQ(calls.Calls("read").size(), 2U);  // the file, and its end
}

TEST_P(ReopenCalls, NothingElseIsAskedOfFiles)
{
    SystemCalls calls;
    EXPECT_EQ(Reopen(calls), 3);
    Lines names = calls.Names();
    std::erase_if(names, [](const std::string& name) { return name.front() == 'm'; });  // mappings
    EXPECT_EQ(names, (Lines{"open", "fstat", "read", "read", "close", "open", "write", "close"}));
}

TEST_P(ReopenCalls, RefusedFileIsNeitherOpenedForWritingNorWritten)
{
    for (const std::string& refused : {std::string(), std::string(15, 'x'), support::Word(3) + support::Word(0)}) {
        Write(refused);
        SystemCalls calls;
        EXPECT_EQ(Reopen(calls), -1);
        EXPECT_EQ(calls.Calls("open").size(), 1U);
        EXPECT_TRUE(calls.Calls("write").empty());
    }
}

TEST_P(ReopenCalls, FileWithoutChunksGivesEveryMappingBack)
{
    Write(support::Word(2) + support::Word(0));
    SystemCalls calls;
    EXPECT_EQ(Reopen(calls), 0);
    EXPECT_EQ(TotalSize(calls.Calls("mmap")), TotalSize(calls.Calls("munmap")));
    EXPECT_EQ(calls.Calls("mprotect").size(), 1U);  // the image alone: nothing is parsed, so the tail stays closed
}

TEST_P(ReopenCalls, LoadedBytesAreNotMappedAgain)
{
    Write(FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 3'000'000)}).substr(0, 2'500'000));
    SystemCalls calls;
    EXPECT_EQ(Reopen(calls), 1);
    for (const SystemCall& call : calls.Calls("madvise")) {
        EXPECT_EQ(call.flags, MADV_HUGEPAGE);
    }
}

TEST_P(ReopenCalls, InterruptedReadsAreRepeated)
{
    SystemCalls calls;
    calls.Fail("read", EINTR, 0);
    calls.Fail("read", EINTR, 1);
    EXPECT_EQ(Reopen(calls), 3);
    EXPECT_EQ(calls.Fired(), 2U);
}

TEST_P(ReopenCalls, ShortReadsAreContinued)
{
    for (const std::uint64_t size : {1U, 7U, 1000U}) {
        SystemCalls calls;
        calls.ShortenEach("read", size);
        EXPECT_EQ(Reopen(calls), 3);
        EXPECT_GE(calls.Fired(), 4U);
    }
}

TEST_P(ReopenCalls, LongFileIsReadWithOneCall)
{
    Write(FileOf({ChunkOfSize(1, 100'000)}));
    SystemCalls calls;
    EXPECT_EQ(Reopen(calls), 1);
    const auto reads = calls.Calls("read");
    ASSERT_EQ(reads.size(), 2U);
    EXPECT_EQ(reads[0].size, file_.size());
}

TEST_P(ReopenCalls, NoReadGoesBeyondTheImage)
{
    Write(FileOf({ChunkOfSize(1, 100'000)}));
    SystemCalls calls;
    calls.ShortenEach("read", 30'000);
    EXPECT_EQ(Reopen(calls), 1);
    const auto reads = calls.Calls("read");
    ASSERT_EQ(reads.size(), 5U);  // the last one asks for bytes past the image's end
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(reads[i].buffer, static_cast<const char*>(reads[0].buffer) + 30'000 * i);
        EXPECT_EQ(reads[i].size, file_.size() - 30'000 * i);
    }
}

TEST_P(ReopenCalls, ErrorOfAnyReadCountsAsAnEmptyFile)
{
    for (const int error : {EIO, EISDIR, EBADF, EAGAIN, ENOMEM, ESTALE}) {
        for (std::uint64_t nth = 0; nth < 4; ++nth) {
            SystemCalls calls;
            calls.Fail("read", error, nth);
            calls.ShortenEach("read", 1500);  // three reads, and the end
            EXPECT_EQ(ErrorOfReopening(MaxSize()), TooShort(0)) << error << " at read " << nth;
        }
    }
}

TEST_P(ReopenCalls, UnknownSizeCountsAsAnEmptyFile)
{
    SystemCalls calls;
    calls.Fail("fstat", EIO);
    EXPECT_EQ(Reopen(calls), -1);
    EXPECT_EQ(calls.Fired(), 1U);
}

TEST_P(ReopenCalls, FileThatReportsNoSizeIsReadToItsEnd)
{
    Write(FileOf({ChunkOfSize(1, 100'000), ChunkOfSize(2, 100'000), ChunkOfSize(3, 100'000)}));
    SystemCalls calls;
    calls.On("fstat", 0, [](const SystemCall& call) {
        auto* const status = static_cast<struct stat*>(const_cast<void*>(call.buffer));
        const int result = ::fstat(call.fd, status);
        status->st_size = 0;
        return result;
    });
    EXPECT_EQ(Reopen(calls), 3);
    EXPECT_EQ(calls.Fired(), 1U);
}

TEST_P(ReopenCalls, EveryRefusedMappingIsAFailedAllocationOrHarmless)
{
    for (const char* const name : {"mmap", "mremap", "mprotect", "munmap", "madvise"}) {
        const std::uint64_t number = CountCalls(name);
        for (std::uint64_t nth = 0; nth < number; ++nth) {
            SystemCalls calls;
            calls.Fail(name, ENOMEM, nth);
            const int found = Reopen(calls);
            EXPECT_EQ(calls.Fired(), 1U) << name << ' ' << nth;
            EXPECT_TRUE(found == 3 || found == -1) << name << ' ' << nth;
        }
    }
}

TEST_P(ReopenCalls, WithoutATailEachRecordIsReadFromTheFileFirst)
{
    SystemCalls calls;
    calls.Fail("mmap", ENOMEM);
    EXPECT_EQ(Reopen(calls), 3);
    std::vector<std::int64_t> positions;
    for (const SystemCall& call : calls.Calls("lseek64")) {
        positions.push_back(call.offset);
    }
    EXPECT_EQ(positions, (std::vector<std::int64_t>{16, 116, 3116}));
}

TEST_P(ReopenCalls, WithoutATailATruncatedRecordIsNotGood)
{
    Write(file_.substr(0, file_.size() - 1));
    SystemCalls calls;
    calls.Fail("mmap", ENOMEM);
    EXPECT_EQ(Reopen(calls), 2);
}

TEST_P(ReopenCalls, WithoutATailAFileThatCannotSeekIsNotShortened)
{
    SystemCalls calls;
    calls.Fail("mmap", ENOMEM);
    calls.Fail("lseek64", ESPIPE, 1);
    EXPECT_EQ(Reopen(calls), -1);
    EXPECT_EQ(calls.Fired(), 2U);
}

TEST_P(ReopenCalls, EveryFailedAllocationThrowsOrLoadsAll)
{
    const auto reopen = [this] { EXPECT_EQ(Reopened(MaxSize()).GetTimePoints().size(), 3U); };
    EXPECT_GE(support::FailEveryAllocation(reopen, [] {}), 9U);
}

TEST_P(ReopenCalls, NoMappingIsLeft)
{
    if (support::kSanitized) {
        GTEST_SKIP() << "sanitizers make mappings of their own";
    }
    Write(FileOf({ChunkOfSize(1, 5'000'000)}));
    const auto mappings = [] {
        std::ifstream maps("/proc/self/maps");
        std::uint64_t large = 0;
        for (std::string line; std::getline(maps, line);) {
            const auto dash = line.find('-');
            const auto from = std::stoull(line.substr(0, dash), nullptr, 16);
            const auto to = std::stoull(line.substr(dash + 1), nullptr, 16);
            large += to - from > 60'000'000 && line.find('/') == std::string::npos ? 1U : 0U;
        }
        return large;
    };
    const std::uint64_t before = mappings();
    {
        const auto appender = Reopened(MaxSize());
        EXPECT_EQ(mappings(), before);  // the walk has removed its tail
    }
    EXPECT_EQ(mappings(), before);
}

INSTANTIATE_TEST_SUITE_P(BoundedAndUnbounded, ReopenCalls, testing::Values(1, 0),
                         [](const auto& parameter) { return parameter.param == 0 ? "Unbounded" : "Bounded"; });

TEST(ReopenLongFile, IsReadNoFurtherThanTheBoundedImage)
{
    const support::TemporaryFolder folder;
    const std::string path = folder / "a";
    support::WriteFile(path, FileOf({ChunkOfSize(1, 3'000'000)}));
    const SystemCalls calls;
    EXPECT_THROW(support::Reopened(path, 512), std::runtime_error);
    ASSERT_EQ(calls.Calls("read").size(), 1U);
    EXPECT_EQ(calls.Calls("read")[0].size, 512U);
}

TEST(ReopenGrowingFile, IsReadToTheEndItHasThen)
{
    const support::TemporaryFolder folder;
    const std::string path = folder / "a";
    const std::string whole = FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 9000)});
    support::WriteFile(path, whole.substr(0, 200));
    {
        SystemCalls calls;
        calls.On("read", 0, [&](const SystemCall&) -> std::optional<std::int64_t> {
            support::WriteFile(path, whole);
            return std::nullopt;
        });
        const auto appender = support::Reopened(path, kUnbounded);
        EXPECT_EQ(appender.GetTimePoints().size(), 2U);
    }
    EXPECT_TRUE(ReadFile(path) == whole);
}

TEST(ReopenShrinkingFile, IsAsLongAsWhatCouldBeRead)
{
    const support::TemporaryFolder folder;
    const support::LogCapture log(51);
    const std::string path = folder / "a";
    const std::string whole = FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 9000)});
    support::WriteFile(path, whole);
    {
        SystemCalls calls;
        calls.On("read", 0, [&](const SystemCall&) -> std::optional<std::int64_t> {
            support::WriteFile(path, whole.substr(0, 200));
            return std::nullopt;
        });
        const auto appender = support::Reopened(path, kUnbounded);
        EXPECT_EQ(appender.GetTimePoints().size(), 1U);
    }
    EXPECT_TRUE(ReadFile(path) == whole.substr(0, 200));
}

}  // namespace
