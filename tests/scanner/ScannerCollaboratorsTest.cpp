#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "Corvane/File/DataChunkFileScanner.h"
#include "support/Allocations.h"
#include "support/ChunkFileTest.h"
#include "support/Files.h"
#include "support/Records.h"
#include "support/SystemCalls.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::File::DataChunkFileScanner;
using Corvane::Pellin::DataChunk;
using support::kUnbounded;
using support::Throw;
using support::Thrown;
using support::Word;
using End = DataChunkFileScanner::End;

class ScannerCollaborators : public support::ChunkFileTest {
protected:
    ~ScannerCollaborators() override { EXPECT_EQ(support::OpenDescriptors(), descriptors_); }

    // Chunks with these record sizes; the header counts `count`.
    void Put(const std::vector<std::uint64_t>& sizes, std::uint64_t count) const
    {
        std::string file = Word(2) + Word(count);
        std::int64_t time = 0;
        for (const std::uint64_t size : sizes) {
            file += support::RecordOf(DataChunk(++time, size));
        }
        support::WriteFile(path_, file);
    }

    static std::uint64_t Walk(DataChunkFileScanner& scanner)
    {
        std::uint64_t count = 0;
        while (scanner.Next()) {
            ++count;
        }
        return count;
    }

    // Where an unbounded reopening ends: the number of good records.
    std::uint64_t GoodForReopening() const { return Reopened(kUnbounded).GetTimePoints().size(); }

    support::ScriptedPlatform platform_;
    std::set<int> descriptors_ = support::OpenDescriptors();
};

// Every record is good and has the size that the script gives it, from memory and through the descriptor.
void Script(const std::function<std::uint64_t(int)>& sizeOfRecord)
{
    DataChunk::parse = [sizeOfRecord, number = 0](DataChunk& chunk, const unsigned char*) mutable {
        chunk.Become(number + 1, sizeOfRecord(number));
        ++number;
        return std::uint64_t{1};
    };
}

TEST_F(ScannerCollaborators, EachRecordGetsAChunkOfItsOwnAndTheOneBeforeIsGone)
{
    Put(std::vector<std::uint64_t>(5000, 100), 5000);
    DataChunkFileScanner scanner(path_);
    DataChunk::mostAlive = DataChunk::alive;
    const int before = DataChunk::alive;
    EXPECT_EQ(Walk(scanner), 5000U);
    EXPECT_EQ(DataChunk::mostAlive, before + 1);
    EXPECT_EQ(DataChunk::alive, before);
}

TEST_F(ScannerCollaborators, ChunkIsReadOnce)
{
    Put(std::vector<std::uint64_t>(10, 100), 10);
    DataChunkFileScanner scanner(path_);
    int reads = 0;
    DataChunk::onReadFrom = [&] { ++reads; };
    EXPECT_EQ(Walk(scanner), 10U);
    EXPECT_EQ(reads, 10);
}

TEST_F(ScannerCollaborators, NoTimePointIsAskedForAndNoLoggerLookedUp)
{
    Put({100, 100}, 2);
    DataChunk::onGetTimePoint = Throw;
    tarn::cv::logging::LoggingManager::onLookUp = Throw;
    DataChunkFileScanner scanner(path_);
    EXPECT_EQ(Walk(scanner), 2U);
    EXPECT_FALSE(scanner.FindNext());
    EXPECT_THROW(DataChunkFileScanner{folder_ / "none"}, std::runtime_error);
}

TEST_F(ScannerCollaborators, ThrowingChunkLeavesTheWalkWhereItWas)
{
    Put(std::vector<std::uint64_t>(30, 100), 30);
    for (auto* const function : {&DataChunk::onReadFrom, &DataChunk::onGetSizeOnFile}) {
        DataChunkFileScanner scanner(path_);
        for (std::uint64_t position = 16; position < 3016; position += 100) {
            *function = Throw;
            EXPECT_THROW(scanner.Next(), Thrown);
            *function = nullptr;
            EXPECT_TRUE(scanner.Next());
            EXPECT_EQ(scanner.GetPosition(), position);
        }
        EXPECT_FALSE(scanner.Next());
        EXPECT_EQ(scanner.GetNumberRead(), 30U);
    }
}

TEST_F(ScannerCollaborators, EveryFailedAllocationLeavesTheWalkWhereItWas)
{
    Put({100, 100, 100}, 3);
    const auto readAll = [this] {
        DataChunkFileScanner scanner(path_);
        EXPECT_EQ(Walk(scanner), 3U);
    };
    const auto expectClosed = [this] { EXPECT_EQ(support::OpenDescriptors(), descriptors_); };
    EXPECT_GE(support::FailEveryAllocation(readAll, expectClosed), 1U);
}

TEST_F(ScannerCollaborators, RecordsWithoutLengthEndWhereAReopeningEnds)
{
    for (const std::uint64_t count : {std::uint64_t{3}, std::uint64_t{100}, std::uint64_t{101}, UINT64_MAX}) {
        support::WriteFile(path_, Word(2) + Word(count) + std::string(100, 'x'));
        Script([](int) { return 0; });
        const std::uint64_t expected = GoodForReopening();
        Script([](int) { return 1; });
        DataChunkFileScanner scanner(path_);
        ASSERT_TRUE(scanner.FindNext());  // so that the window is there: only memory is scripted
        scanner.GoTo(16, count);
        Script([](int) { return 0; });
        EXPECT_EQ(Walk(scanner), expected);
        EXPECT_EQ(scanner.GetEnd(), count <= 100 ? End::AllRead : End::BadRecord);
        EXPECT_EQ(scanner.GetPosition(), 16U);
    }
}

// One after the other without length, then some with: more records than bytes are never good.
TEST_F(ScannerCollaborators, RecordsWithAndWithoutLengthEndWhereAReopeningEnds)
{
    for (const int without : {1, 50, 98, 99, 100}) {
        const auto sizes = [without](int number) { return std::uint64_t{number < without ? 0U : 1U}; };
        support::WriteFile(path_, Word(2) + Word(UINT64_MAX) + std::string(100, 'x'));
        Script(sizes);
        const std::uint64_t expected = GoodForReopening();
        DataChunkFileScanner scanner(path_);
        Script([](int) { return 1; });
        ASSERT_TRUE(scanner.FindNext());
        scanner.GoTo(16);
        Script(sizes);
        EXPECT_EQ(Walk(scanner), expected);
    }
}

TEST_F(ScannerCollaborators, RecordWithoutLengthAtTheEndOfTheFileIsNoRecord)
{
    support::WriteFile(path_, Word(2) + Word(1));
    Script([](int) { return 0; });
    DataChunkFileScanner scanner(path_);
    EXPECT_FALSE(scanner.Next());
    EXPECT_EQ(scanner.GetEnd(), End::EndOfFile);
    EXPECT_FALSE(scanner.FindNext());
}

// Through the descriptor the scripted chunk reads its head alone, wherever it claims to end.
TEST_F(ScannerCollaborators, RecordThatEndsPastTheFileIsBad)
{
    for (const std::uint64_t size : {std::uint64_t{101}, std::uint64_t{1} << 40U, std::uint64_t{INT64_MAX} - 16,
                                     std::uint64_t{INT64_MAX}, UINT64_MAX - 16, UINT64_MAX}) {
        for (const std::uint64_t before : {0U, 1U, 5U, 20U}) {
            Put(std::vector<std::uint64_t>(before + 1, 100), before + 1);
            std::string file = support::ReadFile(path_);
            file.replace(16 + 100 * before + 8, 8, Word(size));
            support::WriteFile(path_, file);
            DataChunkFileScanner scanner(path_);
            EXPECT_EQ(Walk(scanner), before);
            EXPECT_EQ(scanner.GetEnd(), End::BadRecord);
            EXPECT_EQ(scanner.GetPosition(), 16 + 100 * before);
        }
    }
}

// A type without checksums is found wherever it parses, within what the search has in memory.
TEST_F(ScannerCollaborators, SearchBelievesTheChunk)
{
    support::WriteFile(path_, Word(2) + Word(0) + std::string(100, 'x'));
    Script([](int number) { return std::uint64_t{number < 3 ? 200U : 90U}; });
    DataChunkFileScanner scanner(path_);
    ASSERT_TRUE(scanner.FindNext());
    EXPECT_EQ(scanner.GetPosition(), 19U);
}

TEST_F(ScannerCollaborators, ZerosFollowTheFilesLastByteWhateverWasReadBefore)
{
    Put(std::vector<std::uint64_t>(30, 100), 30);
    DataChunkFileScanner scanner(path_);
    ASSERT_TRUE(scanner.FindNext());
    ASSERT_TRUE(scanner.Next());
    scanner.GoTo(116);
    ASSERT_TRUE(scanner.Next());
    support::WriteFile(path_, support::ReadFile(path_).substr(0, 166));
    int parsed = 0;
    DataChunk::parse = [&](DataChunk&, const unsigned char* record) {
        ++parsed;
        EXPECT_EQ(std::count(record + 50, record + 5000, 0), 4950);
        return std::uint64_t{0};
    };
    scanner.GoTo(116);
    EXPECT_FALSE(scanner.Next());
    EXPECT_EQ(parsed, 1);
}

// Otherwise a search would find the same position again and again.
TEST_F(ScannerCollaborators, SearchFindsNoRecordWithoutLength)
{
    support::WriteFile(path_, Word(2) + Word(0) + std::string(100, 'x'));
    Script([](int number) { return std::uint64_t{number < 60 ? 0U : 1U}; });
    DataChunkFileScanner scanner(path_);
    ASSERT_TRUE(scanner.FindNext());
    EXPECT_EQ(scanner.GetPosition(), 76U);
}

TEST_F(ScannerCollaborators, SearchTriesEveryByteOnceWithAMebibyteAfterIt)
{
    constexpr std::uint64_t kMebibyte = 1 << 20U;
    std::string file = Word(2) + Word(0);
    for (std::uint64_t i = 0; i < 3 * kMebibyte / 8; ++i) {
        file += Word(i);
    }
    support::WriteFile(path_, file);
    DataChunkFileScanner scanner(path_);
    std::uint64_t tried = 16;
    DataChunk::parse = [&](DataChunk&, const unsigned char* record) {
        const std::uint64_t ahead = std::min<std::uint64_t>(kMebibyte, file.size() - tried);
        if (tried % 1009 == 0 || file.size() - tried < 100) {
            EXPECT_EQ(std::memcmp(record, file.data() + tried, ahead), 0) << tried;
            EXPECT_TRUE(ahead == kMebibyte || record[ahead] == 0);
        }
        ++tried;
        return std::uint64_t{0};
    };
    EXPECT_FALSE(scanner.FindNext());
    EXPECT_EQ(tried, file.size());
}

TEST_F(ScannerCollaborators, ErrorOfTheFilesLengthIsThrown)
{
    support::WriteFile(path_, Word(2) + Word(9) + std::string(100, 'x'));
    Script([](int) { return 1; });
    DataChunkFileScanner scanner(path_);
    ASSERT_TRUE(scanner.FindNext());
    Script([](int) { return 0; });
    support::SystemCalls calls;
    calls.Fail("fstat", EIO);
    EXPECT_EQ(support::ErrorOf([&] { scanner.Next(); }),
              "DataChunkFileScanner: file " + path_ + ": fstat: Input/output error");
}

}  // namespace
