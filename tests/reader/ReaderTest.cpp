#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <type_traits>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using Corvane::File::DataChunkFileReader;
using support::ChunkOfSize;
using support::DataChunk;
using support::kUnbounded;
using support::Lines;
using support::Word;

static_assert(!std::is_copy_constructible_v<DataChunkFileReader>);
static_assert(!std::is_copy_assignable_v<DataChunkFileReader>);
static_assert(!std::is_move_constructible_v<DataChunkFileReader>);
static_assert(!std::is_move_assignable_v<DataChunkFileReader>);
static_assert(std::has_virtual_destructor_v<DataChunkFileReader>);

class Reader : public support::ChunkFileTest {
protected:
    std::string ErrorOfReader() const
    {
        return support::ErrorOf([this] { DataChunkFileReader{path_}; });
    }

    support::LogCapture log_;
};

TEST_F(Reader, WalkGivesEveryChunkBack)
{
    WriteNewFile(4096, {ChunkOfSize(3, 100), ChunkOfSize(1, 40), ChunkOfSize(2, 200)});
    DataChunkFileReader reader(path_);
    EXPECT_EQ(reader.GetVersion(), 2U);
    ASSERT_EQ(reader.GetNumberOfChunks(), 3U);
    std::uint64_t position = Corvane::File::kHeaderSize;
    for (const auto& expected : {ChunkOfSize(3, 100), ChunkOfSize(1, 40), ChunkOfSize(2, 200)}) {
        DataChunk chunk;
        EXPECT_EQ(reader.GetChunk(chunk, position), expected.GetSizeOnFile());
        EXPECT_EQ(support::RecordOf(chunk), support::RecordOf(expected));
        position += chunk.GetSizeOnFile();
    }
    EXPECT_EQ(position, 356U);
}

TEST_F(Reader, RecordsCanBeFetchedInAnyOrder)
{
    WriteNewFile(4096, {ChunkOfSize(1, 100), ChunkOfSize(2, 200)});
    DataChunkFileReader reader(path_);
    DataChunk chunk;
    EXPECT_EQ(reader.GetChunk(chunk, 116), 200U);
    EXPECT_EQ(chunk.GetTimePoint().Nanoseconds(), 2);
    EXPECT_EQ(reader.GetChunk(chunk, 16), 100U);
    EXPECT_EQ(chunk.GetTimePoint().Nanoseconds(), 1);
}

TEST_F(Reader, NamesChooseTheFieldsToRead)
{
    DataChunk chunk{Corvane::Time::TimePoint(7)};
    chunk.Set("a", "alpha");
    chunk.Set("b", "beta");
    WriteNewFile(kUnbounded, {chunk});
    DataChunkFileReader reader(path_);
    DataChunk part;
    EXPECT_EQ(reader.GetChunk(part, 16, {"b"}), chunk.GetSizeOnFile());
    EXPECT_EQ(part.Fields(), (std::map<std::string, std::string>{{"b", "beta"}}));
    EXPECT_EQ(part.GetSizeOnFile(), chunk.GetSizeOnFile());
}

TEST_F(Reader, FileWrittenUnboundedHasVersionZero)
{
    WriteNewFile(kUnbounded, {ChunkOfSize(1, 100)});
    const DataChunkFileReader reader(path_);
    EXPECT_EQ(reader.GetVersion(), 0U);
    EXPECT_EQ(reader.GetNumberOfChunks(), 1U);
}

TEST_F(Reader, HeaderAloneIsAnEmptyChunkFile)
{
    support::WriteFile(path_, Word(2) + Word(0));
    const DataChunkFileReader reader(path_);
    EXPECT_EQ(reader.GetVersion(), 2U);
    EXPECT_EQ(reader.GetNumberOfChunks(), 0U);
    EXPECT_EQ(reader.GetFilename(), path_);
}

TEST_F(Reader, AnyVersionAndCountIsAccepted)
{
    support::WriteFile(path_, Word(UINT64_MAX) + Word(UINT64_MAX - 1));
    const DataChunkFileReader reader(path_);
    EXPECT_EQ(reader.GetVersion(), UINT64_MAX);
    EXPECT_EQ(reader.GetNumberOfChunks(), UINT64_MAX - 1);
}

TEST_F(Reader, MissingBytesOfTheHeaderAreZero)
{
    const std::string header = Word(0x0102030405060708) + Word(0x1112131415161718);
    for (std::size_t length = 0; length <= header.size(); ++length) {
        support::WriteFile(path_, header.substr(0, length));
        const std::string expected = header.substr(0, length) + std::string(header.size() - length, '\0');
        const DataChunkFileReader reader(path_);
        EXPECT_EQ(Word(reader.GetVersion()) + Word(reader.GetNumberOfChunks()), expected);
    }
}

TEST_F(Reader, CountStaysWhatItWasWhenTheFileIsRewritten)
{
    WriteNewFile(4096, {ChunkOfSize(1, 100)});
    const DataChunkFileReader reader(path_);
    WriteNewFile(4096, {ChunkOfSize(1, 100), ChunkOfSize(2, 100)});
    EXPECT_EQ(reader.GetNumberOfChunks(), 1U);
}

TEST_F(Reader, PositionsThatAreNoRecordsReadNothing)
{
    WriteNewFile(300, {ChunkOfSize(1, 100)});
    DataChunkFileReader reader(path_);
    DataChunk chunk = ChunkOfSize(9, 60);
    for (const std::uint64_t position : {0U, 15U, 17U, 116U, 299U, 300U, 100000U}) {
        EXPECT_EQ(reader.GetChunk(chunk, position), 0U);
        EXPECT_EQ(support::RecordOf(chunk), support::RecordOf(ChunkOfSize(9, 60)));
    }
}

TEST_F(Reader, PositionThatCannotBeSoughtReadsAtTheCurrentOne)
{
    WriteNewFile(300, {ChunkOfSize(1, 100), ChunkOfSize(2, 100)});
    DataChunkFileReader reader(path_);
    DataChunk chunk;
    EXPECT_EQ(reader.GetChunk(chunk, std::uint64_t{1} << 63U), 100U);  // at the end of the header
    EXPECT_EQ(chunk.GetTimePoint().Nanoseconds(), 1);
    EXPECT_EQ(reader.GetChunk(chunk, UINT64_MAX), 100U);
    EXPECT_EQ(chunk.GetTimePoint().Nanoseconds(), 2);
}

TEST_F(Reader, OpenedFileIsLoggedAtLevel10)
{
    WriteNewFile(300, {ChunkOfSize(1, 100)});
    log_.Clear();
    support::LogCapture::SetLevel(11);
    EXPECT_EQ(DataChunkFileReader(path_).GetNumberOfChunks(), 1U);
    EXPECT_EQ(log_.Lines(), Lines{});
    support::LogCapture::SetLevel(10);
    EXPECT_EQ(DataChunkFileReader(path_).GetNumberOfChunks(), 1U);
    EXPECT_EQ(log_.Lines(), Lines{"10 " + path_ + " opened, contains 1 chunks on version 2"});
}

TEST_F(Reader, MissingFileIsLoggedAtLevel50AndThrown)
{
    const std::string text = "DataChunkFileReader could not open file " + path_;
    support::LogCapture::SetLevel(50);
    EXPECT_EQ(ErrorOfReader(), text);
    EXPECT_EQ(log_.Lines(), Lines{"50 " + text});
    support::LogCapture::SetLevel(51);
    EXPECT_EQ(ErrorOfReader(), text);
    EXPECT_EQ(log_.Lines().size(), 1U);
    EXPECT_TRUE(folder_.Names().empty());
}

TEST_F(Reader, Level11KeepsOpensOutAndFailuresIn)
{
    support::LogCapture::SetLevel(11);
    EXPECT_NE(ErrorOfReader(), "none");
    EXPECT_EQ(log_.Lines().size(), 1U);
}

TEST_F(Reader, LogEntryNamesTheLoggerAndTheIssuingLine)
{
    EXPECT_NE(ErrorOfReader(), "none");
    support::WriteFile(path_, "");
    EXPECT_EQ(ErrorOfReader(), "none");
    const auto entries = log_.Entries();
    ASSERT_EQ(entries.size(), 2U);
    for (const auto& entry : entries) {
        EXPECT_EQ(entry.logger, "DataChunkFileReader");
        EXPECT_EQ(entry.file, "Corvane/Common/libFile/Corvane/File/DataChunkFileReader.cpp");
    }
    EXPECT_NE(entries[0].line, entries[1].line);
}

TEST_F(Reader, AnotherUsersReadableFileCannotBeOpened)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to make another user's file";
    }
    support::WriteFile(path_, Word(2) + Word(0));
    ASSERT_EQ(::chmod(path_.c_str(), 0644), 0);
    ASSERT_EQ(::chmod(folder_.Path().c_str(), 0755), 0);
    const int result = support::RunInChild([this] {
        support::BecomeUnprivileged();
        EXPECT_EQ(ErrorOfReader(), "DataChunkFileReader could not open file " + path_);
    });
    EXPECT_EQ(result, 0);
}

}  // namespace
