#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <locale>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/GroupedNumbers.h"
#include "support/LogCapture.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace {

using support::ChunkOfSize;
using support::DataChunkFileAppender;
using support::kUnbounded;
using support::Lines;
using support::ReadFile;
using support::Word;

static_assert(!std::is_copy_constructible_v<DataChunkFileAppender>);
static_assert(!std::is_copy_assignable_v<DataChunkFileAppender>);
static_assert(!std::is_move_constructible_v<DataChunkFileAppender>);
static_assert(!std::is_move_assignable_v<DataChunkFileAppender>);
static_assert(std::has_virtual_destructor_v<DataChunkFileAppender>);

class Appender : public support::ChunkFileTest {
protected:
    // The bytes of a new file with these chunks.
    std::string Written(std::uint64_t maxSize, const std::vector<support::DataChunk>& chunks) const
    {
        WriteNewFile(maxSize, chunks);
        return ReadFile(path_);
    }

    support::LogCapture log_;
};

TEST_F(Appender, BoundedFileHoldsVersionCountChunksAndZeros)
{
    {
        auto appender = NewFile(4096);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
        EXPECT_TRUE(appender.Append(ChunkOfSize(2, 100)));
    }
    const std::string file = ReadFile(path_);
    ASSERT_EQ(file.size(), 4096U);
    EXPECT_EQ(file.substr(0, 8), std::string("\x02\0\0\0\0\0\0\0", 8));        // version
    EXPECT_EQ(file.substr(8, 8), std::string("\x02\0\0\0\0\0\0\0", 8));        // number of chunks
    EXPECT_EQ(file.substr(16, 100), support::RecordOf(ChunkOfSize(1, 100)));   // record 0
    EXPECT_EQ(file.substr(116, 100), support::RecordOf(ChunkOfSize(2, 100)));  // record 1
    EXPECT_EQ(file.substr(216), std::string(4096 - 216, '\0'));                // fill
    EXPECT_EQ(log_.Lines(), Lines{});
}

TEST_F(Appender, UnboundedFileHoldsNoVersionAndEndsWithItsLastChunk)
{
    {
        auto appender = NewFile(kUnbounded);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
    }
    const std::string file = ReadFile(path_);
    EXPECT_EQ(file.size(), 116U);
    EXPECT_EQ(file, Word(0) + Word(1) + support::RecordOf(ChunkOfSize(1, 100)));
}

TEST_F(Appender, UnboundedFileWithoutChunksIsEmpty)
{
    WriteNewFile(kUnbounded);
    EXPECT_EQ(ReadFile(path_), "");
}

TEST_F(Appender, UnboundedAppenderWithoutChunksLeavesAnExistingFileAlone)
{
    support::WriteFile(path_, "older bytes");
    WriteNewFile(kUnbounded);
    EXPECT_EQ(ReadFile(path_), "older bytes");
}

TEST_F(Appender, BoundedFileWithoutChunksHasItsHeaderAndItsSize)
{
    WriteNewFile(64);
    EXPECT_EQ(ReadFile(path_), Word(2) + std::string(56, '\0'));
}

TEST_F(Appender, BytesOfALongerFileStayAfterTheImage)
{
    support::WriteFile(path_, std::string(200, 'o'));
    WriteNewFile(64);
    EXPECT_EQ(ReadFile(path_), Word(2) + std::string(56, '\0') + std::string(136, 'o'));
}

TEST_F(Appender, BytesOfALongerFileStayAfterAnUnboundedImageToo)
{
    support::WriteFile(path_, std::string(200, 'o'));
    EXPECT_EQ(Written(kUnbounded, {ChunkOfSize(1, 100)}),
              support::FileOf({ChunkOfSize(1, 100)}, 0) + std::string(84, 'o'));
}

TEST_F(Appender, NothingReachesTheDiskBeforeDestruction)
{
    auto appender = NewFile(512);
    EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
    EXPECT_EQ(ReadFile(path_), "");
}

TEST_F(Appender, FlushBeforeDestructionWritesTheImageTwice)
{
    {
        auto appender = NewFile(kUnbounded);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
        appender.Flush();
    }
    const std::string image = support::FileOf({ChunkOfSize(1, 100)}, 0);
    EXPECT_EQ(ReadFile(path_), image + image);
}

TEST_F(Appender, NewFileHasMode0664BeforeTheUmask)
{
    const mode_t umask = ::umask(0022);
    WriteNewFile(kUnbounded);
    ::umask(umask);
    struct stat status = {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(Appender, FileHasNoAttributes)
{
    WriteNewFile(512, {ChunkOfSize(1, 100)});
    EXPECT_EQ(::listxattr(path_.c_str(), nullptr, 0), 0);
}

TEST_F(Appender, FilenameIsReturned)
{
    EXPECT_EQ(NewFile(kUnbounded).GetFilename(), path_);
}

TEST_F(Appender, ChunkThatFillsTheImageIsAccepted)
{
    EXPECT_EQ(Written(116, {ChunkOfSize(1, 100)}), support::FileOf({ChunkOfSize(1, 100)}));
}

TEST_F(Appender, ChunkOneByteTooLongIsRefused)
{
    auto appender = NewFile(115);
    EXPECT_FALSE(appender.Append(ChunkOfSize(1, 100)));
    EXPECT_EQ(log_.Lines(), Lines{"50 Current file size 16 + chunkSize 100 > maxSize 115"});
    EXPECT_TRUE(appender.GetTimePoints().empty());
}

TEST_F(Appender, LocaleOfTheProgramDoesNotChangeTheNumbers)
{
    auto appender = NewFile(115);
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new support::GroupedNumbers));
    EXPECT_FALSE(appender.Append(ChunkOfSize(1, 100)));
    std::locale::global(before);
    EXPECT_EQ(log_.Lines(), Lines{"50 Current file size 16 + chunkSize 100 > maxSize 115"});
}

TEST_F(Appender, RefusedChunkLeavesRoomForASmallerOne)
{
    {
        auto appender = NewFile(115);
        EXPECT_FALSE(appender.Append(ChunkOfSize(1, 100)));
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 99)));
    }
    EXPECT_EQ(ReadFile(path_), support::FileOf({ChunkOfSize(1, 99)}));
}

TEST_F(Appender, DuplicateTimePointIsRefused)
{
    auto appender = NewFile(4096);
    EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
    EXPECT_FALSE(appender.Append(ChunkOfSize(1, 60)));
    EXPECT_EQ(log_.Lines(), Lines{"50 TimePoint 1970-01-01T00:00:00.000000001Z has already been appended"});
    EXPECT_EQ(appender.GetTimePoints().size(), 1U);
}

TEST_F(Appender, EveryDuplicateIsFoundInAnyOrder)
{
    auto appender = NewFile(4096);
    for (const std::int64_t time : {5, 1, 9, 3, 7}) {
        EXPECT_TRUE(appender.Append(ChunkOfSize(time, 60)));
    }
    for (const std::int64_t time : {1, 3, 5, 7, 9}) {
        EXPECT_FALSE(appender.Append(ChunkOfSize(time, 60)));
    }
    EXPECT_EQ(appender.GetTimePoints().size(), 5U);
}

TEST_F(Appender, RecordsStandInTheOrderOfAppendingNotOfTime)
{
    EXPECT_EQ(Written(kUnbounded, {ChunkOfSize(3, 60), ChunkOfSize(1, 70), ChunkOfSize(2, 40)}),
              support::FileOf({ChunkOfSize(3, 60), ChunkOfSize(1, 70), ChunkOfSize(2, 40)}, 0));
}

TEST_F(Appender, OversizedDuplicateReportsItsSize)
{
    auto appender = NewFile(200);
    EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
    EXPECT_FALSE(appender.Append(ChunkOfSize(1, 100)));
    EXPECT_EQ(log_.Lines(), Lines{"50 Current file size 116 + chunkSize 100 > maxSize 200"});
}

TEST_F(Appender, RefusedDuplicateLeavesAnUnboundedImageGrownByZeros)
{
    {
        auto appender = NewFile(kUnbounded);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
        EXPECT_FALSE(appender.Append(ChunkOfSize(1, 60)));
    }
    EXPECT_EQ(ReadFile(path_), support::FileOf({ChunkOfSize(1, 100)}, 0) + std::string(60, '\0'));
}

TEST_F(Appender, ChunkAfterARefusedDuplicateTakesItsRoom)
{
    {
        auto appender = NewFile(kUnbounded);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
        EXPECT_FALSE(appender.Append(ChunkOfSize(1, 60)));
        EXPECT_TRUE(appender.Append(ChunkOfSize(2, 70)));
    }
    EXPECT_EQ(ReadFile(path_), support::FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 70)}, 0));
}

TEST_F(Appender, MaximumSizeBelowTheHeaderRefusesEveryChunk)
{
    for (std::uint64_t maxSize = 1; maxSize < 16; ++maxSize) {
        log_.Clear();
        auto appender = NewFile(maxSize);
        EXPECT_FALSE(appender.Append(ChunkOfSize(1, 40)));
        EXPECT_EQ(log_.Lines(), Lines{"50 Current file size 16 + chunkSize 40 > maxSize " + std::to_string(maxSize)});
    }
}

TEST_F(Appender, MaximumSizeBelowTheVersionWordTruncatesIt)
{
    for (std::uint64_t maxSize = 1; maxSize < 8; ++maxSize) {
        const std::string path = folder_ / std::to_string(maxSize);
        {
            const auto appender = support::NewFile(path, maxSize);
        }
        EXPECT_EQ(ReadFile(path), Word(2).substr(0, maxSize));
    }
}

TEST_F(Appender, ImpossibleMaximumSizeThrowsAndLeavesNoFile)
{
    EXPECT_THROW(NewFile(UINT64_MAX), std::length_error);
    EXPECT_THROW(NewFile(std::uint64_t{1} << 62U), std::bad_alloc);
    EXPECT_TRUE(folder_.Names().empty());
}

TEST_F(Appender, LevelIsInclusive)
{
    auto appender = NewFile(16);
    support::LogCapture::SetLevel(50);
    EXPECT_FALSE(appender.Append(ChunkOfSize(1, 40)));
    EXPECT_EQ(log_.Lines().size(), 1U);
    support::LogCapture::SetLevel(51);
    EXPECT_FALSE(appender.Append(ChunkOfSize(1, 40)));
    EXPECT_EQ(log_.Lines().size(), 1U);
}

TEST_F(Appender, AbsentLoggerChangesNothingButTheLog)
{
    support::LogCapture::SetLevel(tarn::cv::logging::Logger::kOff);
    {
        auto appender = NewFile(116);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
        EXPECT_FALSE(appender.Append(ChunkOfSize(2, 100)));
    }
    EXPECT_EQ(ReadFile(path_), support::FileOf({ChunkOfSize(1, 100)}));
    EXPECT_EQ(log_.Lines(), Lines{});
}

TEST_F(Appender, LogEntryNamesTheLoggerAndTheIssuingLine)
{
    auto appender = NewFile(100);
    EXPECT_TRUE(appender.Append(ChunkOfSize(1, 40)));
    EXPECT_FALSE(appender.Append(ChunkOfSize(1, 40)));
    EXPECT_FALSE(appender.Append(ChunkOfSize(2, 60)));
    const auto entries = log_.Entries();
    ASSERT_EQ(entries.size(), 2U);
    for (const auto& entry : entries) {
        EXPECT_EQ(entry.logger, "DataChunkFileAppender");
        EXPECT_EQ(entry.file, "Corvane/Common/libFile/Corvane/File/DataChunkFileAppender.cpp");
    }
    EXPECT_NE(entries[0].line, entries[1].line);
}

TEST_F(Appender, FileThatCannotBeOpenedThrowsTheReasonAndLogsNothing)
{
    const std::string path = folder_ / "none/a";
    try {
        const auto appender = support::NewFile(path, 64);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "DataChunkFileAppender could not open file " + path + ": No such file or directory");
    }
    EXPECT_EQ(log_.Lines(), Lines{});
}

TEST_F(Appender, AppendersOfDifferentFilesAreIndependent)
{
    const auto write = [this](const std::string& name) {
        auto appender = support::NewFile(folder_ / name, kUnbounded);
        for (std::int64_t time = 0; time < 1000; ++time) {
            EXPECT_TRUE(appender.Append(ChunkOfSize(time, 100)));
        }
    };
    std::thread other(write, "x");
    write("y");
    other.join();
    EXPECT_EQ(ReadFile(folder_ / "x"), ReadFile(folder_ / "y"));
    EXPECT_EQ(support::ReadAll(folder_ / "x").size(), 1000U);
}

TEST_F(Appender, AppenderDestroyedLaterOverwritesTheOther)
{
    {
        auto later = NewFile(116);
        EXPECT_TRUE(later.Append(ChunkOfSize(1, 100)));
        WriteNewFile(116, {ChunkOfSize(2, 100)});
    }
    EXPECT_EQ(ReadFile(path_), support::FileOf({ChunkOfSize(1, 100)}));
}

// Images on the heap, on huge pages, and images that grow from one to the other.
class ImageSizes : public Appender, public testing::WithParamInterface<std::uint64_t> {};

TEST_P(ImageSizes, BoundedImageHoldsEveryByte)
{
    const std::uint64_t size = GetParam();
    {
        auto appender = NewFile(size);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
    }
    EXPECT_TRUE(ReadFile(path_) == support::FileOf({ChunkOfSize(1, 100)}) + std::string(size - 116, '\0'));
}

TEST_P(ImageSizes, UnboundedImageGrowsToIt)
{
    std::vector<support::DataChunk> chunks;
    chunks.reserve(8);
    for (std::int64_t time = 0; time < 8; ++time) {
        chunks.push_back(ChunkOfSize(time, GetParam() / 8));
    }
    EXPECT_TRUE(Written(kUnbounded, chunks) == support::FileOf(chunks, 0));
}

constexpr std::uint64_t kHugePage = 2U << 20U;
INSTANTIATE_TEST_SUITE_P(AroundAHugePage, ImageSizes,
                         testing::Values(4096, kHugePage - 1, kHugePage, kHugePage + 1, 2 * kHugePage, 9'000'001),
                         testing::PrintToStringParamName());

}  // namespace
