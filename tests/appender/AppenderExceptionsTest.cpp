#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>

#include "Corvane/File/DataChunkFileAppender.h"
#include "support/Allocations.h"
#include "support/Files.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::File::DataChunkFileAppender;
using Corvane::Pellin::DataChunk;
using Corvane::Time::TimePoint;
using Lines = std::vector<std::string>;

// What a collaborator throws.
struct Thrown {};

std::function<void()> ThrowAt(int nth)
{
    return [nth]() mutable {
        if (nth-- == 0) {
            throw Thrown();
        }
    };
}

// An appender whose first two chunks stand in the image, bounded or not.
class AppenderExceptions : public testing::TestWithParam<std::uint64_t> {
protected:
    AppenderExceptions()
    {
        EXPECT_TRUE(appender_->Append(first_));
        EXPECT_TRUE(appender_->Append(second_));
    }

    // Another chunk fails on the way, and the image is none the worse.
    void ExpectAppendToThrow(std::function<void()>& where, int nth)
    {
        where = ThrowAt(nth);
        EXPECT_THROW(appender_->Append(third_), Thrown);
        platform_.ClearScript();
        EXPECT_EQ(appender_->GetTimePoints().size(), 2U);
    }

    // What the file is once the appender is gone.
    std::string Written()
    {
        appender_.reset();
        return support::ReadFile(path_);
    }

    static std::string Image(std::initializer_list<const DataChunk*> chunks)
    {
        std::string bytes = support::Word(GetParam() == 0 ? 0 : 2) + support::Word(chunks.size());
        for (const DataChunk* const chunk : chunks) {
            std::string record(chunk->GetSizeOnFile(), '\0');
            chunk->Write(reinterpret_cast<unsigned char*>(record.data()));
            bytes += record;
        }
        bytes.resize(std::max<std::size_t>(bytes.size(), GetParam()));
        return bytes;
    }

    support::TemporaryFolder folder_;
    std::string path_ = folder_ / "a";
    support::ScriptedPlatform platform_;
    DataChunk first_{10, 100};
    DataChunk second_{30, 50};
    DataChunk third_{20, 80};
    std::unique_ptr<DataChunkFileAppender> appender_ =
        std::make_unique<DataChunkFileAppender>(path_, false, GetParam());
};

TEST_P(AppenderExceptions, ThrowingSizeLeavesTheImageAsItWas)
{
    ExpectAppendToThrow(DataChunk::onGetSizeOnFile, 0);
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, ThrowingTimePointLeavesTheImageAsItWas)
{
    ExpectAppendToThrow(DataChunk::onGetTimePoint, 0);
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, ThrowingWriteLeavesTheImageAsItWas)
{
    ExpectAppendToThrow(DataChunk::onWrite, 0);
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, ThrowingCopyOfATimePointLeavesTheImageAsItWas)
{
    ExpectAppendToThrow(TimePoint::onCopy, 0);
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
    std::uint64_t nth = 0;
    for (bool appended = false; !appended; ++nth) {
        support::Allocations allocations;
        allocations.FailAt(nth);
        try {
            appended = appender_->Append(third_);
            EXPECT_EQ(allocations.Failed(), 0U);
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(allocations.Failed(), 1U);
            EXPECT_EQ(appender_->GetTimePoints().size(), 2U);
        }
    }
    EXPECT_GE(nth, 2U);  // the set's node, at least
    EXPECT_EQ(Written(), Image({&first_, &second_, &third_}));
}

TEST_P(AppenderExceptions, ThrowingLoggerOfARefusalLeavesTheImageAsItWas)
{
    platform_.logger.onLog = ThrowAt(0);
    const DataChunk again(10, 40);
    EXPECT_THROW(appender_->Append(again), Thrown);
    platform_.ClearScript();
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, ThrowingLevelOfARefusalLeavesTheImageAsItWas)
{
    platform_.logger.onLevel = ThrowAt(0);
    const DataChunk again(10, 40);
    EXPECT_THROW(appender_->Append(again), Thrown);
    platform_.ClearScript();
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, ThrowingOutputOfATimePointLeavesTheImageAsItWas)
{
    TimePoint::onPrint = ThrowAt(0);
    const DataChunk again(10, 40);
    EXPECT_THROW(appender_->Append(again), Thrown);
    platform_.ClearScript();
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

// An unbounded image refuses no size.
using BoundedAppenderExceptions = AppenderExceptions;

TEST_P(BoundedAppenderExceptions, ThrowingLoggerOfAChunkThatIsTooLongLeavesTheImageAsItWas)
{
    platform_.logger.onLog = ThrowAt(0);
    const DataChunk large(99, 500);
    EXPECT_THROW(appender_->Append(large), Thrown);
    platform_.ClearScript();
    EXPECT_EQ(Written(), Image({&first_, &second_}));
}

TEST_P(AppenderExceptions, NextAppendWorksAfterAFailedOne)
{
    ExpectAppendToThrow(DataChunk::onWrite, 0);
    EXPECT_TRUE(appender_->Append(third_));
    EXPECT_EQ(Written(), Image({&first_, &second_, &third_}));
}

TEST_P(AppenderExceptions, ImpossibleSizeIsNeverWritten)
{
    DataChunk::onWrite = [] { FAIL() << "nothing has room for this"; };
    const DataChunk endless(99, UINT64_MAX);
    if (GetParam() == 0) {
        EXPECT_THROW(appender_->Append(endless), std::length_error);
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
INSTANTIATE_TEST_SUITE_P(BoundedAndUnbounded, AppenderExceptions, testing::Values(400, 0), kName);
INSTANTIATE_TEST_SUITE_P(Bounded, BoundedAppenderExceptions, testing::Values(400), kName);

TEST(FirstAppend, ThrowingInAnEmptyUnboundedImageLeavesNothingToWrite)
{
    const support::TemporaryFolder folder;
    support::ScriptedPlatform platform;
    DataChunk::onWrite = ThrowAt(0);
    {
        DataChunkFileAppender appender(folder / "a", false, 0);
        EXPECT_THROW(appender.Append(DataChunk(1, 100)), Thrown);
    }
    EXPECT_EQ(support::ReadFile(folder / "a"), "");
}

}  // namespace
