#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <numeric>

#include "Corvane/File/DataChunkFileScanner.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/SystemCalls.h"

namespace {

using Corvane::File::DataChunkFileScanner;
using support::ChunkOfSize;
using support::DataChunk;
using support::FileOf;
using support::Lines;
using support::SystemCalls;
using End = DataChunkFileScanner::End;

class ScannerCalls : public support::ChunkFileTest {
protected:
    // A file of chunks of this size, whose times are their indices.
    void Put(std::size_t count, std::uint64_t size) const
    {
        std::vector<DataChunk> chunks;
        chunks.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            chunks.push_back(ChunkOfSize(static_cast<std::int64_t>(i), size));
        }
        support::WriteFile(path_, FileOf(chunks));
    }

    static std::vector<std::int64_t> Walk(DataChunkFileScanner& scanner)
    {
        std::vector<std::int64_t> times;
        while (scanner.Next()) {
            times.push_back(scanner.GetChunk().GetTimePoint().Nanoseconds());
        }
        return times;
    }

    // Reads the records that come through the descriptor, and one more: from now on there is a window.
    static void ReadUpToWindow(DataChunkFileScanner& scanner)
    {
        for (int i = 0; i < 17; ++i) {
            ASSERT_TRUE(scanner.Next());
        }
    }

    static std::vector<std::int64_t> Times(std::size_t count)
    {
        std::vector<std::int64_t> times(count);
        std::iota(times.begin(), times.end(), 0);
        return times;
    }

    // The sizes of the reads into a window.
    static std::vector<std::uint64_t> Windows(const SystemCalls& calls)
    {
        std::vector<std::uint64_t> sizes;
        for (const auto& call : calls.Calls("pread")) {
            if (call.size > 16) {
                sizes.push_back(call.size);
            }
        }
        return sizes;
    }

    std::string Error(const std::string& step, const std::string& reason) const
    {
        return "DataChunkFileScanner: file " + path_ + ": " + step + ": " + reason;
    }
};

TEST_F(ScannerCalls, OpeningTakesOneOpenOneReadAndOneClose)
{
    Put(1, 100);
    const SystemCalls calls;
    {
        const DataChunkFileScanner scanner(path_);
    }
    ASSERT_EQ(calls.Names(), (Lines{"open", "pread", "close"}));
    EXPECT_EQ(calls.Calls()[0].flags, O_RDONLY | O_CLOEXEC | O_NOATIME);
    EXPECT_EQ(calls.Calls()[1].size, 16U);
    EXPECT_EQ(calls.Calls()[2].fd, calls.Calls()[0].result);
}

TEST_F(ScannerCalls, FileThatMayNotKeepItsAccessTimeIsOpenedAllTheSame)
{
    Put(1, 100);
    SystemCalls calls;
    calls.Fail("open", EPERM);
    DataChunkFileScanner scanner(path_);
    EXPECT_EQ(Walk(scanner), Times(1));
    EXPECT_EQ(calls.Calls("open").at(1).flags, O_RDONLY | O_CLOEXEC);
}

TEST_F(ScannerCalls, OtherErrorsOfOpenAreThrown)
{
    Put(1, 100);
    SystemCalls calls;
    calls.Fail("open", EACCES);
    EXPECT_EQ(support::ErrorOf([this] { DataChunkFileScanner{path_}; }), Error("open", "Permission denied"));
    EXPECT_EQ(calls.Calls("open").size(), 1U);
}

// The chunk reads twice, as with a reader; the last read sees that the record lies within the file.
TEST_F(ScannerCalls, FirstRecordComesThroughTheDescriptorWithoutAnyMapping)
{
    Put(1, 100);
    DataChunkFileScanner scanner(path_);
    const SystemCalls calls;
    EXPECT_EQ(Walk(scanner), Times(1));
    EXPECT_EQ(calls.Names(), (Lines{"lseek64", "read", "read", "pread"}));
    EXPECT_EQ(calls.Calls()[0].offset, 16);
}

TEST_F(ScannerCalls, WindowDoublesInOrder)
{
    Put(20'000, 64);
    DataChunkFileScanner scanner(path_);
    const SystemCalls calls;
    EXPECT_EQ(Walk(scanner), Times(20'000));
    std::vector<std::uint64_t> windows = Windows(calls);
    windows.resize(5);
    EXPECT_EQ(windows, (std::vector<std::uint64_t>{65536, 131072, 262144, 262144, 262144}));
    EXPECT_LE(calls.Calls().size(), 16 * 4 + 7 + 8U);
}

TEST_F(ScannerCalls, WindowHoldsAWholeNumberOfRecordsLikeTheLastOne)
{
    Put(28, 100'000);
    DataChunkFileScanner scanner(path_);
    const SystemCalls calls;
    EXPECT_EQ(Walk(scanner), Times(28));
    EXPECT_EQ(Windows(calls).at(0), 100'000U);
    EXPECT_EQ(Windows(calls).at(1), 100'000U);
    EXPECT_EQ(Windows(calls).at(2), 200'000U);
    EXPECT_EQ(Windows(calls).at(3), 200'000U);
}

TEST_F(ScannerCalls, RecordsLongerThan256KiBComeThroughTheDescriptor)
{
    Put(20, (1 << 18U) + 1);
    DataChunkFileScanner scanner(path_);
    const SystemCalls calls;
    EXPECT_EQ(Walk(scanner), Times(20));
    EXPECT_EQ(Windows(calls), std::vector<std::uint64_t>{});
    EXPECT_EQ(calls.Calls("mmap").size(), 0U);
}

TEST_F(ScannerCalls, JumpReadsOneRecord)
{
    Put(1000, 100);
    DataChunkFileScanner scanner(path_);
    ReadUpToWindow(scanner);
    scanner.GoTo(16 + 100 * 700);
    const SystemCalls calls;
    EXPECT_TRUE(scanner.Next());
    EXPECT_EQ(scanner.GetChunk().GetTimePoint().Nanoseconds(), 700);
    ASSERT_EQ(calls.Names(), Lines{"pread"});
    EXPECT_EQ(calls.Calls()[0].size, 100U);
}

// The window then has all that is left, even if that is less than the last record.
TEST_F(ScannerCalls, WindowThatEndsWithTheFileIsReadToItsEnd)
{
    std::vector<DataChunk> chunks;
    chunks.reserve(20);
    for (int i = 0; i < 20; ++i) {
        chunks.push_back(ChunkOfSize(i, i % 2 == 0 ? 100 : 40));
    }
    support::WriteFile(path_, FileOf(chunks));
    DataChunkFileScanner scanner(path_);
    const SystemCalls calls;
    EXPECT_EQ(Walk(scanner), Times(20));
    EXPECT_EQ(Windows(calls).size(), 2U);  // the second met the end of the file
}

TEST_F(ScannerCalls, InterruptedReadsAreRepeated)
{
    Put(3, 100);
    SystemCalls calls;
    calls.Fail("pread", EINTR, 0);
    calls.Fail("pread", EINTR, 3);
    DataChunkFileScanner scanner(path_);
    EXPECT_EQ(Walk(scanner), Times(3));
    EXPECT_EQ(calls.Fired(), 2U);
}

TEST_F(ScannerCalls, ShortReadsAreContinued)
{
    Put(300, 100);
    SystemCalls calls;
    calls.ShortenEach("pread", 7);
    DataChunkFileScanner scanner(path_);
    EXPECT_EQ(Walk(scanner), Times(300));
}

TEST_F(ScannerCalls, ReadErrorOfTheHeaderIsThrown)
{
    Put(1, 100);
    SystemCalls calls;
    calls.Shorten("pread", 8);
    calls.Fail("pread", EIO, 1);
    EXPECT_EQ(support::ErrorOf([this] { DataChunkFileScanner{path_}; }), Error("read at byte 8", "Input/output error"));
}

TEST_F(ScannerCalls, ReadErrorIsNeitherDamageNorTheEndOfTheFile)
{
    Put(30, 100);
    DataChunkFileScanner scanner(path_);
    ReadUpToWindow(scanner);
    scanner.GoTo(116);
    SystemCalls calls;
    calls.Fail("pread", EIO);
    EXPECT_EQ(support::ErrorOf([&] { scanner.Next(); }), Error("read at byte 116", "Input/output error"));
    EXPECT_EQ(scanner.GetPosition(), 116U);
    EXPECT_EQ(Walk(scanner).size(), 29U);  // it was a passing error
}

// The records before the error are given. It is an error only when the bytes after it are needed.
TEST_F(ScannerCalls, ReadErrorAfterSomeRecordsComesWhenItsBytesAreNeeded)
{
    Put(1000, 100);
    DataChunkFileScanner scanner(path_);
    ReadUpToWindow(scanner);
    scanner.GoTo(116);
    SystemCalls calls;
    calls.OnEach("pread", [](const support::SystemCall& call) -> std::optional<std::int64_t> {
        constexpr std::int64_t kBad = 16 + 550;
        if (call.offset >= kBad) {
            errno = EIO;
            return -1;
        }
        return ::pread(call.fd, const_cast<void*>(call.buffer),
                       std::min<std::size_t>(call.size, static_cast<std::size_t>(kBad - call.offset)), call.offset);
    });
    for (int i = 1; i < 5; ++i) {
        EXPECT_TRUE(scanner.Next());
    }
    EXPECT_EQ(support::ErrorOf([&] { scanner.Next(); }), Error("read at byte 566", "Input/output error"));
    EXPECT_EQ(scanner.GetPosition(), 516U);
    EXPECT_EQ(support::ErrorOf([&] { scanner.FindNext(); }), Error("read at byte 566", "Input/output error"));
    EXPECT_EQ(scanner.GetPosition(), 566U);
}

TEST_F(ScannerCalls, ErrorOfTheFirstSeekIsThrown)
{
    Put(1, 100);
    DataChunkFileScanner scanner(path_);
    SystemCalls calls;
    calls.Fail("lseek64", EOVERFLOW);
    EXPECT_EQ(support::ErrorOf([&] { scanner.Next(); }),
              Error("seek to byte 16", "Value too large for defined data type"));
    EXPECT_EQ(Walk(scanner), Times(1));
}

TEST_F(ScannerCalls, ReadErrorInsideTheChunkIsWhatTheChunkMakesOfIt)
{
    Put(2, 100);
    DataChunkFileScanner scanner(path_);
    SystemCalls calls;
    calls.Fail("read", EIO);
    EXPECT_FALSE(scanner.Next());
    EXPECT_EQ(scanner.GetEnd(), End::BadRecord);
    EXPECT_EQ(Walk(scanner), Times(2));
}

TEST_F(ScannerCalls, PipeIsAnError)
{
    int ends[2] = {};
    ASSERT_EQ(::pipe(ends), 0);
    const std::string path = "/proc/self/fd/" + std::to_string(ends[0]);
    EXPECT_EQ(support::ErrorOf([&] { DataChunkFileScanner{path}; }),
              "DataChunkFileScanner: file " + path + ": read at byte 0: Illegal seek");
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(ScannerCalls, JumpToALongRecordGoesThroughTheDescriptor)
{
    Put(20, (1 << 14U) + 1);
    DataChunkFileScanner scanner(path_);
    ReadUpToWindow(scanner);
    scanner.GoTo(16);
    const SystemCalls calls;
    EXPECT_TRUE(scanner.Next());
    EXPECT_EQ(calls.Names(), (Lines{"lseek64", "read", "read", "pread"}));
    EXPECT_EQ(Windows(calls), std::vector<std::uint64_t>{});
    EXPECT_TRUE(scanner.Next());
    EXPECT_EQ(Windows(calls), std::vector<std::uint64_t>{3 * ((std::uint64_t{1} << 14U) + 1)});
}

// The longest of the last 64 to 128 records decides.
TEST_F(ScannerCalls, JumpForgetsALongRecordAfterAWhile)
{
    std::vector<DataChunk> chunks = {ChunkOfSize(0, 3000)};
    for (int i = 1; i < 10; ++i) {
        chunks.push_back(ChunkOfSize(i, 100));
    }
    support::WriteFile(path_, FileOf(chunks));
    DataChunkFileScanner scanner(path_);
    const SystemCalls calls;
    for (int i = 0; i < 160; ++i) {
        scanner.GoTo(i == 0 ? 16U : 3016U);
        ASSERT_TRUE(scanner.Next());
        const auto windows = Windows(calls);
        EXPECT_TRUE(i < 17 || i > 64 || windows.back() == 3000 - 900 || windows[windows.size() - 2] == 3000) << i;
        EXPECT_TRUE(i < 130 || windows.back() == 100) << i;
    }
}

// Whatever keeps the tail away, all records come through the descriptor, and a search too.
class WithoutTail : public ScannerCalls, public testing::WithParamInterface<std::pair<const char*, std::uint64_t>> {};

TEST_P(WithoutTail, WalkAndSearchGiveTheSame)
{
    Put(50, 100);
    std::string file = support::ReadFile(path_);
    file[3016] = 'x';
    support::WriteFile(path_, file);
    SystemCalls calls;
    const auto [name, nth] = GetParam();
    for (std::uint64_t i = nth; i < nth + 20; ++i) {
        calls.Fail(name, ENOMEM, i);
    }
    {
        DataChunkFileScanner scanner(path_);
        EXPECT_EQ(Walk(scanner), Times(30));
        EXPECT_EQ(scanner.GetEnd(), End::BadRecord);
        ASSERT_TRUE(scanner.FindNext());
        EXPECT_EQ(scanner.GetPosition(), 3116U);
        EXPECT_EQ(Walk(scanner).size(), 19U);
        EXPECT_EQ(scanner.GetEnd(), End::EndOfFile);
        EXPECT_FALSE(scanner.FindNext());
    }
    EXPECT_EQ(calls.Fired(), 1U) << "it is tried once";
}

INSTANTIATE_TEST_SUITE_P(Each, WithoutTail,
                         testing::Values(std::pair("mmap", 0), std::pair("mprotect", 0), std::pair("mprotect", 1)),
                         [](const auto& parameter) {
                             return parameter.param.first + std::to_string(parameter.param.second);
                         });

}  // namespace
