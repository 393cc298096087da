#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <tuple>

#include "support/ChunkFileTest.h"
#include "support/Files.h"
#include "support/SystemCalls.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::Pellin::DataChunk;
using support::kUnbounded;
using support::ReadFile;
using support::SystemCalls;
using support::Thrown;
using support::Word;

// Reopening a file whose chunks a test scripts.
class Walk : public support::ChunkFileTest {
protected:
    // A file of `size` bytes whose header counts `count` chunks.
    void WriteFile(std::size_t size, std::uint64_t count)
    {
        std::string file = Word(2) + Word(count);
        file.resize(size, 'x');
        support::WriteFile(path_, file);
    }

    support::ScriptedPlatform platform_;
};

// Every record is good, has this size, and a time point of its own.
void EveryRecordHasSize(std::uint64_t size)
{
    DataChunk::parse = [size, time = std::int64_t{0}](DataChunk& chunk, const unsigned char*) mutable {
        chunk.Become(++time, size);
        return std::uint64_t{1};
    };
}

TEST_F(Walk, EndsAtTheImagesEnd)
{
    WriteFile(116, 50);
    EveryRecordHasSize(10);
    const auto appender = Reopened(kUnbounded);
    EXPECT_EQ(appender.GetTimePoints().size(), 10U);
    EXPECT_EQ(platform_.logger.Lines().at(1), NotGood(10, 50, 39));
}

// The chunk of a record is gone before the next one is made, with the tail and without it.
TEST_F(Walk, HoldsOneChunkAtATime)
{
    for (const bool withTail : {true, false}) {
        const DataChunk first(1, 100);
        const DataChunk second(2, 50);
        std::string file = Word(2) + Word(2) + std::string(150, '\0');
        first.Write(reinterpret_cast<unsigned char*>(file.data()) + 16);
        second.Write(reinterpret_cast<unsigned char*>(file.data()) + 116);
        support::WriteFile(path_, file);
        SystemCalls calls;
        if (!withTail) {
            calls.Fail("mmap", ENOMEM);
        }
        DataChunk::mostAlive = DataChunk::alive;
        EXPECT_EQ(Reopened(kUnbounded).GetTimePoints().size(), 2U);
        EXPECT_EQ(DataChunk::mostAlive, 3);  // one besides this test's own
    }
}

TEST_F(Walk, NeverParsesPastTheImagesEnd)
{
    WriteFile(116, UINT64_MAX);
    int parsed = 0;
    DataChunk::parse = [&](DataChunk& chunk, const unsigned char* record) {
        EXPECT_EQ(*record, 'x');
        chunk.Become(++parsed, 50);
        return std::uint64_t{1};
    };
    const auto appender = Reopened(kUnbounded);
    EXPECT_EQ(parsed, 2);
}

TEST_F(Walk, RecordThatEndsPastTheImageIsNotGoodAndItsTimePointNotHeld)
{
    WriteFile(116, 2);
    EveryRecordHasSize(60);
    const auto appender = Reopened(kUnbounded);
    EXPECT_EQ(appender.GetTimePoints().size(), 1U);
    EXPECT_EQ(platform_.logger.Lines().at(1), NotGood(1, 2, 0));
}

TEST_F(Walk, RecordThatEndsWithTheImageIsGood)
{
    WriteFile(116, 1);
    EveryRecordHasSize(100);
    const auto appender = Reopened(kUnbounded);
    EXPECT_EQ(appender.GetTimePoints().size(), 1U);
    EXPECT_EQ(platform_.logger.Lines().size(), 1U);
}

TEST_F(Walk, BoundedRecordMayReachIntoTheFill)
{
    WriteFile(116, 2);
    EveryRecordHasSize(60);
    const auto appender = Reopened(136);
    EXPECT_EQ(appender.GetTimePoints().size(), 2U);
}

TEST_F(Walk, SizeThatWouldWrapIsNotGood)
{
    WriteFile(116, 3);
    EveryRecordHasSize(UINT64_MAX);
    const auto appender = Reopened(kUnbounded);
    EXPECT_TRUE(appender.GetTimePoints().empty());
    EXPECT_EQ(platform_.logger.Lines().at(1), NotGood(0, 3, 2));
}

TEST_F(Walk, RecordsWithoutLengthAreBoundedByTheImagesSize)
{
    WriteFile(116, UINT64_MAX);
    EveryRecordHasSize(0);
    const auto appender = Reopened(kUnbounded);
    EXPECT_EQ(appender.GetTimePoints().size(), 100U);
    EXPECT_EQ(platform_.logger.Lines().at(1), NotGood(100, 18446744073709551615U, 18446744073709551514U));
}

TEST_F(Walk, RecordsWithoutLengthCountWhereTheHeaderIsPlausible)
{
    WriteFile(116, 3);
    EveryRecordHasSize(0);
    const auto appender = Reopened(kUnbounded);
    EXPECT_EQ(appender.GetTimePoints().size(), 3U);
    EXPECT_EQ(platform_.logger.Lines().size(), 1U);
}

TEST_F(Walk, HeaderAloneWithACountHasNoGoodRecord)
{
    WriteFile(16, 5);
    EveryRecordHasSize(0);
    const auto appender = Reopened(kUnbounded);
    EXPECT_EQ(platform_.logger.Lines().at(1), NotGood(0, 5, 4));
}

TEST_F(Walk, SkippedCountIsExactInSixtyFourBits)
{
    WriteFile(116, std::uint64_t{1} << 63U);
    EveryRecordHasSize(100);
    const auto appender = Reopened(kUnbounded);
    EXPECT_EQ(platform_.logger.Lines().at(0), Discovered(9223372036854775808U));
    EXPECT_EQ(platform_.logger.Lines().at(1), NotGood(1, 9223372036854775808U, 9223372036854775806U));
}

TEST_F(Walk, EachChunkIsMadeFreshAndParsedOnce)
{
    WriteFile(116, 2);
    std::vector<DataChunk*> parsed;
    DataChunk::parse = [&](DataChunk& chunk, const unsigned char*) {
        EXPECT_EQ(chunk.GetSizeOnFile(), 0U);
        parsed.push_back(&chunk);
        chunk.Become(static_cast<std::int64_t>(parsed.size()), 50);
        return std::uint64_t{1};
    };
    const auto appender = Reopened(kUnbounded);
    EXPECT_EQ(parsed.size(), 2U);
}

TEST_F(Walk, EachGoodRecordIsAskedForItsTimePointOnce)
{
    WriteFile(116, 10);
    EveryRecordHasSize(10);
    int asked = 0;
    DataChunk::onGetTimePoint = [&] { ++asked; };
    const auto appender = Reopened(kUnbounded);
    EXPECT_EQ(appender.GetTimePoints().size(), 10U);
    EXPECT_EQ(asked, 10);
}

// A search would take nine comparisons or more for each of 1,000 records.
TEST_F(Walk, RecordsInOrderTakeOneComparisonEach)
{
    constexpr int kRecords = 1000;
    WriteFile(16 + kRecords * 10, kRecords);
    EveryRecordHasSize(10);
    int comparisons = 0;
    Corvane::Time::TimePoint::onCompare = [&] { ++comparisons; };
    const auto appender = Reopened(kUnbounded);
    EXPECT_EQ(comparisons, kRecords - 1);
    EXPECT_EQ(appender.GetTimePoints().size(), kRecords);
}

TEST_F(Walk, AnyResultButZeroIsGood)
{
    WriteFile(116, 1);
    DataChunk::parse = [](DataChunk& chunk, const unsigned char*) {
        chunk.Become(1, 50);
        return UINT64_MAX;
    };
    EXPECT_EQ(Reopened(kUnbounded).GetTimePoints().size(), 1U);
}

TEST_F(Walk, WhateverThrowsLeavesFileAndDescriptorsAsTheyWere)
{
    WriteFile(116, 2);
    const std::string before = ReadFile(path_);
    const auto descriptors = support::OpenDescriptors();
    for (auto* const function :
         {&DataChunk::onReadFrom, &DataChunk::onGetSizeOnFile, &DataChunk::onGetTimePoint, &platform_.logger.onLog,
          &platform_.logger.onLevel, &Corvane::Time::TimePoint::onCopy, &Corvane::Time::TimePoint::onCompare}) {
        EveryRecordHasSize(50);
        *function = support::Throw;
        EXPECT_THROW(Reopened(kUnbounded), Thrown);
        platform_.ClearScript();
        EXPECT_EQ(ReadFile(path_), before);
        EXPECT_EQ(support::OpenDescriptors(), descriptors);
    }
}

// A chunk whose Write throws while it is appended to a damaged file.
class FailedAppend : public Walk, public testing::WithParamInterface<std::uint64_t> {
protected:
    FailedAppend()
    {
        WriteFile(200, 7);
        DataChunk::parse = [good = 1](DataChunk& chunk, const unsigned char*) mutable {
            chunk.Become(1, 50);
            return static_cast<std::uint64_t>(good-- > 0 ? 1 : 0);
        };
    }
};

TEST_P(FailedAppend, LeavesTheDamagedFileAsItWas)
{
    const std::string before = ReadFile(path_);
    {
        auto appender = Reopened(kUnbounded);
        DataChunk::onWrite = support::Throw;
        EXPECT_THROW(std::ignore = appender.Append(DataChunk(2, GetParam())), Thrown);
        platform_.ClearScript();
        EXPECT_EQ(appender.GetTimePoints().size(), 1U);
    }
    EXPECT_EQ(ReadFile(path_), before);
}

TEST_P(FailedAppend, LeavesTheFillOfALargerImageZero)
{
    std::string expected = ReadFile(path_);
    expected.resize(600);
    {
        auto appender = Reopened(600);
        DataChunk::onWrite = support::Throw;
        EXPECT_THROW(std::ignore = appender.Append(DataChunk(2, GetParam())), Thrown);
        platform_.ClearScript();
    }
    EXPECT_EQ(ReadFile(path_), expected);
}

INSTANTIATE_TEST_SUITE_P(WithinAndAcrossTheOldEnd, FailedAppend, testing::Values(40, 134, 135, 400),
                         testing::PrintToStringParamName());

}  // namespace
