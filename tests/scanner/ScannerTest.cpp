#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <optional>
#include <random>
#include <stdexcept>
#include <type_traits>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileScanner.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using Corvane::File::DataChunkFileScanner;
using support::ChunkOfSize;
using support::DataChunk;
using support::FileOf;
using support::kUnbounded;
using support::Lines;
using support::Word;
using End = DataChunkFileScanner::End;

static_assert(!std::is_copy_constructible_v<DataChunkFileScanner>);
static_assert(!std::is_copy_assignable_v<DataChunkFileScanner>);
static_assert(!std::is_move_constructible_v<DataChunkFileScanner>);
static_assert(!std::is_move_assignable_v<DataChunkFileScanner>);

class Scanner : public support::ChunkFileTest {
protected:
    void Put(const std::string& bytes) const { support::WriteFile(path_, bytes); }

    // A chunk for each size, in this order. Its time is its index.
    static std::vector<DataChunk> Chunks(const std::vector<std::uint64_t>& sizes)
    {
        std::vector<DataChunk> chunks;
        chunks.reserve(sizes.size());
        for (const std::uint64_t size : sizes) {
            chunks.push_back(ChunkOfSize(static_cast<std::int64_t>(chunks.size()), size));
        }
        return chunks;
    }

    static void ExpectNext(DataChunkFileScanner& scanner, const DataChunk& expected, std::uint64_t position)
    {
        ASSERT_TRUE(scanner.Next()) << "at " << position;
        EXPECT_EQ(scanner.GetPosition(), position);
        EXPECT_EQ(scanner.GetChunk().GetSizeOnFile(), expected.GetSizeOnFile());
        EXPECT_TRUE(support::RecordOf(scanner.GetChunk()) == support::RecordOf(expected)) << "another record";
    }

    static void ExpectEnd(DataChunkFileScanner& scanner, End end, std::uint64_t position)
    {
        EXPECT_FALSE(scanner.Next());
        EXPECT_EQ(scanner.GetEnd(), end);
        EXPECT_EQ(scanner.GetPosition(), position);
    }

    // Walks a file of these chunks and nothing else: a new scanner, and one that has its window.
    void ExpectWalk(const std::vector<DataChunk>& chunks) const
    {
        Put(FileOf(chunks));
        DataChunkFileScanner scanner(path_);
        ExpectWalk(scanner, chunks);
        EXPECT_FALSE(scanner.FindNext());
        scanner.GoTo(16, chunks.size());
        ExpectWalk(scanner, chunks);
    }

    static void ExpectWalk(DataChunkFileScanner& scanner, const std::vector<DataChunk>& chunks)
    {
        std::uint64_t position = Corvane::File::kHeaderSize;
        for (const DataChunk& chunk : chunks) {
            ExpectNext(scanner, chunk, position);
            position += chunk.GetSizeOnFile();
        }
        EXPECT_EQ(scanner.GetNumberRead(), chunks.size());
        ExpectEnd(scanner, End::AllRead, position);
    }

    static std::string ErrorOfScanner(const std::string& path)
    {
        return support::ErrorOf([&] { DataChunkFileScanner{path}; });
    }
};

TEST_F(Scanner, WalkGivesEveryChunkWithItsPosition)
{
    ExpectWalk(Chunks({100, 40, 200}));
}

TEST_F(Scanner, WalkCrossesWindows)
{
    ExpectWalk(Chunks(std::vector<std::uint64_t>(20'000, 64)));
}

TEST_F(Scanner, RecordsOfEverySizeAreRead)
{
    ExpectWalk(
        Chunks({40, 70'000, 57, 300'000, 300'001, 1 << 20, 64, 2 << 20, 9 << 20, 9 << 20, 40, 5000, 200'000, 64}));
}

// Sizes around a window's, each three times.
TEST_F(Scanner, RecordsThatJustFitAWindowAreRead)
{
    std::vector<std::uint64_t> sizes;
    for (const std::uint64_t size : {1U << 16U, 1U << 17U, 1U << 18U}) {
        for (const int more : {-1, 0, 1}) {
            sizes.insert(sizes.end(), 3, size + static_cast<std::uint64_t>(std::int64_t{more}));
            sizes.push_back(40);
        }
    }
    ExpectWalk(Chunks(sizes));
}

TEST_F(Scanner, RecordsInRandomOrderOfPositionsAreRead)
{
    std::mt19937_64 random(1);  // NOLINT(cert-msc51-cpp): the same in every run
    std::vector<std::uint64_t> sizes(300);
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        sizes[i] = 57 + random() % (i % 50 == 0 ? 600'000 : 3000);
    }
    const auto chunks = Chunks(sizes);
    Put(FileOf(chunks));
    DataChunkFileScanner scanner(path_);
    for (int i = 0; i < 1000; ++i) {
        const std::size_t first = random() % chunks.size();
        const std::size_t last = std::min<std::size_t>(chunks.size(), first + 1 + random() % 3);
        std::uint64_t position =
            std::accumulate(sizes.begin(), sizes.begin() + static_cast<std::ptrdiff_t>(first), std::uint64_t{16});
        scanner.GoTo(position);
        for (std::size_t at = first; at < last; ++at) {
            ExpectNext(scanner, chunks[at], position);
            position += chunks[at].GetSizeOnFile();
        }
    }
}

TEST_F(Scanner, HeaderIsThatOfTheFile)
{
    WriteNewFile(4096, {ChunkOfSize(1, 100)});
    const DataChunkFileScanner scanner(path_);
    EXPECT_EQ(scanner.GetVersion(), 2U);
    EXPECT_EQ(scanner.GetNumberOfChunks(), 1U);
    EXPECT_EQ(scanner.GetFilename(), path_);
    EXPECT_EQ(scanner.GetPosition(), 16U);
    EXPECT_EQ(scanner.GetNumberRead(), 0U);
}

TEST_F(Scanner, AnyVersionIsAccepted)
{
    Put(FileOf(Chunks({100}), UINT64_MAX));
    DataChunkFileScanner scanner(path_);
    EXPECT_EQ(scanner.GetVersion(), UINT64_MAX);
    EXPECT_TRUE(scanner.Next());
}

TEST_F(Scanner, MissingBytesOfTheHeaderAreZero)
{
    const std::string header = Word(0x0102030405060708) + Word(0x1112131415161718);
    for (std::size_t length = 0; length <= header.size(); ++length) {
        Put(header.substr(0, length));
        const std::string expected = header.substr(0, length) + std::string(header.size() - length, '\0');
        DataChunkFileScanner scanner(path_);
        EXPECT_EQ(Word(scanner.GetVersion()) + Word(scanner.GetNumberOfChunks()), expected);
        ExpectEnd(scanner, length <= 8 ? End::AllRead : End::EndOfFile, 16);
    }
}

TEST_F(Scanner, WalkEndsWithTheHeadersCount)
{
    Put(Word(2) + Word(1) + FileOf(Chunks({100, 57})).substr(16));
    DataChunkFileScanner scanner(path_);
    EXPECT_TRUE(scanner.Next());
    ExpectEnd(scanner, End::AllRead, 116);
    ExpectEnd(scanner, End::AllRead, 116);
}

TEST_F(Scanner, WalkEndsAtADamagedRecord)
{
    std::string file = FileOf(Chunks({100, 57, 75}));
    file[116] = static_cast<char>(~file[116]);
    Put(file);
    DataChunkFileScanner scanner(path_);
    EXPECT_TRUE(scanner.Next());
    ExpectEnd(scanner, End::BadRecord, 116);
    ExpectEnd(scanner, End::BadRecord, 116);
    EXPECT_EQ(scanner.GetNumberRead(), 1U);
}

TEST_F(Scanner, WalkEndsAtATruncatedRecord)
{
    const std::string file = FileOf(Chunks({100, 57}));
    for (std::size_t length = 117; length < file.size(); ++length) {
        Put(file.substr(0, length));
        DataChunkFileScanner scanner(path_);
        EXPECT_TRUE(scanner.Next());
        ExpectEnd(scanner, End::BadRecord, 116);
    }
}

TEST_F(Scanner, WalkEndsWithTheFile)
{
    Put(Word(2) + Word(3) + FileOf(Chunks({100})).substr(16));
    DataChunkFileScanner scanner(path_);
    EXPECT_TRUE(scanner.Next());
    ExpectEnd(scanner, End::EndOfFile, 116);
}

TEST_F(Scanner, GoToContinuesThere)
{
    const auto chunks = Chunks({100, 57, 75});
    Put(FileOf(chunks));
    DataChunkFileScanner scanner(path_);
    scanner.GoTo(173);
    EXPECT_EQ(scanner.GetPosition(), 173U);
    ExpectNext(scanner, chunks[2], 173);
    ExpectEnd(scanner, End::EndOfFile, 248);
    scanner.GoTo(16, 2);
    EXPECT_EQ(scanner.GetNumberRead(), 0U);
    ExpectNext(scanner, chunks[0], 16);
    ExpectNext(scanner, chunks[1], 116);
    ExpectEnd(scanner, End::AllRead, 173);
    scanner.GoTo(116, 0);
    ExpectEnd(scanner, End::AllRead, 116);
}

TEST_F(Scanner, NoRecordBeginsAfterTheFile)
{
    Put(FileOf(Chunks({100})));
    DataChunkFileScanner scanner(path_);
    for (const std::uint64_t position : {std::uint64_t{116}, std::uint64_t{117}, std::uint64_t{1} << 40U,
                                         std::uint64_t{INT64_MAX}, std::uint64_t{1} << 63U, UINT64_MAX}) {
        scanner.GoTo(position);
        ExpectEnd(scanner, End::EndOfFile, position);
        EXPECT_FALSE(scanner.FindNext());
        EXPECT_EQ(scanner.GetPosition(), position);
    }
}

TEST_F(Scanner, SearchFindsTheRecordAfterADamagedOne)
{
    const auto chunks = Chunks({100, 57, 75});
    std::string file = FileOf(chunks);
    file[120] = static_cast<char>(~file[120]);
    Put(file);
    DataChunkFileScanner scanner(path_);
    ExpectNext(scanner, chunks[0], 16);
    ExpectEnd(scanner, End::BadRecord, 116);
    ASSERT_TRUE(scanner.FindNext());
    EXPECT_EQ(scanner.GetPosition(), 173U);
    EXPECT_EQ(scanner.GetNumberRead(), 0U);
    ExpectNext(scanner, chunks[2], 173);
    EXPECT_EQ(scanner.GetNumberRead(), 1U);
    EXPECT_FALSE(scanner.FindNext());
    EXPECT_EQ(scanner.GetPosition(), 248U);
    EXPECT_EQ(scanner.GetEnd(), End::EndOfFile);
}

TEST_F(Scanner, SearchBeginsWhereTheWalkStands)
{
    const auto chunks = Chunks({100, 57});
    Put(FileOf(chunks));
    DataChunkFileScanner scanner(path_);
    ASSERT_TRUE(scanner.FindNext());
    EXPECT_EQ(scanner.GetPosition(), 16U);
    ExpectNext(scanner, chunks[0], 16);
    ASSERT_TRUE(scanner.FindNext());
    EXPECT_EQ(scanner.GetPosition(), 116U);
    scanner.GoTo(17);
    ASSERT_TRUE(scanner.FindNext());
    ExpectNext(scanner, chunks[1], 116);
}

TEST_F(Scanner, SearchLiftsTheBoundOnTheNumber)
{
    Put(Word(2) + Word(1) + FileOf(Chunks({100, 57, 75})).substr(16));
    DataChunkFileScanner scanner(path_);
    EXPECT_TRUE(scanner.Next());
    ExpectEnd(scanner, End::AllRead, 116);
    ASSERT_TRUE(scanner.FindNext());
    EXPECT_TRUE(scanner.Next());
    EXPECT_TRUE(scanner.Next());
    ExpectEnd(scanner, End::EndOfFile, 248);
}

TEST_F(Scanner, WalkGoesOnWhenTheFileHasGrown)
{
    const auto chunks = Chunks({100, 57, 75});
    const std::string file = FileOf(chunks);
    Put(file.substr(0, 116));
    DataChunkFileScanner scanner(path_);
    ExpectNext(scanner, chunks[0], 16);
    scanner.GoTo(116);
    ExpectEnd(scanner, End::EndOfFile, 116);
    Put(file.substr(0, 200));
    ExpectNext(scanner, chunks[1], 116);
    ExpectEnd(scanner, End::BadRecord, 173);
    Put(file);
    ExpectNext(scanner, chunks[2], 173);
    ExpectEnd(scanner, End::EndOfFile, 248);
}

TEST_F(Scanner, SearchFindsARecordAfterManyOtherBytes)
{
    const auto chunks = Chunks({100, 5000, 100});
    const std::string records = FileOf(chunks).substr(16);
    for (const std::size_t gap : {1U << 20U, (1U << 20U) + (1U << 18U), 3'000'000U}) {
        Put(FileOf({}) + std::string(gap, 'x') + records);
        DataChunkFileScanner scanner(path_);
        ASSERT_TRUE(scanner.FindNext());
        ExpectNext(scanner, chunks[0], 16 + gap);
        ExpectNext(scanner, chunks[1], 116 + gap);
        ExpectNext(scanner, chunks[2], 5116 + gap);
        ExpectEnd(scanner, End::EndOfFile, 5216 + gap);
    }
}

// Beyond 1 MiB, twice the largest record so far.
TEST_F(Scanner, SearchFindsRecordsTwiceAsLongAsTheLargestSoFar)
{
    constexpr std::uint64_t kLarge = 3 << 20U;
    const auto chunks = Chunks({kLarge / 2, 100, kLarge, 57});
    std::string file = FileOf(chunks) + std::string(4 << 20U, '\0');
    const std::uint64_t third = 16 + kLarge / 2 + 100;
    file[16 + kLarge / 2] = 'x';
    Put(file);
    DataChunkFileScanner scanner(path_);
    EXPECT_TRUE(scanner.Next());
    ExpectEnd(scanner, End::BadRecord, 16 + kLarge / 2);
    ASSERT_TRUE(scanner.FindNext());
    ExpectNext(scanner, chunks[2], third);
    ExpectNext(scanner, chunks[3], third + kLarge);
}

TEST_F(Scanner, EveryDamagedRecordIsSkipped)
{
    const auto chunks = Chunks(std::vector<std::uint64_t>(5000, 100));
    std::string file = FileOf(chunks);
    for (std::size_t i = 0; i < chunks.size(); i += 2) {
        file[16 + 100 * i] = 'x';
    }
    Put(file);
    DataChunkFileScanner scanner(path_);
    for (std::size_t i = 0; i < chunks.size(); i += 2) {
        ExpectEnd(scanner, End::BadRecord, 16 + 100 * i);
        ASSERT_TRUE(scanner.FindNext());
        ExpectNext(scanner, chunks[i + 1], 116 + 100 * i);
    }
    EXPECT_FALSE(scanner.FindNext());
}

// Byte by byte, 1 TiB would take hours.
TEST_F(Scanner, SearchPassesHolesAndFindsTheRecordAfterThem)
{
    const auto chunks = Chunks({100, 100});
    const std::string file = FileOf(chunks);
    constexpr std::uint64_t kHole = std::uint64_t{1} << 40U;
    for (const std::uint64_t shift : {0U, 1U, 4095U, 4096U}) {
        Put(file.substr(0, 116) + std::string(3000, 'x'));
        std::error_code error;
        std::filesystem::resize_file(path_, kHole + shift, error);
        if (error) {
            GTEST_SKIP() << "no file of 1 TiB here: " << error.message();
        }
        std::ofstream(path_, std::ios::app) << file.substr(116);
        DataChunkFileScanner scanner(path_);
        ExpectNext(scanner, chunks[0], 16);
        ASSERT_TRUE(scanner.FindNext());
        ExpectNext(scanner, chunks[1], kHole + shift);
        std::filesystem::resize_file(path_, 2 * kHole);
        EXPECT_FALSE(scanner.FindNext());
        EXPECT_EQ(scanner.GetPosition(), 2 * kHole);
    }
}

TEST_F(Scanner, SearchFindsWhatTheFileHasGrownBy)
{
    const auto chunks = Chunks({100, 57});
    const std::string file = FileOf(chunks);
    Put(file.substr(0, 150));
    DataChunkFileScanner scanner(path_);
    ExpectNext(scanner, chunks[0], 16);
    ExpectEnd(scanner, End::BadRecord, 116);
    Put(file);
    ASSERT_TRUE(scanner.FindNext());
    ExpectNext(scanner, chunks[1], 116);
}

// Between two calls, another program truncates the file. The window may still have old records.
TEST_F(Scanner, FileThatIsTruncatedMeanwhileEndsTheWalk)
{
    const auto chunks = Chunks(std::vector<std::uint64_t>(10'000, 100));
    for (const std::uint64_t records : {0U, 1U, 2U, 1000U, 9999U}) {
        Put(FileOf(chunks));
        DataChunkFileScanner scanner(path_);
        for (std::uint64_t i = 0; i < records; ++i) {
            ASSERT_TRUE(scanner.Next());
        }
        std::filesystem::resize_file(path_, 16 + 50);
        std::uint64_t more = 0;
        while (scanner.Next()) {
            ++more;
        }
        EXPECT_LE(more, (std::uint64_t{1} << 18U) / 100);
        EXPECT_EQ(scanner.GetPosition(), 16 + 100 * (records + more));
        EXPECT_EQ(scanner.GetEnd(), records + more == chunks.size() ? End::AllRead
                                    : records + more == 0           ? End::BadRecord
                                                                    : End::EndOfFile);
    }
}

TEST_F(Scanner, JumpReadsTheFileAnew)
{
    const auto chunks = Chunks({100, 100, 100});
    Put(FileOf(chunks));
    DataChunkFileScanner scanner(path_);
    EXPECT_TRUE(scanner.Next());
    EXPECT_TRUE(scanner.Next());
    const auto rewritten = ChunkOfSize(77, 100);
    Put(FileOf({rewritten, rewritten, rewritten}));
    scanner.GoTo(116);
    ExpectNext(scanner, rewritten, 116);
}

TEST_F(Scanner, SearchAfterAJumpReadsTheFileAnew)
{
    const auto chunks = Chunks({100, 100});
    const std::string file = FileOf(chunks);
    Put(file);
    DataChunkFileScanner scanner(path_);
    ASSERT_TRUE(scanner.FindNext());
    Put(file.substr(0, 16) + std::string(100, 'x') + file.substr(116));
    scanner.GoTo(16);
    ASSERT_TRUE(scanner.FindNext());
    EXPECT_EQ(scanner.GetPosition(), 116U);
}

TEST_F(Scanner, SearchInAWindowFindsWhatTheFileHasGrownBy)
{
    const auto chunks = Chunks({100, 57, 75});
    const std::string file = FileOf(chunks);
    Put(file.substr(0, 200));
    DataChunkFileScanner scanner(path_);
    scanner.GoTo(17);
    ASSERT_TRUE(scanner.FindNext());
    ExpectNext(scanner, chunks[1], 116);
    ExpectEnd(scanner, End::BadRecord, 173);
    Put(file);
    ASSERT_TRUE(scanner.FindNext());
    ExpectNext(scanner, chunks[2], 173);
}

// The part that a window has of a larger one before it must not show.
TEST_F(Scanner, BytesOfAnEarlierWindowDoNotCompleteARecord)
{
    const auto chunks = Chunks(std::vector<std::uint64_t>(3000, 100));
    const std::string file = FileOf(chunks);
    Put(file);
    DataChunkFileScanner scanner(path_);
    for (int i = 0; i < 2000; ++i) {
        ASSERT_TRUE(scanner.Next());
    }
    for (const std::uint64_t cut : {1U, 50U, 99U}) {
        Put(file);
        scanner.GoTo(116);
        ExpectNext(scanner, chunks[1], 116);
        Put(file.substr(0, 116 + cut));
        scanner.GoTo(116);
        ExpectEnd(scanner, End::BadRecord, 116);
        EXPECT_FALSE(scanner.FindNext());
    }
}

TEST_F(Scanner, ChunkIsOnlyThereAfterARecord)
{
    Put(FileOf(Chunks({100})));
    DataChunkFileScanner scanner(path_);
    EXPECT_THROW(scanner.GetChunk(), std::bad_optional_access);
    EXPECT_TRUE(scanner.Next());
    EXPECT_NO_THROW(scanner.GetChunk());
    EXPECT_FALSE(scanner.Next());
    EXPECT_THROW(scanner.GetChunk(), std::bad_optional_access);
}

TEST_F(Scanner, FileThatCannotBeOpenedIsAnErrorWithItsReason)
{
    EXPECT_EQ(ErrorOfScanner(folder_ / "none"),
              "DataChunkFileScanner: file " + (folder_ / "none") + ": open: No such file or directory");
}

TEST_F(Scanner, FileThatCannotBeReadIsAnErrorWithItsPosition)
{
    EXPECT_EQ(ErrorOfScanner(folder_.Path()),
              "DataChunkFileScanner: file " + folder_.Path() + ": read at byte 0: Is a directory");
}

TEST_F(Scanner, AnotherUsersReadableFileCanBeOpened)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    Put(FileOf(Chunks({100})));
    ASSERT_EQ(::chmod(folder_.Path().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(path_.c_str(), 0644), 0);
    EXPECT_EQ(support::RunInChild([&] {
                  support::BecomeUnprivileged();
                  DataChunkFileScanner scanner(path_);
                  EXPECT_TRUE(scanner.Next());
              }),
              0);
}

TEST_F(Scanner, AccessTimeStays)
{
    Put(FileOf(Chunks({100, 57})));
    const timespec times[] = {{1'000'000'000, 0}, {1'100'000'000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path_.c_str(), times, 0), 0);
    DataChunkFileScanner scanner(path_);
    EXPECT_TRUE(scanner.Next());
    EXPECT_TRUE(scanner.Next());
    struct stat status = {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_atim.tv_sec, 1'000'000'000);
}

TEST_F(Scanner, DescriptorIsClosedAndNotInherited)
{
    Put(FileOf({}));
    const auto before = support::OpenDescriptors();
    {
        const DataChunkFileScanner scanner(path_);
        for (const int fd : support::OpenDescriptors()) {
            EXPECT_TRUE(before.contains(fd) || (::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0);
        }
        EXPECT_EQ(support::OpenDescriptors().size(), before.size() + 1);
    }
    EXPECT_EQ(support::OpenDescriptors(), before);
}

TEST_F(Scanner, LogsNothing)
{
    const support::LogCapture log(INT32_MIN);
    std::string file = FileOf(Chunks({100, 57, 75}));
    file[120] = static_cast<char>(~file[120]);
    Put(file);
    DataChunkFileScanner scanner(path_);
    EXPECT_TRUE(scanner.Next());
    EXPECT_FALSE(scanner.Next());
    EXPECT_TRUE(scanner.FindNext());
    EXPECT_EQ(ErrorOfScanner(folder_ / "none").substr(0, 20), "DataChunkFileScanner");
    EXPECT_EQ(log.Lines(), Lines{});
}

}  // namespace
