// What GetTimePoints shows, whenever it is asked: the time points of the chunks in the image, each once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <tuple>
#include <vector>

#include "support/Allocations.h"
#include "support/ChunkFileTest.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::Pellin::DataChunk;
using Corvane::Time::TimePoint;
using support::DataChunkFileAppender;
using support::kUnbounded;
using support::ThrowAt;
using support::Thrown;

using Times = std::vector<std::int64_t>;

constexpr std::uint64_t kRecordSize = 30;

class TimePoints : public support::ChunkFileTest {
protected:
    // Opens the file again, to continue it.
    void Reopen()
    {
        appender_.reset();
        appender_ = std::make_unique<DataChunkFileAppender>(path_, true, kUnbounded);
    }

    bool Append(std::int64_t time) { return appender_->Append(DataChunk(time, kRecordSize)); }

    void AppendAll(const Times& times)
    {
        for (const std::int64_t time : times) {
            ASSERT_TRUE(Append(time)) << time;
        }
    }

    void ExpectRefused(const Times& times)
    {
        for (const std::int64_t time : times) {
            EXPECT_FALSE(Append(time)) << time;
        }
    }

    Times Shown() const
    {
        Times times;
        for (const TimePoint& timePoint : appender_->GetTimePoints()) {
            times.push_back(timePoint.Value());
        }
        return times;
    }

    // Lets GetTimePoints fail at its first, second, ... copy or comparison, until none fails. After each failure, what
    // is held is refused; after the first one, chunks are appended in order and late.
    void ExpectEveryFailureSurvived(std::function<void()>& where)
    {
        AppendAll({10, 20, 30, 15});
        int failures = 0;
        for (bool shown = false; !shown;) {
            where = ThrowAt(failures);
            try {
                std::ignore = appender_->GetTimePoints();
                shown = true;
            } catch (const Thrown&) {
                platform_.ClearScript();
                AppendAll(failures++ == 0 ? Times{40, 5} : Times{});
                ExpectRefused({5, 10, 15, 20, 30, 40});
            }
        }
        platform_.ClearScript();
        EXPECT_GE(failures, 3);
        EXPECT_EQ(Shown(), (Times{5, 10, 15, 20, 30, 40}));
    }

    support::ScriptedPlatform platform_;
    std::unique_ptr<DataChunkFileAppender> appender_{new DataChunkFileAppender(path_, false, 1 << 20)};
};

TEST_F(TimePoints, OfNoChunkAreNone)
{
    EXPECT_EQ(Shown(), Times{});
}

TEST_F(TimePoints, InOrderAreShownAndRefused)
{
    AppendAll({10, 20, 30});
    ExpectRefused({30, 20, 10});
    EXPECT_EQ(Shown(), (Times{10, 20, 30}));
    ExpectRefused({30, 20, 10});
}

TEST_F(TimePoints, OfLateChunksAreShownAndRefused)
{
    AppendAll({50, 20, 60, 40, 10});
    ExpectRefused({10, 20, 40, 50, 60});
    EXPECT_EQ(Shown(), (Times{10, 20, 40, 50, 60}));
    ExpectRefused({10, 20, 40, 50, 60});
}

TEST_F(TimePoints, MayAllBeEarlierThanTheFirst)
{
    AppendAll({INT64_MAX, 1, 2, 3});
    ExpectRefused({3, 2, 1, INT64_MAX});
    EXPECT_EQ(Shown(), (Times{1, 2, 3, INT64_MAX}));
}

TEST_F(TimePoints, OfAnyNumberOfBlocksAreShownAndRefused)
{
    Times even;
    Times odd;
    Times all;
    for (std::int64_t i = 0; i < 1000; ++i) {
        (i % 2 == 0 ? even : odd).push_back(i);
        all.push_back(i);
    }
    AppendAll(even);
    AppendAll(odd);
    ExpectRefused(all);
    EXPECT_EQ(Shown(), all);
}

TEST_F(TimePoints, InRandomOrderAreShownAndRefused)
{
    Times all(2000);
    std::iota(all.begin(), all.end(), 0);
    Times shuffled = all;
    std::shuffle(shuffled.begin(), shuffled.end(),
                 std::mt19937_64(1));  // NOLINT(cert-msc51-cpp): the same in every run
    AppendAll(shuffled);
    ExpectRefused(all);
    EXPECT_EQ(Shown(), all);
    ExpectRefused(all);
}

TEST_F(TimePoints, InDescendingOrderAreShownAndRefused)
{
    Times all(200);
    std::iota(all.begin(), all.end(), 0);
    AppendAll(Times(all.rbegin(), all.rend()));
    ExpectRefused(all);
    EXPECT_EQ(Shown(), all);
}

TEST_F(TimePoints, StayCompleteAfterTheyWereAskedFor)
{
    AppendAll({10, 30});
    const std::set<TimePoint>& timePoints = appender_->GetTimePoints();
    AppendAll({40, 20});
    EXPECT_EQ(timePoints.size(), 4U);
    EXPECT_EQ(timePoints.rbegin()->Value(), 40);
    EXPECT_EQ(std::next(timePoints.begin())->Value(), 20);
    EXPECT_EQ(&appender_->GetTimePoints(), &timePoints);
}

TEST_F(TimePoints, AreNotMovedByLaterAppends)
{
    AppendAll({10});
    const TimePoint& first = *appender_->GetTimePoints().begin();
    for (std::int64_t time = 11; time < 1000; ++time) {
        AppendAll({time});
    }
    EXPECT_EQ(first.Value(), 10);
    EXPECT_EQ(&first, &*appender_->GetTimePoints().begin());
}

TEST_F(TimePoints, OfTheAppendersOwnCallsFromAChunkAreComplete)
{
    AppendAll({10, 30});
    for (const std::int64_t time : {40, 20}) {
        DataChunk::onWrite = [this] { std::ignore = appender_->GetTimePoints(); };
        AppendAll({time});
    }
    platform_.ClearScript();
    EXPECT_EQ(Shown(), (Times{10, 20, 30, 40}));
}

TEST_F(TimePoints, OfAReopenedFileAreShownAndRefused)
{
    AppendAll({50, 20, 60});
    Reopen();
    ExpectRefused({60, 20, 50});
    AppendAll({70, 30});
    EXPECT_EQ(Shown(), (Times{20, 30, 50, 60, 70}));
}

// Points of the same ten are equal. Nothing but a reopened file can hold two of them.
TEST_F(TimePoints, FirstOfEqualOnesStays)
{
    AppendAll({31, 55, 38, 12, 52, 19, 57});
    TimePoint::resolution = 10;
    Reopen();
    ExpectRefused({30, 39, 10, 59});
    EXPECT_EQ(Shown(), (Times{12, 31, 55}));
    ExpectRefused({30, 39, 10, 59});
    EXPECT_EQ(Shown(), (Times{12, 31, 55}));
}

TEST_F(TimePoints, SurviveEveryThrowingCopyWhileTheyAreCollected)
{
    ExpectEveryFailureSurvived(TimePoint::onCopy);
}

TEST_F(TimePoints, SurviveEveryThrowingComparisonWhileTheyAreCollected)
{
    ExpectEveryFailureSurvived(TimePoint::onCompare);
}

TEST_F(TimePoints, SurviveEveryFailedAllocationWhileTheyAreCollected)
{
    AppendAll({10, 20, 30, 40, 15});
    const auto ask = [this] { EXPECT_EQ(appender_->GetTimePoints().size(), 5U); };
    const auto refused = [this] { ExpectRefused({10, 15, 20, 30, 40}); };
    EXPECT_GE(support::FailEveryAllocation(ask, refused), 3U);  // each attempt goes on where the last one stopped
    EXPECT_EQ(Shown(), (Times{10, 15, 20, 30, 40}));
}

// The late points 0 to 630 fill a block. The next one after it starts another, the next one inside divides it.
TEST_F(TimePoints, SurviveEveryFailureToDivideABlock)
{
    AppendAll({1000});
    Times held;
    for (std::int64_t time = 0; time <= 630; time += 10) {
        held.push_back(time);
    }
    AppendAll(held);
    for (const std::int64_t time : {995, 305}) {
        int failures = 0;
        for (bool appended = false; !appended;) {
            TimePoint::onCopy = ThrowAt(failures);
            try {
                appended = Append(time);
            } catch (const Thrown&) {
                ++failures;
                platform_.ClearScript();
                ExpectRefused(held);
            }
        }
        platform_.ClearScript();
        EXPECT_GE(failures, time == 305 ? 65 : 2);
    }
    AppendAll({306, 635});
    const auto append = [this] { EXPECT_TRUE(Append(304)); };
    const auto expectUnchanged = [&] { ExpectRefused(held); };
    EXPECT_GE(support::FailEveryAllocation(append, expectUnchanged), 1U);
    held.insert(held.end(), {304, 305, 306, 635, 995, 1000});
    ExpectRefused(held);
    std::sort(held.begin(), held.end());
    EXPECT_EQ(Shown(), held);
}

// Whatever is appended, asked and thrown, a set that inserts at once shows the same. Equal points differ in value, so
// the comparison also tells which of them stayed.
TEST_F(TimePoints, AreThoseOfASetThatIsAlwaysComplete)
{
    std::mt19937_64 random(20261121);  // NOLINT(cert-msc51-cpp): the same in every run
    TimePoint::resolution = 4;
    for (int file = 0; file < 300; ++file) {
        appender_.reset();
        appender_ = std::make_unique<DataChunkFileAppender>(path_, false, kUnbounded);
        std::set<TimePoint> model;
        std::int64_t latest = 0;
        const auto number = [&random](std::uint64_t end) { return static_cast<std::int64_t>(random() % end); };
        const auto width = static_cast<std::uint64_t>(1 + number(60));
        const auto often = static_cast<std::uint64_t>(1 + number(6));
        for (std::int64_t step = 0; step < 500; ++step) {
            latest = number(often) != 0 ? latest + number(width) : number(6000);
            const std::int64_t doing = number(400);
            if (doing == 0) {
                ASSERT_EQ(Shown().size(), model.size());
            } else if (doing < 4) {
                (doing == 1 ? TimePoint::onCompare : TimePoint::onCopy) = ThrowAt(static_cast<int>(number(8)));
                EXPECT_NO_THROW(try { std::ignore = appender_->GetTimePoints(); } catch (const Thrown&){});
                platform_.ClearScript();
                TimePoint::resolution = 4;
            } else {
                ASSERT_EQ(Append(latest), model.insert(TimePoint(latest)).second);
            }
        }
        Times expected;
        for (const TimePoint& timePoint : model) {
            expected.push_back(timePoint.Value());
        }
        ASSERT_EQ(Shown(), expected);
    }
}

}  // namespace
