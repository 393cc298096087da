#include <gtest/gtest.h>

#include <cerrno>

#include "support/ChunkFileTest.h"
#include "support/Files.h"
#include "support/SourceLines.h"
#include "support/SystemCalls.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::Pellin::DataChunk;

// Each log entry of an appender names the statement that issued it.
class AppenderEntries : public support::ChunkFileTest {
protected:
    void ExpectEntry(std::size_t index, const std::string& piece) const
    {
        ASSERT_LT(index, platform_.logger.entries.size());
        const auto& entry = platform_.logger.entries[index];
        support::ExpectStatement(entry.file, entry.line, "DataChunkFileAppender.cpp", {piece});
    }

    support::ScriptedPlatform platform_;
};

TEST_F(AppenderEntries, OfRefusedChunksNameTheirStatements)
{
    auto appender = NewFile(64);
    EXPECT_FALSE(appender.Append(DataChunk(1, 100)));
    EXPECT_TRUE(appender.Append(DataChunk(1, 24)));
    EXPECT_FALSE(appender.Append(DataChunk(1, 24)));
    ExpectEntry(0, "Current file size");
    ExpectEntry(1, "has already been appended");
}

TEST_F(AppenderEntries, OfAReopenedDamagedFileNameTheirStatements)
{
    support::WriteFile(path_, support::Word(2) + support::Word(3) + std::string(100, 'x'));
    const auto appender = Reopened(support::kUnbounded);
    ExpectEntry(0, "we discovered");
    ExpectEntry(1, "chunks is not good");
}

TEST_F(AppenderEntries, OfAFailedWriteNamesItsStatement)
{
    support::SystemCalls calls;
    calls.Fail("write", ENOSPC);
    NewFile(64).Flush();
    ExpectEntry(0, "Could not write");
}

}  // namespace
