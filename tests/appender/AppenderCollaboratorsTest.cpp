#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "support/ChunkFileTest.h"
#include "support/Files.h"
#include "support/SystemCalls.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::Pellin::DataChunk;
using support::kUnbounded;
using support::Lines;
using tarn::cv::logging::LoggingManager;

// Which calls of chunks and loggers an appender makes, and in what order.
class AppenderCollaborators : public support::ChunkFileTest {
protected:
    AppenderCollaborators()
    {
        DataChunk::onGetSizeOnFile = [this] { asked_.push_back("size"); };
        DataChunk::onGetTimePoint = [this] { asked_.push_back("time point"); };
        DataChunk::onWrite = [this] { asked_.push_back("write"); };
    }

    support::ScriptedPlatform platform_;
    Lines asked_;
};

TEST_F(AppenderCollaborators, LoggerIsLookedUpOnceByNameInTheConstructor)
{
    LoggingManager::onLookUp = [this] { asked_.push_back("logger"); };
    {
        auto appender = NewFile(64);
        EXPECT_EQ(asked_, Lines{"logger"});
        EXPECT_FALSE(appender.Append(DataChunk(1, 100)));
    }
    EXPECT_EQ(LoggingManager::names, Lines{"DataChunkFileAppender"});
}

TEST_F(AppenderCollaborators, LoggerIsLookedUpBeforeTheImageIsMade)
{
    const support::SystemCalls calls;
    LoggingManager::onLookUp = [&] {
        asked_.push_back("logger");
        EXPECT_EQ(calls.Names(), Lines{});
    };
    const auto appender = NewFile(std::uint64_t{1} << 26U);
    EXPECT_EQ(asked_, Lines{"logger"});
    EXPECT_GE(calls.Calls("mmap").size(), 1U);
}

TEST_F(AppenderCollaborators, AppendAsksForSizeThenTimePointThenWrites)
{
    auto appender = NewFile(200);
    EXPECT_TRUE(appender.Append(DataChunk(1, 100)));
    EXPECT_EQ(asked_, (Lines{"size", "time point", "write"}));
}

TEST_F(AppenderCollaborators, ChunkThatDoesNotFitIsAskedForItsSizeOnly)
{
    auto appender = NewFile(64);
    EXPECT_FALSE(appender.Append(DataChunk(1, 100)));
    EXPECT_EQ(asked_, Lines{"size"});
}

TEST_F(AppenderCollaborators, ChunkOfSizeZeroFitsAFullFile)
{
    {
        auto appender = NewFile(16);
        EXPECT_TRUE(appender.Append(DataChunk(1, 0)));
    }
    EXPECT_EQ(support::ReadFile(path_), support::Word(2) + support::Word(1));
}

TEST_F(AppenderCollaborators, RefusedDuplicateIsNotWritten)
{
    auto appender = NewFile(400);
    EXPECT_TRUE(appender.Append(DataChunk(1, 100)));
    asked_.clear();
    EXPECT_FALSE(appender.Append(DataChunk(1, 50)));
    EXPECT_EQ(asked_, (Lines{"size", "time point"}));
}

TEST_F(AppenderCollaborators, DuplicatesEntryPrintsTheRefusedTimePoint)
{
    Corvane::Time::TimePoint::resolution = 10;
    auto appender = NewFile(400);
    EXPECT_TRUE(appender.Append(DataChunk(17, 100)));
    EXPECT_FALSE(appender.Append(DataChunk(12, 100)));
    EXPECT_EQ(platform_.logger.Lines(), Lines{"50 TimePoint 12 has already been appended"});
}

TEST_F(AppenderCollaborators, WithoutALoggerNothingIsLoggedAndAllElseIsTheSame)
{
    LoggingManager::absent = true;
    support::SystemCalls calls;
    calls.Fail("write", ENOSPC);
    {
        auto appender = NewFile(200);
        EXPECT_TRUE(appender.Append(DataChunk(1, 100)));
        EXPECT_FALSE(appender.Append(DataChunk(1, 50)));
        EXPECT_FALSE(appender.Append(DataChunk(2, 500)));
    }
    EXPECT_EQ(calls.Fired(), 1U);
    EXPECT_EQ(platform_.logger.Lines(), Lines{});
}

TEST_F(AppenderCollaborators, WithoutALoggerADamagedFileIsRecoveredInSilence)
{
    LoggingManager::absent = true;
    support::WriteFile(path_, support::Word(2) + support::Word(3) + std::string(100, 'x'));
    EXPECT_TRUE(Reopened(kUnbounded).GetTimePoints().empty());
    EXPECT_EQ(platform_.logger.Lines(), Lines{});
}

TEST_F(AppenderCollaborators, NegativeLevelsAreBelowAllOthers)
{
    platform_.logger.level = -5;
    auto appender = NewFile(64);
    EXPECT_FALSE(appender.Append(DataChunk(1, 100)));
    EXPECT_EQ(platform_.logger.Lines().size(), 1U);
}

TEST_F(AppenderCollaborators, FailedFlushChangesNothingForTheDestructor)
{
    support::SystemCalls calls;
    calls.Fail("write", ENOSPC);
    {
        auto appender = NewFile(64);
        appender.Flush();
    }
    const auto writes = calls.Calls("write");
    ASSERT_EQ(writes.size(), 2U);
    EXPECT_EQ(writes[1].buffer, writes[0].buffer);
    EXPECT_EQ(writes[1].size, 64U);
    EXPECT_EQ(support::ReadFile(path_), support::Word(2) + std::string(56, '\0'));
}

TEST_F(AppenderCollaborators, ThrowingLoggerOfAFailedLastWriteEndsTheProcess)
{
    platform_.logger.onLog = [] { throw std::runtime_error("a logger's"); };
    EXPECT_DEATH(
        {
            support::SystemCalls calls;
            calls.Fail("write", ENOSPC);
            const auto appender = NewFile(64);
        },
        "");
}

}  // namespace
