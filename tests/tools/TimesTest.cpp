// Times as users write them and as the tool prints them.
#include "chunkfile/Times.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>

#include "Corvane/Time/TimePoint.h"

namespace {

using namespace Corvane::FileTool;
using Base = TimeBound::Base;

constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kSecond = 1'000'000'000;

std::string Text(std::int64_t nanoseconds)
{
    std::string text;
    AppendTime(text, nanoseconds);
    return text;
}

TEST(Times, PrintedAsThePlatformPrintsThem)
{
    for (const std::int64_t time : {kLeast, kLeast + 1, -kSecond - 1, -kSecond, std::int64_t{-1}, std::int64_t{0},
                                    std::int64_t{1}, 1'800'000'000 * kSecond + 5, kMost}) {
        std::ostringstream expected;
        expected << Corvane::Time::TimePoint(time);
        EXPECT_EQ(Text(time), expected.str());
    }
}

TEST(Times, WhatIsPrintedIsReadBack)
{
    for (const std::int64_t time : {kLeast, -kSecond - 1, std::int64_t{-1}, std::int64_t{0}, kSecond, kMost}) {
        EXPECT_EQ(ParseTime(Text(time)), time);
    }
}

TEST(Times, Rfc3339IsRead)
{
    EXPECT_EQ(ParseTime("1970-01-01T00:00:01Z"), kSecond);
    EXPECT_EQ(ParseTime("1970-01-01t00:00:01z"), kSecond);
    EXPECT_EQ(ParseTime("1970-01-01 00:00:01.5Z"), kSecond + kSecond / 2);
    EXPECT_EQ(ParseTime("1970-01-01T01:00:00+01:00"), 0);
    EXPECT_EQ(ParseTime("1969-12-31T22:29:59.999999999-01:30"), -1);
    EXPECT_EQ(ParseTime("2024-02-29T00:00:00Z"), 1'709'164'800 * kSecond);
}

TEST(Times, SecondsSince1970AreRead)
{
    EXPECT_EQ(ParseTime("@0"), 0);
    EXPECT_EQ(ParseTime("@1.000000001"), kSecond + 1);
    EXPECT_EQ(ParseTime("@-1.5"), -kSecond * 3 / 2);
    EXPECT_EQ(ParseTime("@9223372036.854775807"), kMost);
    EXPECT_EQ(ParseTime("@-9223372036.854775808"), kLeast);
}

TEST(Times, OtherTextsAreRefused)
{
    for (const char* const text : {"",
                                   "@",
                                   "@-",
                                   "@.5",
                                   "@1.",
                                   "@1.0000000001",
                                   "@1x",
                                   "@9223372036.854775808",
                                   "@9999999999999999999",
                                   "yesterday",
                                   "2026",
                                   "2026-11-21",
                                   "2026-11-21T08:30:00",
                                   "2026-11-21T08:30Z",
                                   "2026-11-21T08:30:00.Z",
                                   "2026-11-21T08:30:00.0000000001Z",
                                   "2026-13-01T00:00:00Z",
                                   "2026-02-29T00:00:00Z",
                                   "2026-11-21T24:00:00Z",
                                   "2026-11-21T08:60:00Z",
                                   "2026-11-21T08:30:60Z",
                                   "2026-11-21T08:30:00+1:00",
                                   "2026-11-21T08:30:00+24:00",
                                   "2026-11-21T08:30:00+01:60",
                                   "2026-11-21T08:30:00Zx",
                                   "2026-11-21X08:30:00Z",
                                   "1677-09-21T00:12:43Z",
                                   "2262-04-11T23:47:17Z",
                                   "02026-11-21T08:30:00Z"}) {
        EXPECT_EQ(ParseTime(text), std::nullopt) << text;
    }
}

TEST(Times, BoundsCountFromTheFirstOrTheLastRecord)
{
    const auto bound = [](const char* text) { return ParseTimeBound(text).value_or(TimeBound{Base::Epoch, -77}); };
    EXPECT_EQ(bound("+10s").In(100, 200), 100 + 10 * kSecond);
    EXPECT_EQ(bound("-10s").In(100, 200), 200 - 10 * kSecond);
    EXPECT_EQ(bound("@1").In(100, 200), kSecond);
    EXPECT_EQ(bound("1970-01-01T00:00:01Z").In(100, 200), kSecond);
}

TEST(Times, BoundsHaveUnits)
{
    const auto from_first = [](const char* text) { return ParseTimeBound(text).value_or(TimeBound{}).In(0, 0); };
    EXPECT_EQ(from_first("+7ns"), 7);
    EXPECT_EQ(from_first("+1.5us"), 1500);
    EXPECT_EQ(from_first("+2ms"), 2'000'000);
    EXPECT_EQ(from_first("+0.000000001s"), 1);
    EXPECT_EQ(from_first("+2min"), 120 * kSecond);
    EXPECT_EQ(from_first("+1.5h"), 5400 * kSecond);
    EXPECT_EQ(from_first("+1d"), 86400 * kSecond);
}

TEST(Times, BoundsWithoutNumberOrUnitAreRefused)
{
    for (const char* const text :
         {"+", "-", "+s", "+10", "-10", "+10 s", "+10sec", "+-10s", "+1.5.5s", "+999999999999999999h"}) {
        EXPECT_FALSE(ParseTimeBound(text).has_value()) << text;
    }
}

TEST(Times, BoundsOutsideTheRangeEndAtItsEnd)
{
    const auto bound = [](const char* text) { return ParseTimeBound(text).value_or(TimeBound{Base::Epoch, -77}); };
    EXPECT_EQ(bound("+10s").In(kMost - 5, kMost), kMost);
    EXPECT_EQ(bound("-10s").In(kLeast, kLeast + 5), kLeast);
}

TEST(Times, DurationsFitPeople)
{
    EXPECT_EQ(DurationText(0), "0 ns");
    EXPECT_EQ(DurationText(999), "999 ns");
    EXPECT_EQ(DurationText(1500), "1.50 us");
    EXPECT_EQ(DurationText(12'345'678), "12.3 ms");
    EXPECT_EQ(DurationText(1'990'000'000), "1.99 s");
    EXPECT_EQ(DurationText(150'000'000'000), "2.50 min");
    EXPECT_EQ(DurationText(std::numeric_limits<std::uint64_t>::max()), "213504 d");
}

}  // namespace
