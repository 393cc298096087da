// The states that a chunk file can be in: what the reader finds, what reopening keeps, and what is lost.
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "Corvane/File/DataChunkFileReader.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using Corvane::File::DataChunkFileReader;
using support::ChunkOfSize;
using support::DataChunk;
using support::FileOf;
using support::kUnbounded;
using support::ReadFile;
using support::Word;
using Times = std::vector<std::int64_t>;

constexpr std::uint64_t kSecond = 116;  // positions of the records of a sound file
constexpr std::uint64_t kThird = 176;
constexpr std::uint64_t kEnd = 256;
constexpr std::int64_t kNewTime = 9;

class States : public support::ChunkFileTest {
protected:
    // Three records; their times are 1, 2 and 3.
    static std::string Sound() { return FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 60), ChunkOfSize(3, 80)}); }

    static std::string With(std::string file, std::uint64_t at, const std::string& bytes)
    {
        return file.replace(at, bytes.size(), bytes);
    }

    void Found(const std::string& file) { support::WriteFile(path_, file); }

    // The times that the reader finds.
    Times Read() const { return support::TimesOf(support::ReadAll(path_)); }

    // The times that reopening keeps. Without an append, every byte of the file stays the same.
    Times Kept(std::uint64_t maxSize = kUnbounded) const
    {
        const std::string before = ReadFile(path_);
        Times times;
        {
            const auto appender = Reopened(maxSize);
            for (const auto& timePoint : appender.GetTimePoints()) {
                times.push_back(timePoint.Nanoseconds());
            }
        }
        EXPECT_EQ(ReadFile(path_), before);
        return times;
    }

    // The times that the reader finds after the file was reopened and got a chunk of 40 bytes.
    Times Continued(std::uint64_t maxSize = kUnbounded) const
    {
        EXPECT_TRUE(Reopened(maxSize).Append(ChunkOfSize(kNewTime, 40)));
        return Read();
    }

    support::LogCapture log_{40};
};

TEST_F(States, SoundFileIsReadAndContinued)
{
    Found(Sound());
    EXPECT_EQ(Read(), (Times{1, 2, 3}));
    EXPECT_EQ(Kept(), (Times{1, 2, 3}));
    EXPECT_EQ(Continued(), (Times{1, 2, 3, kNewTime}));
}

TEST_F(States, AbsentFileIsAFailureForBoth)
{
    EXPECT_THROW(DataChunkFileReader{path_}, std::runtime_error);
    EXPECT_EQ(ErrorOfReopening(kUnbounded), TooShort(0));
    EXPECT_TRUE(folder_.Names().empty());
}

TEST_F(States, ShortFileIsOpenedByTheReaderOnly)
{
    for (const std::size_t length : {0U, 7U, 8U, 15U}) {
        Found(Sound().substr(0, length));
        EXPECT_TRUE(Read().empty());
        EXPECT_EQ(ErrorOfReopening(kUnbounded), TooShort(length));
        EXPECT_EQ(ReadFile(path_), Sound().substr(0, length));
    }
}

TEST_F(States, FolderIsOpenedByTheReaderOnly)
{
    path_ = folder_.Path();
    EXPECT_TRUE(Read().empty());
    EXPECT_EQ(ErrorOfReopening(kUnbounded), TooShort(0));
}

TEST_F(States, OtherVersionIsReadButNotReopened)
{
    for (const std::uint64_t version : {0U, 3U}) {
        Found(With(Sound(), 0, Word(version)));
        EXPECT_EQ(Read(), (Times{1, 2, 3}));
        EXPECT_NE(ErrorOfReopening(kUnbounded).find("stored with version " + std::to_string(version)),
                  std::string::npos);
        EXPECT_EQ(ReadFile(path_), With(Sound(), 0, Word(version)));
    }
}

TEST_F(States, FileLongerThanTheMaximumSizeIsNotReopened)
{
    Found(Sound());
    EXPECT_EQ(ErrorOfReopening(kEnd - 1), TooLong(256, kEnd - 1));
    EXPECT_EQ(ReadFile(path_), Sound());
}

TEST_F(States, FileOfZerosHasVersionZeroAndNoChunks)
{
    Found(std::string(kEnd, '\0'));
    EXPECT_TRUE(Read().empty());
    EXPECT_NE(ErrorOfReopening(kUnbounded).find("stored with version 0"), std::string::npos);
}

TEST_F(States, CountThatIsTooHighLosesNothing)
{
    for (const std::uint64_t count : {std::uint64_t{4}, UINT64_MAX}) {
        for (const std::string& fill : {std::string(), std::string(100, '\0')}) {
            Found(With(Sound(), 8, Word(count)) + fill);
            EXPECT_EQ(Read(), (Times{1, 2, 3}));
            EXPECT_EQ(Kept(), (Times{1, 2, 3}));
            EXPECT_EQ(Continued(), (Times{1, 2, 3, kNewTime}));
        }
    }
}

TEST_F(States, CountThatIsTooLowHidesRecordsAndAnAppendOverwritesThem)
{
    Found(With(Sound(), 8, Word(1)));
    EXPECT_EQ(Read(), Times{1});
    EXPECT_EQ(Kept(), Times{1});
    EXPECT_EQ(Continued(), (Times{1, kNewTime}));
    Found(With(Sound(), 8, Word(0)));
    EXPECT_EQ(Kept(), Times{});
    EXPECT_EQ(Continued(), Times{kNewTime});
}

TEST_F(States, TruncatedFileKeepsItsWholeRecords)
{
    for (const std::uint64_t end : {kSecond, kSecond + 1, kThird - 1}) {
        Found(Sound().substr(0, end));
        EXPECT_EQ(Read(), Times{1});
        EXPECT_EQ(Kept(), Times{1});
        EXPECT_EQ(Kept(end), Times{1});
        EXPECT_EQ(Continued(), (Times{1, kNewTime}));
    }
}

TEST_F(States, DamagedRecordEndsTheWalk)
{
    for (const std::uint64_t at : {kSecond, kSecond + 4, kSecond + 40, kThird - 1}) {  // mark, size, directory, value
        std::string file = Sound();
        file[at] = static_cast<char>(file[at] ^ 1);
        Found(file);
        EXPECT_EQ(Read(), Times{1});
        EXPECT_EQ(Kept(), Times{1});
        EXPECT_EQ(Continued(), (Times{1, kNewTime}));
    }
}

TEST_F(States, ZerosInPlaceOfARecordEndTheWalk)
{
    Found(With(Sound(), kSecond, std::string(60, '\0')));
    EXPECT_EQ(Read(), Times{1});
    EXPECT_EQ(Kept(), Times{1});
    EXPECT_EQ(Continued(), (Times{1, kNewTime}));
}

TEST_F(States, RecordAfterADamagedOneCanBeReadAtItsPosition)
{
    Found(With(Sound(), kSecond, "?"));
    DataChunk chunk;
    EXPECT_EQ(DataChunkFileReader(path_).GetChunk(chunk, kThird), 80U);
    EXPECT_EQ(chunk.GetTimePoint().Nanoseconds(), 3);
}

TEST_F(States, DamageInAFieldThatIsNotReadGoesUnnoticed)
{
    Found(With(Sound(), kThird - 1, "?"));
    DataChunk chunk;
    DataChunkFileReader reader(path_);
    EXPECT_EQ(reader.GetChunk(chunk, kSecond), 0U);
    EXPECT_EQ(reader.GetChunk(chunk, kSecond, {"p"}), 0U);
    EXPECT_EQ(reader.GetChunk(chunk, kSecond, {"another"}), 60U);
}

TEST_F(States, ForeignRecordsAreNotGoodAndAnAppendOverwritesThem)
{
    Found(Word(2) + Word(3) + std::string(200, 'x'));
    EXPECT_EQ(Read(), Times{});
    EXPECT_EQ(Kept(), Times{});
    EXPECT_EQ(Continued(), Times{kNewTime});
}

TEST_F(States, BytesAfterTheLastRecordMeanNothing)
{
    Found(Sound() + std::string(100, 'x'));
    EXPECT_EQ(Read(), (Times{1, 2, 3}));
    EXPECT_EQ(Kept(), (Times{1, 2, 3}));
    EXPECT_EQ(Continued(), (Times{1, 2, 3, kNewTime}));
    EXPECT_EQ(ReadFile(path_).substr(kEnd + 40), std::string(60, 'x'));
}

TEST_F(States, LongerOldFileStaysAfterTheNewImage)
{
    Found(Sound());
    EXPECT_TRUE(NewFile(100).Append(ChunkOfSize(4, 80)));
    EXPECT_EQ(ReadFile(path_).substr(100), Sound().substr(100));
    EXPECT_EQ(Read(), Times{4});
    EXPECT_EQ(Kept(), Times{4});
    EXPECT_EQ(ErrorOfReopening(100), TooLong(256, 100));
    EXPECT_EQ(Continued(), (Times{4, kNewTime}));
}

TEST_F(States, OlderRecordsComeBackOnlyWithACountThatIsTooHigh)
{
    const std::string file = FileOf({ChunkOfSize(4, 100)}) + Sound().substr(kSecond);
    Found(file);
    EXPECT_EQ(Read(), Times{4});
    Found(With(file, 8, Word(3)));
    EXPECT_EQ(Read(), (Times{4, 2, 3}));
    EXPECT_EQ(Kept(), (Times{2, 3, 4}));
}

TEST_F(States, ImageWrittenTwiceIsReadAsOne)
{
    {
        auto appender = NewFile(300);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
        appender.Flush();
    }
    EXPECT_EQ(ReadFile(path_).size(), 600U);
    EXPECT_EQ(Read(), Times{1});
    EXPECT_EQ(Kept(), Times{1});
    EXPECT_EQ(ErrorOfReopening(300), TooLong(600, 300));
    EXPECT_EQ(Continued(), (Times{1, kNewTime}));
}

TEST_F(States, TornOverwriteIsReadUpToTheTear)
{
    const std::string newer = FileOf({ChunkOfSize(4, 90), ChunkOfSize(5, 90), ChunkOfSize(6, 60)});
    Found(newer.substr(0, 150) + Sound().substr(150));
    EXPECT_EQ(Read(), Times{4});
    EXPECT_EQ(Kept(), Times{4});
    EXPECT_EQ(Continued(), (Times{4, kNewTime}));
}

TEST_F(States, TearBetweenRecordsOfEqualSizesMixesNewAndOld)
{
    const std::string newer = FileOf({ChunkOfSize(4, 100), ChunkOfSize(5, 60), ChunkOfSize(6, 80)});
    Found(newer.substr(0, kSecond + 10) + Sound().substr(kSecond + 10));
    EXPECT_EQ(Read(), Times{4});
    Found(newer.substr(0, kSecond) + Sound().substr(kSecond));
    EXPECT_EQ(Read(), (Times{4, 2, 3}));
    EXPECT_EQ(Kept(), (Times{2, 3, 4}));
}

TEST_F(States, EqualTimePointsAreAllRead)
{
    Found(FileOf({ChunkOfSize(1, 100), ChunkOfSize(1, 60)}));
    EXPECT_EQ(Read(), (Times{1, 1}));
    EXPECT_EQ(Kept(), Times{1});
    EXPECT_EQ(Continued(), (Times{1, 1, kNewTime}));
}

}  // namespace
