// chunkfile view: how it writes, its numbers, and its bins.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "WritingTest.h"
#include "chunkfile/Timeline.h"

namespace {

using Corvane::FileTool::Band;
using Corvane::FileTool::NumberIn;
using Corvane::FileTool::Timeline;
using support::SystemCalls;

class ToolView : public support::WritingTest {
protected:
    ToolView()
    {
        support::WriteFile(path_, sound_);
        support::WriteFile(out_, "old");
    }

    bool HasLitter() const
    {
        const auto files = std::filesystem::directory_iterator(folder_.Path());
        return std::any_of(begin(files), end(files),
                           [](const auto& file) { return file.path().filename().string().starts_with("out."); });
    }
};

TEST_F(ToolView, PageThatIsWrittenInPiecesIsWhole)
{
    ASSERT_EQ(Run(Corvane::FileTool::View), Exit::Fine);
    const std::string page = Out();
    SystemCalls calls;
    calls.ShortenEach("write", 1000);
    calls.Fail("write", EINTR, 2);
    EXPECT_EQ(Run(Corvane::FileTool::View), Exit::Fine);
    EXPECT_EQ(Out(), page);
    EXPECT_FALSE(HasLitter());
}

TEST(Numbers, AreThoseOfJson)
{
    for (const char* text : {"0", "-0", "12", "-1.50", "1e5", "1E-5", "0.1e+2", "18446744073709551616"}) {
        EXPECT_TRUE(NumberIn(text)) << text;
    }
    for (const char* text :
         {"", "-", "01", "1.", ".5", "+1", "1e", "1e999", "0x10", "nan", "-inf", "1 ", " 1", "1,2"}) {
        EXPECT_FALSE(NumberIn(text)) << text;
    }
    EXPECT_TRUE(NumberIn(std::string(64, '1')));
    EXPECT_FALSE(NumberIn(std::string(65, '1')));
}

TEST(Bands, IntegersThatShareADoubleAreCompared)
{
    Band band;
    for (const char* text : {"-9007199254740993", "-9007199254740992", "9007199254740993", "9007199254740992"}) {
        band.Add(NumberIn(text).value_or(0), text);
    }
    EXPECT_EQ(band.least.text, "-9007199254740993");
    EXPECT_EQ(band.most.text, "9007199254740993");
}

TEST(Timelines, HaveFewBinsWhateverTheSpan)
{
    for (const std::int64_t last : {std::int64_t{159}, std::int64_t{160}, std::int64_t{1'000'000'007}, INT64_MAX}) {
        Timeline timeline;
        for (const std::int64_t place : {std::int64_t{0}, last / 3, last, last / 2, std::int64_t{1}}) {
            ++timeline.At(place).counted.records;
        }
        std::uint64_t records = 0;
        for (const auto& [index, bin] : timeline.Bins()) {
            records += bin.counted.records;
        }
        EXPECT_EQ(records, 5U);
        EXPECT_LE(timeline.Length(), Timeline::kMostBins);
    }
}

TEST(Timelines, BinsBeginAtMultiplesOfARoundWidth)
{
    Timeline timeline;
    constexpr std::int64_t second = 1'000'000'000;
    for (std::int64_t place = -7; place < 1000; ++place) {
        timeline.At(place * second).counted.Add({1, 10});
    }
    EXPECT_EQ(timeline.Width(), 10 * second);
    EXPECT_EQ(timeline.Bins().begin()->first, -1);
    EXPECT_EQ(timeline.Bins().begin()->second.counted.records, 7U);
    EXPECT_EQ(timeline.Bins().rbegin()->second.counted.bytes, 100U);
}

}  // namespace
