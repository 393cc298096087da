#include "Corvane/Time/TimePoint.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>
#include <string>

#include "support/GroupedNumbers.h"

namespace {

using Corvane::Time::TimePoint;

std::string Text(std::int64_t nanoseconds)
{
    std::ostringstream stream;
    stream << TimePoint(nanoseconds);
    return stream.str();
}

TEST(TimePoint, StreamsAsRfc3339WithNineDecimals)
{
    EXPECT_EQ(Text(0), "1970-01-01T00:00:00.000000000Z");
    EXPECT_EQ(Text(1), "1970-01-01T00:00:00.000000001Z");
    EXPECT_EQ(Text(999'999'999), "1970-01-01T00:00:00.999999999Z");
    EXPECT_EQ(Text(1'000'000'000), "1970-01-01T00:00:01.000000000Z");
    EXPECT_EQ(Text(951'782'400'000'000'000), "2000-02-29T00:00:00.000000000Z");
    EXPECT_EQ(Text(1'795'249'805'120'000'003), "2026-11-21T08:30:05.120000003Z");
}

TEST(TimePoint, BeforeTheEpochStreamsTheEarlierSecond)
{
    EXPECT_EQ(Text(-1), "1969-12-31T23:59:59.999999999Z");
    EXPECT_EQ(Text(-1'000'000'000), "1969-12-31T23:59:59.000000000Z");
    EXPECT_EQ(Text(-1'000'000'001), "1969-12-31T23:59:58.999999999Z");
    EXPECT_EQ(Text(-86'400'000'000'000), "1969-12-31T00:00:00.000000000Z");
}

TEST(TimePoint, FirstAndLastPointsStream)
{
    EXPECT_EQ(Text(std::numeric_limits<std::int64_t>::min()), "1677-09-21T00:12:43.145224192Z");
    EXPECT_EQ(Text(std::numeric_limits<std::int64_t>::max()), "2262-04-11T23:47:16.854775807Z");
}

TEST(TimePoint, FlagsAndLocaleOfTheStreamDoNotChangeTheText)
{
    std::ostringstream stream;
    stream.imbue(std::locale(std::locale::classic(), new support::GroupedNumbers));
    stream << std::hex << std::showbase << std::showpos << std::setprecision(1) << std::scientific << TimePoint(-1);
    EXPECT_EQ(stream.str(), "1969-12-31T23:59:59.999999999Z");
    EXPECT_TRUE((stream.flags() & std::ios::hex) != 0);
    EXPECT_EQ(stream.precision(), 1);
}

TEST(TimePoint, WidthOfTheStreamPadsTheWholeText)
{
    std::ostringstream stream;
    stream << std::left << std::setfill('.') << std::setw(33) << TimePoint(0) << '|';
    EXPECT_EQ(stream.str(), "1970-01-01T00:00:00.000000000Z...|");
}

TEST(TimePoint, PointsAreOrderedByTheirNanoseconds)
{
    const std::int64_t values[] = {std::numeric_limits<std::int64_t>::min(), -1, 0, 1,
                                   std::numeric_limits<std::int64_t>::max()};
    for (const std::int64_t left : values) {
        for (const std::int64_t right : values) {
            EXPECT_EQ(TimePoint(left) < TimePoint(right), left < right) << left << " and " << right;
        }
    }
}

TEST(TimePoint, NowIsTheSystemsClockInNanoseconds)
{
    timespec before = {};
    timespec after = {};
    ASSERT_EQ(clock_gettime(CLOCK_REALTIME, &before), 0);
    const std::int64_t now = TimePoint::Now().Nanoseconds();
    ASSERT_EQ(clock_gettime(CLOCK_REALTIME, &after), 0);
    EXPECT_GE(now, before.tv_sec * 1'000'000'000 + before.tv_nsec);
    EXPECT_LE(now, after.tv_sec * 1'000'000'000 + after.tv_nsec);
}

}  // namespace
