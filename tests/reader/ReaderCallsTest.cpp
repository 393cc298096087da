#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "Corvane/File/DataChunkFileReader.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/SystemCalls.h"

namespace {

using Corvane::File::DataChunkFileReader;
using support::ChunkOfSize;
using support::Lines;

class ReaderCalls : public support::ChunkFileTest {
protected:
    ReaderCalls() { support::WriteFile(path_, support::FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 200)})); }
};

TEST_F(ReaderCalls, ReaderTakesOneOpenTwoReadsAndOneClose)
{
    support::SystemCalls calls;
    {
        const DataChunkFileReader reader(path_);
    }
    ASSERT_EQ(calls.Names(), (Lines{"open", "read", "read", "close"}));
    EXPECT_EQ(calls.Calls()[0].flags, O_RDONLY | O_NOATIME);
    EXPECT_EQ(calls.Calls()[1].size, 8U);
    EXPECT_EQ(calls.Calls()[2].size, 8U);
    EXPECT_EQ(calls.Calls()[3].fd, calls.Calls()[0].result);
}

TEST_F(ReaderCalls, FetchingSeeksOnceAndLetsTheChunkRead)
{
    DataChunkFileReader reader(path_);
    support::DataChunk chunk;
    const support::SystemCalls calls;
    EXPECT_EQ(reader.GetChunk(chunk, 116), 200U);
    const auto made = calls.Calls();
    ASSERT_GE(made.size(), 2U);
    EXPECT_EQ(made[0].name, "lseek64");
    EXPECT_EQ(made[0].offset, 116);
    EXPECT_EQ(made[0].flags, SEEK_SET);
    for (std::size_t i = 1; i < made.size(); ++i) {
        EXPECT_EQ(made[i].name, "read");
    }
}

TEST_F(ReaderCalls, FetchingWithNamesSeeksToo)
{
    DataChunkFileReader reader(path_);
    support::DataChunk chunk;
    const support::SystemCalls calls;
    EXPECT_EQ(reader.GetChunk(chunk, 116, {"p"}), 200U);
    EXPECT_EQ(calls.Names().at(0), "lseek64");
    EXPECT_EQ(calls.Calls()[0].offset, 116);
    EXPECT_EQ(calls.Calls()[0].flags, SEEK_SET);
    EXPECT_EQ(calls.Calls("lseek64").size(), 1U);
}

TEST_F(ReaderCalls, FailedReadsOfTheHeaderLeaveItZero)
{
    support::SystemCalls calls;
    calls.FailEach("read", EIO);
    const DataChunkFileReader reader(path_);
    EXPECT_EQ(calls.Fired(), 2U);
    EXPECT_EQ(reader.GetVersion(), 0U);
    EXPECT_EQ(reader.GetNumberOfChunks(), 0U);
}

TEST_F(ReaderCalls, ShortReadOfTheVersionLeavesTheRestOfItZero)
{
    support::SystemCalls calls;
    calls.Shorten("read", 1);
    const DataChunkFileReader reader(path_);
    EXPECT_EQ(calls.Fired(), 1U);
    EXPECT_EQ(reader.GetVersion(), 2U);
    EXPECT_EQ(calls.Calls("read").size(), 2U);
}

TEST_F(ReaderCalls, FailedSeekIsIgnored)
{
    DataChunkFileReader reader(path_);
    support::DataChunk chunk;
    support::SystemCalls calls;
    calls.Fail("lseek64", EINVAL);
    calls.Fail("lseek64", EINVAL, 1);
    EXPECT_EQ(reader.GetChunk(chunk, 116), 100U);        // the descriptor is at the end of the header
    EXPECT_EQ(reader.GetChunk(chunk, 16, {"p"}), 200U);  // and now at the end of record 0
    EXPECT_EQ(calls.Fired(), 2U);
}

}  // namespace
