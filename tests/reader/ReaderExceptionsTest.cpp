#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "Corvane/File/DataChunkFileReader.h"
#include "support/Allocations.h"
#include "support/ChunkFileTest.h"
#include "support/Files.h"
#include "support/SourceLines.h"
#include "support/SystemCalls.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::File::DataChunkFileReader;
using Corvane::Pellin::DataChunk;
using support::Throw;
using support::Thrown;
using tarn::cv::logging::LoggingManager;

class ReaderExceptions : public support::ChunkFileTest {
protected:
    ReaderExceptions() { support::WriteFile(path_, support::Word(2) + support::Word(0)); }
    ~ReaderExceptions() override { EXPECT_EQ(support::OpenDescriptors(), descriptors_); }

    support::ScriptedPlatform platform_;
    std::set<int> descriptors_ = support::OpenDescriptors();
};

TEST_F(ReaderExceptions, ThrowingLogEntryOfAnOpenedFileLeavesNoDescriptor)
{
    platform_.logger.onLog = Throw;
    EXPECT_THROW(DataChunkFileReader{path_}, Thrown);
}

TEST_F(ReaderExceptions, ThrowingLevelLeavesNoDescriptor)
{
    platform_.logger.onLevel = Throw;
    EXPECT_THROW(DataChunkFileReader{path_}, Thrown);
}

TEST_F(ReaderExceptions, ThrowingLogEntryOfAMissingFileReplacesItsException)
{
    platform_.logger.onLog = Throw;
    EXPECT_THROW(DataChunkFileReader{folder_ / "none"}, Thrown);
}

TEST_F(ReaderExceptions, ThrowingRegistryKeepsTheFileUntouched)
{
    LoggingManager::onLookUp = Throw;
    const support::SystemCalls calls;
    EXPECT_THROW(DataChunkFileReader{path_}, Thrown);
    EXPECT_TRUE(calls.Names().empty());
}

TEST_F(ReaderExceptions, EveryFailedAllocationLeavesNoDescriptor)
{
    const auto expectClosed = [this] { EXPECT_EQ(support::OpenDescriptors(), descriptors_); };
    EXPECT_GE(support::FailEveryAllocation([this] { DataChunkFileReader{path_}; }, expectClosed), 2U);
}

TEST_F(ReaderExceptions, LoggerIsLookedUpOnceByName)
{
    DataChunkFileReader reader(path_);
    DataChunk chunk;
    EXPECT_EQ(reader.GetChunk(chunk, 16), 0U);
    EXPECT_EQ(LoggingManager::names, support::Lines{"DataChunkFileReader"});
}

TEST_F(ReaderExceptions, LoggerIsLookedUpOnceForAMissingFileToo)
{
    EXPECT_THROW(DataChunkFileReader{folder_ / "none"}, std::runtime_error);
    EXPECT_EQ(LoggingManager::names, support::Lines{"DataChunkFileReader"});
}

TEST_F(ReaderExceptions, FetchingAndClosingLookUpNoLogger)
{
    {
        DataChunkFileReader reader(path_);
        DataChunk chunk;
        LoggingManager::names.clear();
        EXPECT_EQ(reader.GetChunk(chunk, 16), 0U);
        EXPECT_EQ(reader.GetChunk(chunk, 16, {"x"}), 0U);
    }
    EXPECT_TRUE(LoggingManager::names.empty());
}

TEST_F(ReaderExceptions, EntriesNameTheirStatements)
{
    const DataChunkFileReader reader(path_);
    EXPECT_THROW(DataChunkFileReader{folder_ / "none"}, std::runtime_error);
    const support::Lines pieces = {" opened, contains ", "kFatalLevel"};
    ASSERT_EQ(platform_.logger.entries.size(), pieces.size());
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const auto& entry = platform_.logger.entries[i];
        support::ExpectStatement(entry.file, entry.line, "DataChunkFileReader.cpp", {pieces[i]});
    }
}

TEST_F(ReaderExceptions, FetchingAndClosingLogNothing)
{
    platform_.logger.level = INT32_MIN;
    {
        DataChunkFileReader reader(path_);
        DataChunk chunk;
        EXPECT_EQ(reader.GetChunk(chunk, 16), 0U);
        EXPECT_EQ(reader.GetChunk(chunk, 16, {"x"}), 0U);
    }
    EXPECT_EQ(platform_.logger.Lines().size(), 1U);  // of the opening
}

TEST_F(ReaderExceptions, NoTextIsBuiltForAnEntryThatIsNotIssued)
{
    LoggingManager::names.reserve(8);  // the registry's own
    const auto allocationsAtLevel = [this](std::int32_t level) {
        platform_.logger.level = level;
        const support::Allocations allocations;
        const DataChunkFileReader reader(path_);
        return allocations.Count();
    };
    EXPECT_GT(allocationsAtLevel(10), allocationsAtLevel(11));
    EXPECT_EQ(allocationsAtLevel(11), allocationsAtLevel(51));
    EXPECT_EQ(platform_.logger.Lines().size(), 1U);
}

TEST_F(ReaderExceptions, SetIsPassedToTheChunkUntouched)
{
    const std::set<std::string> names = {"x", "y"};
    DataChunkFileReader reader(path_);
    DataChunk chunk;
    EXPECT_EQ(reader.GetChunk(chunk, 16, names), 0U);
    EXPECT_EQ(DataChunk::lastNames, &names);
}

TEST_F(ReaderExceptions, ThrowingChunkLeavesTheReaderUsable)
{
    DataChunkFileReader reader(path_);
    DataChunk chunk;
    DataChunk::onReadFrom = Throw;
    EXPECT_THROW(reader.GetChunk(chunk, 16), Thrown);
    DataChunk::onReadFrom = nullptr;
    EXPECT_EQ(reader.GetChunk(chunk, 16), 0U);
}

}  // namespace
