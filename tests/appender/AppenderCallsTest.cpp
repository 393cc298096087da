#include <fcntl.h>
#include <gtest/gtest.h>

#include "Corvane/File/DataChunkFileAppender.h"
#include "support/Allocations.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/SystemCalls.h"

namespace {

using Corvane::File::DataChunkFileAppender;
using support::ChunkOfSize;
using Lines = std::vector<std::string>;

class AppenderCalls : public testing::Test {
protected:
    support::TemporaryFolder folder_;
    std::string path_ = folder_ / "a";
    support::LogCapture log_;
};

TEST_F(AppenderCalls, NewFileTakesOneOpenOneWriteOneClose)
{
    support::SystemCalls calls;
    {
        DataChunkFileAppender appender(path_, false, 512);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
    }
    EXPECT_EQ(calls.Names(), (Lines{"open", "write", "close"}));
    EXPECT_EQ(calls.Calls("open").at(0).flags, 0x40041);
    EXPECT_EQ(calls.Calls("open").at(0).mode, 0664U);
    EXPECT_EQ(calls.Calls("write").at(0).size, 512U);
}

TEST_F(AppenderCalls, FailedWriteIsLoggedWithMinusOne)
{
    support::SystemCalls calls;
    calls.Fail("write", ENOSPC);
    {
        DataChunkFileAppender appender(path_, false, 512);
    }
    EXPECT_EQ(calls.Fired(), 1U);
    EXPECT_EQ(log_.Lines(), (Lines{"50 Could not write 512B. Wrote instead: -1"}));
}

}  // namespace
