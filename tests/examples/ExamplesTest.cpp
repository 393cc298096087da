// Runs the examples as a user does and checks their output.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <filesystem>

#include "support/Chunks.h"
#include "support/Files.h"

namespace {

constexpr std::uint64_t kMeasureSize = 4'000'000;  // bytes; the size of the file that measure writes

class Examples : public testing::Test {
protected:
    // Runs an example with the file's name as its last argument and keeps its output.
    void Run(const std::string& example, const std::string& arguments = "")
    {
        const std::string command = "'" EXAMPLES_FOLDER "/" + example + "' " + arguments + " '" + path_ + "' 2>&1";
        FILE* const output = ::popen(command.c_str(), "r");  // NOLINT(cert-env33-c): our own programs
        ASSERT_NE(output, nullptr);
        std::array<char, 4096> bytes = {};
        while (const std::size_t count = std::fread(bytes.data(), 1, bytes.size(), output)) {
            printed_.append(bytes.data(), count);
        }
        const int status = ::pclose(output);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }

    bool HasPrinted(const std::string& text) const { return printed_.find(text) != std::string::npos; }

    // The number before each " <unit>" printed.
    std::vector<std::uint64_t> NumbersOf(const std::string& unit) const
    {
        std::vector<std::uint64_t> numbers;
        for (std::size_t at = printed_.find(' ' + unit); at != std::string::npos;
             at = printed_.find(' ' + unit, at + 1)) {
            const std::size_t begin = printed_.find_last_not_of("0123456789", at - 1) + 1;
            numbers.push_back(std::stoull(printed_.substr(begin, at - begin)));
        }
        return numbers;
    }

    support::TemporaryFolder folder_;
    std::string path_ = folder_ / "a.chunks";
    std::string printed_;
};

TEST_F(Examples, TenLinesPrintTheChunkThatTheyWrote)
{
    Run("ten_lines");
    EXPECT_TRUE(HasPrinted("Z 21.5\n"));
    std::replace_if(printed_.begin(), printed_.end(), [](unsigned char byte) { return std::isdigit(byte) != 0; }, '0');
    EXPECT_EQ(printed_, "0000-00-00T00:00:00.000000000Z 00.0\n");
    EXPECT_EQ(std::filesystem::file_size(path_), 4096U);
}

TEST_F(Examples, ReplaceFileMakesAChunkFile)
{
    Run("replace_file");
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(std::filesystem::file_size(path_), 65536U);
    EXPECT_EQ(folder_.Names(), std::set<std::string>{"a.chunks"});
}

class Measure : public Examples {
protected:
    void SetUp() override { Run("measure", "0.25"); }
    void TearDown() override
    {
        if (HasFailure()) {
            std::fputs(printed_.c_str(), stderr);
        }
    }
};

TEST_F(Measure, FillsABoundedFileThatCanBeReadBack)
{
    const auto chunks = support::ReadAll(path_);
    EXPECT_GE(chunks.size(), 10U);
    EXPECT_EQ(std::filesystem::file_size(path_), kMeasureSize);
    for (const support::DataChunk& chunk : chunks) {
        EXPECT_EQ(chunk.Fields().count("loadavg"), 1U);
        EXPECT_FALSE(chunk.Get("stat")->empty());
    }
}

TEST_F(Measure, PrintsHowMuchThereIs)
{
    const std::string count = std::to_string(support::ReadAll(path_).size());
    EXPECT_TRUE(HasPrinted("Measuring this machine for 0.25 s into " + path_ + ": " + count + " measurements\n"));
    EXPECT_TRUE(
        HasPrinted("  10 DataChunkFileReader " + path_ + " opened, contains " + count + " chunks on version 2\n"));
    const auto read = NumbersOf("chunks in ");  // three numbers: whole chunks, one field each, the recovered copy
    ASSERT_EQ(read.size(), 3U);
    EXPECT_EQ(read[0], std::stoull(count));
    EXPECT_EQ(read[1], std::stoull(count));
    EXPECT_LT(read[2], std::stoull(count));
    EXPECT_EQ(NumbersOf("of 4000000 bytes; fields read: 5, last load: ").size(), 2U);
    EXPECT_EQ(NumbersOf("of 4000000 bytes; fields read: 1, last load: ").size(), 1U);
}

TEST_F(Measure, PrintsNoSourceLocationsAndFitsOneScreen)
{
    EXPECT_FALSE(HasPrinted(".cpp:"));
    EXPECT_LE(std::count(printed_.begin(), printed_.end(), '\n'), 18);
}

TEST_F(Measure, ShowsARefusedDuplicateAndARefusedOversizeChunk)
{
    EXPECT_TRUE(HasPrinted("  50 DataChunkFileAppender TimePoint "));
    EXPECT_TRUE(HasPrinted(" has already been appended\n"));
    EXPECT_TRUE(HasPrinted("  50 DataChunkFileAppender Current file size "));
    EXPECT_TRUE(HasPrinted(" > maxSize 4000000\n"));
}

TEST_F(Measure, RecoversADamagedCopyAndAppendsToIt)
{
    const std::size_t count = support::ReadAll(path_ + ".recovered").size();
    EXPECT_LE(count, support::ReadAll(path_).size());
    EXPECT_TRUE(HasPrinted("  20 DataChunkFileAppender In file " + path_ + ".recovered: we discovered "));
    EXPECT_TRUE(HasPrinted("  40 DataChunkFileAppender Chunk " + std::to_string(count - 1) + " in file "));
    EXPECT_TRUE(HasPrinted(path_ + ".recovered opened, contains " + std::to_string(count) + " chunks on version 2\n"));
}

TEST_F(Measure, TagsItsFileAndShowsBothLogEntriesOfAFailure)
{
    if (::setxattr(path_.c_str(), "user.test", "", 0, 0) == -1) {
        GTEST_SKIP() << "this file system keeps no user attributes";
    }
    EXPECT_TRUE(HasPrinted("  user.__fileSize = 4000000 ") || HasPrinted("  user.__fileSize = 4000000\n"));
    EXPECT_TRUE(HasPrinted("  user.__trackSize = "));
    EXPECT_TRUE(HasPrinted("  10 ExtendedAttributes Cannot get size for xattr user.__emptyFile of "));
    EXPECT_TRUE(HasPrinted("  40 ExtendedAttributes Cannot get value of xattr user.__emptyFile of "));
    EXPECT_TRUE(HasPrinted("  thrown: Cannot get value of xattr user.__emptyFile of " + path_ + "\n"));
}

TEST(MeasureUsage, IsPrintedIfTheSecondsAreNoNumber)
{
    FILE* const output =
        ::popen("'" EXAMPLES_FOLDER "/measure' soon 2>&1", "r");  // NOLINT(cert-env33-c): our own program
    ASSERT_NE(output, nullptr);
    std::array<char, 100> line = {};
    EXPECT_NE(std::fgets(line.data(), line.size(), output), nullptr);
    EXPECT_STREQ(line.data(), "usage: measure [seconds [file]]\n");
    EXPECT_EQ(WEXITSTATUS(::pclose(output)), 2);
}

}  // namespace
