#include <gtest/gtest.h>

#include <cerrno>

#include "Corvane/File/DataChunkFileAppender.h"
#include "support/Files.h"
#include "support/SourceLines.h"
#include "support/SystemCalls.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::File::DataChunkFileAppender;
using Corvane::Pellin::DataChunk;

// Each log entry of an appender names the statement that issued it.
class AppenderEntries : public testing::Test {
protected:
    void ExpectEntry(std::size_t index, const std::string& piece) const
    {
        ASSERT_LT(index, platform_.logger.entries.size());
        const auto& entry = platform_.logger.entries[index];
        EXPECT_EQ(entry.file, "Corvane/Common/libFile/Corvane/File/DataChunkFileAppender.cpp");
        const auto [first, last] = support::LoggingStatement("DataChunkFileAppender.cpp", {piece});
        EXPECT_GE(entry.line, first) << entry.message;
        EXPECT_LE(entry.line, last) << entry.message;
    }

    support::TemporaryFolder folder_;
    std::string path_ = folder_ / "a";
    support::ScriptedPlatform platform_;
};

TEST_F(AppenderEntries, OfRefusedChunksNameTheirStatements)
{
    DataChunkFileAppender appender(path_, false, 64);
    EXPECT_FALSE(appender.Append(DataChunk(1, 100)));
    EXPECT_TRUE(appender.Append(DataChunk(1, 24)));
    EXPECT_FALSE(appender.Append(DataChunk(1, 24)));
    ExpectEntry(0, "Current file size");
    ExpectEntry(1, "has already been appended");
}

TEST_F(AppenderEntries, OfAReopenedDamagedFileNameTheirStatements)
{
    support::WriteFile(path_, support::Word(2) + support::Word(3) + std::string(100, 'x'));
    const DataChunkFileAppender appender(path_, true, 0);
    ExpectEntry(0, "we discovered");
    ExpectEntry(1, "chunks is not good");
}

TEST_F(AppenderEntries, OfAFailedWriteNamesItsStatement)
{
    support::SystemCalls calls;
    calls.Fail("write", ENOSPC);
    DataChunkFileAppender(path_, false, 64).Flush();
    ExpectEntry(0, "Could not write");
}

}  // namespace
