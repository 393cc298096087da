#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <tuple>

#include "support/Allocations.h"
#include "support/ChunkFileTest.h"
#include "support/Files.h"
#include "support/Records.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::Pellin::DataChunk;
using Corvane::Time::TimePoint;
using support::DataChunkFileAppender;
using support::Lines;
using support::ThrowAt;
using support::Thrown;

// An appender, bounded or not, whose image holds two chunks.
class AppenderExceptions : public support::ChunkFileTest, public testing::WithParamInterface<std::uint64_t> {
protected:
    AppenderExceptions()
    {
        EXPECT_TRUE(appender_->Append(first_));
        EXPECT_TRUE(appender_->Append(second_));
    }

    // Appending the chunk throws there and adds no time point.
    void ExpectToThrow(std::function<void()>& where, const DataChunk& chunk)
    {
        where = support::Throw;
        EXPECT_THROW(std::ignore = appender_->Append(chunk), Thrown);
        platform_.ClearScript();
        EXPECT_EQ(appender_->GetTimePoints().size(), 2U);
    }

    // Destroys the appender and returns the file.
    std::string Written()
    {
        appender_.reset();
        return support::ReadFile(path_);
    }

    static std::string Image(std::initializer_list<const DataChunk*> chunks)
    {
        std::string bytes = support::Word(GetParam() == 0 ? 0 : 2) + support::Word(chunks.size());
        for (const DataChunk* const chunk : chunks) {
            bytes += support::RecordOf(*chunk);
        }
        bytes.resize(std::max<std::size_t>(bytes.size(), GetParam()));
        return bytes;
    }

    support::ScriptedPlatform platform_;
    DataChunk first_{10, 100};
    DataChunk second_{30, 50};
    DataChunk third_{20, 80};
    std::unique_ptr<DataChunkFileAppender> appender_{new DataChunkFileAppender(NewFile(GetParam()))};
};

TEST_P(AppenderExceptions, ThrowingSizeLeavesTheImageAsItWas)
{
    ExpectToThrow(DataChunk::onGetSizeOnFile, third_);
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, ThrowingTimePointLeavesTheImageAsItWas)
{
    ExpectToThrow(DataChunk::onGetTimePoint, third_);
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, ThrowingWriteLeavesTheImageAsItWas)
{
    ExpectToThrow(DataChunk::onWrite, third_);
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, ThrowingCopyOfATimePointLeavesTheImageAsItWas)
{
    ExpectToThrow(TimePoint::onCopy, third_);
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, EveryThrowingComparisonLeavesTheImageAsItWas)
{
    int nth = 0;
    for (bool appended = false; !appended; ++nth) {
        TimePoint::onCompare = ThrowAt(nth);
        try {
            appended = appender_->Append(third_);
        } catch (const Thrown&) {
            EXPECT_EQ(appender_->GetTimePoints().size(), 2U);
        }
        platform_.ClearScript();
    }
    EXPECT_GE(nth, 4);
    EXPECT_EQ(Written(), Image({&first_, &second_, &third_}));
}

TEST_P(AppenderExceptions, EveryFailedAllocationLeavesTheImageAsItWas)
{
    const auto append = [this] { EXPECT_TRUE(appender_->Append(third_)); };
    const auto expectUnchanged = [this] { EXPECT_EQ(appender_->GetTimePoints().size(), 2U); };
    EXPECT_GE(support::FailEveryAllocation(append, expectUnchanged), 1U);  // the set's node, at least
    EXPECT_EQ(Written(), Image({&first_, &second_, &third_}));
}

TEST_P(AppenderExceptions, ThrowingLoggerOfARefusalLeavesTheImageAsItWas)
{
    ExpectToThrow(platform_.logger.onLog, DataChunk(10, 40));
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, ThrowingLevelOfARefusalLeavesTheImageAsItWas)
{
    ExpectToThrow(platform_.logger.onLevel, DataChunk(10, 40));
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, ThrowingOutputOfATimePointLeavesTheImageAsItWas)
{
    ExpectToThrow(TimePoint::onPrint, DataChunk(10, 40));
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

// An unbounded image refuses no size.
using BoundedAppenderExceptions = AppenderExceptions;

TEST_P(BoundedAppenderExceptions, ThrowingLoggerOfAnOversizeChunkLeavesTheImageAsItWas)
{
    ExpectToThrow(platform_.logger.onLog, DataChunk(99, 500));
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, NextAppendWorksAfterAFailedOne)
{
    ExpectToThrow(DataChunk::onWrite, third_);
    EXPECT_TRUE(appender_->Append(third_));
    EXPECT_EQ(Written(), Image({&first_, &second_, &third_}));
}

TEST_P(AppenderExceptions, ImpossibleSizeIsNeverWritten)
{
    DataChunk::onWrite = [] { FAIL() << "nothing has room for this"; };
    const DataChunk endless(99, UINT64_MAX);
    if (GetParam() == 0) {
        EXPECT_THROW(std::ignore = appender_->Append(endless), std::length_error);
        EXPECT_EQ(platform_.logger.Lines(), Lines{});
    } else {
        EXPECT_FALSE(appender_->Append(endless));
        EXPECT_EQ(platform_.logger.Lines(),
                  Lines{"50 Current file size 166 + chunkSize 18446744073709551615 > maxSize 400"});
    }
    platform_.ClearScript();
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

constexpr auto kName = [](const auto& parameter) { return parameter.param == 0 ? "Unbounded" : "Bounded"; };
INSTANTIATE_TEST_SUITE_P(Both, AppenderExceptions, testing::Values(400, 0), kName);
INSTANTIATE_TEST_SUITE_P(Bounded, BoundedAppenderExceptions, testing::Values(400), kName);

TEST(FirstAppend, ThrowingInAnEmptyUnboundedImageLeavesNothingToWrite)
{
    const support::TemporaryFolder folder;
    support::ScriptedPlatform platform;
    DataChunk::onWrite = support::Throw;
    {
        auto appender = support::NewFile(folder / "a", support::kUnbounded);
        EXPECT_THROW(std::ignore = appender.Append(DataChunk(1, 100)), Thrown);
    }
    EXPECT_EQ(support::ReadFile(folder / "a"), "");
}

}  // namespace
