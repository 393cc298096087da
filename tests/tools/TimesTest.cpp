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

// A bound that does not depend on the file.
std::optional<std::int64_t> ParseTime(const std::string& text)
{
    const auto bound = ParseTimeBound(text);
    return bound && bound->base == Base::Epoch ? std::optional(bound->nanoseconds) : std::nullopt;
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

TEST(Times, DateAloneIsItsMidnightInUtc)
{
    EXPECT_EQ(ParseTime("1970-01-02"), 86400 * kSecond);
    EXPECT_EQ(ParseTime("2026-11-22"), ParseTime("2026-11-22T00:00:00Z"));
    for (const char* const text : {"2026-02-29", "2026-11-22Z", "2026-11-22T", "2026-11-22 ", "20261122", "2026-11"}) {
        EXPECT_EQ(ParseTime(text), std::nullopt) << text;
    }
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

struct Met {
    std::optional<std::int64_t> time;
    unsigned forms;

    bool operator==(const Met&) const = default;
};

Met Iso(const char* text)
{
    unsigned forms = 0;
    const auto time = ParseIsoTime(text, forms);
    return {time, forms};
}

TEST(IsoTimes, Rfc3339HasNoOtherForm)
{
    EXPECT_EQ(Iso("1970-01-01T01:00:00.5+01:00"), (Met{kSecond / 2, 0}));
    EXPECT_EQ(Iso("@1.5"), (Met{kSecond * 3 / 2, 0}));
}

TEST(IsoTimes, CommonFormsAreReadAndNamed)
{
    EXPECT_EQ(Iso("1970-01-02"), (Met{86400 * kSecond, kDateOnly | kNoOffset}));
    EXPECT_EQ(Iso("1970-01-01T00:00:01"), (Met{kSecond, kNoOffset}));
    EXPECT_EQ(Iso("1970-01-01 00:01"), (Met{60 * kSecond, kNoSeconds | kNoOffset}));
    EXPECT_EQ(Iso("1970-01-01T00:01Z"), (Met{60 * kSecond, kNoSeconds}));
    EXPECT_EQ(Iso("1970-01-01T00:00:00,000000001Z"), (Met{1, kComma}));
    EXPECT_EQ(Iso("1970-01-01T01:00:00+0100"), (Met{0, kOtherOffset}));
    EXPECT_EQ(Iso("1970-01-01 01:00:01 +0100"), (Met{kSecond, kOtherOffset}));
    EXPECT_EQ(Iso("1969-12-31 23:30:00.25 -00:30"), (Met{kSecond / 4, kOtherOffset}));
    EXPECT_EQ(Iso("1969-12-31 22:00:00-02"), (Met{0, kOtherOffset}));
}

TEST(IsoTimes, OtherTextsAreRefused)
{
    for (const char* const text : {"",
                                   "1970",
                                   "1970-01",
                                   "19700101",
                                   "1970-01-01T",
                                   "1970-01-01Z",
                                   "1970-01-01 00",
                                   "1970-02-30",
                                   "1970-01-01T00:00,5Z",
                                   "1970-01-01T00:00.5Z",
                                   "1970-01-01T00:00:00,",
                                   "1970-01-01T00:00:00.1,1",
                                   "1970-01-01T00:00:00  +0100",
                                   "1970-01-01T00:00:00 Z",
                                   "1970-01-01T00:00:00 ",
                                   "1970-01-01T00:00:00+1",
                                   "1970-01-01T00:00:00+010",
                                   "1970-01-01T00:00:00+2400",
                                   "1970-01-01T00:00:00+01:0",
                                   "1970-01-01T00:00:00x01"}) {
        EXPECT_EQ(Iso(text), (Met{std::nullopt, 0})) << text;
    }
}

TEST(NumberTimes, UnitsAreExact)
{
    EXPECT_EQ(ParseNumber("1.5", kSecond), kSecond * 3 / 2);
    EXPECT_EQ(ParseNumber("-1.000000001", kSecond), -kSecond - 1);
    EXPECT_EQ(ParseNumber("1700000000123.4567", 1'000'000), 1'700'000'000'123'456'700);
    EXPECT_EQ(ParseNumber("9223372036854775807", 1), kMost);
    EXPECT_EQ(ParseNumber("-9223372036.854775808", kSecond), kLeast);
    EXPECT_EQ(ParseNumber("0", 1), 0);
    EXPECT_EQ(ParseNumber("-0.000", 1), 0);
    EXPECT_EQ(ParseNumber("007", 1000), 7000);
}

TEST(NumberTimes, ExponentsAreRead)
{
    EXPECT_EQ(ParseNumber("1.7e9", kSecond), 1'700'000'000 * kSecond);
    EXPECT_EQ(ParseNumber("1.7E+18", 1), 1'700'000'000 * kSecond);
    EXPECT_EQ(ParseNumber("15e-1", kSecond), kSecond * 3 / 2);
    EXPECT_EQ(ParseNumber("0e999", kSecond), 0);
}

TEST(NumberTimes, LossAndOtherTextsAreRefused)
{
    for (const char* const text : {"", "-", "+1", ".5", "1.", "1.5", "1e", "1e+", "1e+-5", "1e1000", "1e20", "1x", " 1",
                                   "9223372036854775808", "-9223372036854775809", "1e-1", "0x10", "12e-1"}) {
        EXPECT_EQ(ParseNumber(text, 1), std::nullopt) << text;
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
