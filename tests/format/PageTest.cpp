// The dump in docs/format.md equals what the library writes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iomanip>
#include <sstream>
#include <string_view>

#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"

namespace {

using Corvane::Time::TimePoint;
using support::DataChunk;

constexpr std::string_view kBegin = "<!-- a file of two records -->\n```text\n";
constexpr std::string_view kEnd = "```\n";

// A file's bytes, one line for each field: position, bytes, meaning.
class Dump {
public:
    explicit Dump(std::string file) : file_(std::move(file))
    {
        Number(8, "version");
        const std::uint64_t count = Number(8, "number of chunks");
        for (std::uint64_t i = 0; i < count; ++i) {
            Record();
        }
        Line(file_.size() - at_, "fill");
    }

    std::string Text() const { return lines_.str(); }

private:
    void Record()
    {
        Line(4, "mark \"" + file_.substr(at_, 4) + '"');
        Number(4, "record size");
        Number(8, "time point, nanoseconds");
        Number(4, "directory size");
        const std::uint64_t fields = Number(4, "number of fields");
        Line(8, "checksum of the directory");
        Line(8, "checksum of the 32 bytes before it");
        std::vector<std::uint64_t> valueSizes;
        for (std::uint64_t i = 0; i < fields; ++i) {
            const std::uint64_t nameSize = Number(4, "name size");
            valueSizes.push_back(Number(4, "value size"));
            Line(8, "checksum of the value");
            Line(nameSize, "name \"" + file_.substr(at_, nameSize) + '"');
        }
        for (const std::uint64_t size : valueSizes) {
            Line(size, "value \"" + file_.substr(at_, size) + '"');
        }
    }

    std::uint64_t Number(std::size_t size, const std::string& meaning)
    {
        const std::uint64_t number = support::WordAt(file_.substr(at_, size) + std::string(8 - size, '\0'), 0);
        Line(size, meaning + ": " + std::to_string(number));
        return number;
    }

    void Line(std::size_t size, const std::string& meaning)
    {
        std::ostringstream bytes;
        for (std::size_t i = 0; i < size; ++i) {
            bytes << (i == 0 ? "" : " ") << std::hex << std::setw(2) << std::setfill('0')
                  << static_cast<unsigned>(static_cast<unsigned char>(file_[at_ + i]));
        }
        lines_ << std::setw(5) << at_ << "  " << std::setw(23) << std::left << bytes.str() << std::right << "  "
               << meaning << '\n';
        at_ += size;
    }

    std::string file_;
    std::size_t at_ = 0;
    std::ostringstream lines_;
};

std::string FileOfTwoRecords()
{
    const support::TemporaryFolder folder;
    {
        auto file = support::NewFile(folder / "a", 172);
        DataChunk first(TimePoint(1'800'000'000'000'000'000));
        first.Set("load", "0.42");
        first.Set("mem", "71 %");
        DataChunk second(TimePoint(1'800'000'000'010'000'000));
        second.Set("load", "0.5");
        EXPECT_TRUE(file.Append(first) && file.Append(second));
    }
    return support::ReadFile(folder / "a");
}

TEST(FormatPage, ShowsAFileOfTwoRecords)
{
    std::string page = support::ReadFile(FORMAT_PAGE);
    const std::size_t begin = page.find(kBegin) + kBegin.size();
    const std::size_t end = page.find(kEnd, begin);
    ASSERT_NE(page.find(kBegin), std::string::npos);
    ASSERT_NE(end, std::string::npos);
    const std::string dump = Dump(FileOfTwoRecords()).Text();
    if (std::getenv("CORVANE_RENEW") != nullptr) {  // NOLINT(concurrency-mt-unsafe): one thread
        support::WriteFile(FORMAT_PAGE, page.replace(begin, end - begin, dump));
        GTEST_SKIP() << FORMAT_PAGE " has been renewed";
    }
    EXPECT_EQ(page.substr(begin, end - begin), dump);
}

}  // namespace
