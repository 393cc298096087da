#include "Corvane/Pellin/DataChunk.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "ReferenceRecord.h"
#include "support/Allocations.h"
#include "support/Texts.h"

namespace {

using Corvane::Pellin::DataChunk;
using Corvane::Time::TimePoint;
using records::BytesOf;
using records::Form;
using records::OpenFile;
using support::Names;
using namespace std::string_literals;

DataChunk Golden()
{
    DataChunk chunk{TimePoint(0x0102030405060708)};
    chunk.Set("speed", "12.5");
    chunk.Set("on", "\0\xff"s);
    return chunk;
}

std::string GoldenBytes()
{
    return "\x43\x56\x43\x31"                  // 0   mark
           "\x55\x00\x00\x00"                  // 4   size of the record: 85
           "\x08\x07\x06\x05\x04\x03\x02\x01"  // 8   time point
           "\x27\x00\x00\x00"                  // 16  size of the directory: 39
           "\x02\x00\x00\x00"                  // 20  number of fields
           "\xac\x65\x1c\x09\x36\x5f\x83\xdc"  // 24  checksum of bytes 40 to 78, the directory
           "\x71\x9c\x05\xfe\x6d\x4b\xab\x8b"  // 32  checksum of bytes 0 to 31
           "\x02\x00\x00\x00"                  // 40  first field: size of its name
           "\x02\x00\x00\x00"                  // 44  size of its value
           "\xf3\x8b\x6c\x34\x3a\x04\x9b\xa9"  // 48  checksum of its value
           "on"                                // 56  name
           "\x05\x00\x00\x00"                  // 58  second field
           "\x04\x00\x00\x00"
           "\xc5\x6d\x44\x7f\xa3\x73\x08\xd6"
           "speed"
           "\x00\xff"  // 79  first value
           "12.5"s;    // 81  second value
}

void ExpectGolden(const DataChunk& chunk)
{
    EXPECT_EQ(chunk.GetTimePoint().Nanoseconds(), 0x0102030405060708);
    EXPECT_EQ(chunk.GetSizeOnFile(), 85U);
    EXPECT_EQ(chunk.Fields().size(), 2U);
    ASSERT_NE(chunk.Get("on"), nullptr);
    ASSERT_NE(chunk.Get("speed"), nullptr);
    EXPECT_EQ(*chunk.Get("on"), "\0\xff"s);
    EXPECT_EQ(*chunk.Get("speed"), "12.5");
}

class ReadingForm : public testing::TestWithParam<Form> {};
INSTANTIATE_TEST_SUITE_P(All, ReadingForm,
                         testing::Values(Form::kMemory, Form::kDescriptor, Form::kDescriptorWithNames),
                         testing::PrintToStringParamName());

TEST(DataChunk, DefaultConstructedOneIsOf1970AndHasNoFields)
{
    const DataChunk chunk;
    EXPECT_EQ(chunk.GetTimePoint().Nanoseconds(), 0);
    EXPECT_EQ(chunk.GetSizeOnFile(), 40U);
    EXPECT_TRUE(chunk.Fields().empty());
}

TEST(DataChunk, RecordHasTheDocumentedBytes)
{
    EXPECT_EQ(Golden().GetSizeOnFile(), 85U);
    EXPECT_EQ(BytesOf(Golden()), GoldenBytes());
}

TEST_P(ReadingForm, DocumentedBytesReadBack)
{
    DataChunk chunk;
    EXPECT_EQ(records::Read(GetParam(), chunk, GoldenBytes(), {"on", "speed"}), 85U);
    ExpectGolden(chunk);
    EXPECT_EQ(BytesOf(chunk), GoldenBytes());
}

TEST_P(ReadingForm, ChunkWithoutFieldsReadsBack)
{
    DataChunk chunk = Golden();
    EXPECT_EQ(records::Read(GetParam(), chunk, BytesOf(DataChunk(TimePoint(-5)))), 40U);
    EXPECT_EQ(chunk.GetTimePoint().Nanoseconds(), -5);
    EXPECT_EQ(chunk.GetSizeOnFile(), 40U);
    EXPECT_TRUE(chunk.Fields().empty());
}

TEST_P(ReadingForm, FieldWithoutANameReadsBack)
{
    DataChunk written;
    written.Set("", "value");
    DataChunk read;
    EXPECT_EQ(records::Read(GetParam(), read, BytesOf(written), {""}), 40U + 16U + 5U);
    EXPECT_EQ(read.Fields(), written.Fields());
}

TEST_P(ReadingForm, EveryKindOfFieldReadsBack)
{
    DataChunk written{TimePoint(INT64_MIN)};
    Names names;
    for (const std::string& name : {""s, "a"s, "\0"s, "\xff"s, "with spaces\nand lines"s, std::string(70'000, 'n')}) {
        written.Set(name, std::string(name.size() * 3, '\x80'));
        names.insert(name);
    }
    DataChunk read;
    EXPECT_EQ(records::Read(GetParam(), read, BytesOf(written), names), written.GetSizeOnFile());
    EXPECT_EQ(read.Fields(), written.Fields());
    EXPECT_EQ(BytesOf(read), BytesOf(written));
}

TEST_P(ReadingForm, AllocationThatFailsLeavesTheChunkAsItWas)
{
    DataChunk read = Golden();
    DataChunk written{TimePoint(7)};
    written.Set(std::string(100, 'n'), std::string(200'000, 'v'));
    const std::string bytes = BytesOf(written);
    const auto readIt = [&] {
        EXPECT_EQ(records::Read(GetParam(), read, bytes, {std::string(100, 'n')}), bytes.size());
    };
    EXPECT_GE(support::FailEveryAllocation(readIt, [&] { ExpectGolden(read); }), 3U);
    EXPECT_EQ(read.Fields(), written.Fields());
}

TEST(DataChunk, NamedFieldsAreLoadedAndTheOthersSkipped)
{
    const OpenFile file(GoldenBytes());
    DataChunk chunk;
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"speed", "unknown"}), 85U);
    EXPECT_EQ(chunk.Fields(), (std::map<std::string, std::string>{{"speed", "12.5"}}));
    EXPECT_EQ(chunk.Get("on"), nullptr);
    EXPECT_EQ(chunk.GetTimePoint().Nanoseconds(), 0x0102030405060708);
    EXPECT_EQ(chunk.GetSizeOnFile(), 85U);
}

TEST(DataChunk, WithoutNamesOnlyTimeAndSizeAreLoaded)
{
    const OpenFile file(GoldenBytes());
    DataChunk chunk;
    EXPECT_EQ(chunk.ReadFrom(file.Get(), Names{}), 85U);
    EXPECT_EQ(chunk.GetTimePoint().Nanoseconds(), 0x0102030405060708);
    EXPECT_TRUE(chunk.Fields().empty());
}

// The text of the std::logic_error that the function throws, or "none".
std::string ErrorOf(const std::function<void()>& function)
{
    try {
        function();
    } catch (const std::logic_error& error) {
        return error.what();
    }
    return "none";
}

void ExpectNeitherWrittenNorChanged(DataChunk& chunk)
{
    std::string bytes(85, '\0');
    EXPECT_EQ(ErrorOf([&] { chunk.Write(reinterpret_cast<unsigned char*>(bytes.data())); }),
              "a chunk with skipped fields has no record to write");
    EXPECT_EQ(bytes, std::string(85, '\0'));
    EXPECT_EQ(ErrorOf([&] { chunk.Set("speed", "13"); }), "a chunk with skipped fields cannot be changed");
    EXPECT_EQ(*chunk.Get("speed"), "12.5");
}

TEST(DataChunk, ChunkWithSkippedFieldsIsNeitherWrittenNorChanged)
{
    const OpenFile file(GoldenBytes());
    DataChunk chunk;
    chunk.ReadFrom(file.Get(), {"speed"});
    ExpectNeitherWrittenNorChanged(chunk);
    DataChunk copy;
    copy = chunk;
    ExpectNeitherWrittenNorChanged(copy);
    DataChunk moved = std::move(chunk);
    ExpectNeitherWrittenNorChanged(moved);
}

TEST(DataChunk, EveryFormStopsAtTheRecordsEnd)
{
    const OpenFile file(GoldenBytes() + GoldenBytes() + GoldenBytes() + "more");
    DataChunk chunk;
    EXPECT_EQ(chunk.ReadFrom(file.Get()), 85U);
    EXPECT_EQ(file.Position(), 85);
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"on"}), 85U);  // skips the last value
    EXPECT_EQ(file.Position(), 170);
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"speed"}), 85U);
    EXPECT_EQ(file.Position(), 255);
}

TEST(DataChunk, SetReplacesAndTheSizeFollows)
{
    DataChunk chunk;
    EXPECT_EQ(chunk.GetSizeOnFile(), 40U);
    chunk.Set("on", "12345");
    EXPECT_EQ(chunk.GetSizeOnFile(), 40U + 16U + 2U + 5U);
    chunk.Set("on", "1");
    EXPECT_EQ(chunk.GetSizeOnFile(), 40U + 16U + 2U + 1U);
    EXPECT_EQ(*chunk.Get("on"), "1");
    EXPECT_EQ(chunk.Get("o"), nullptr);
    EXPECT_EQ(BytesOf(chunk).size(), chunk.GetSizeOnFile());
}

TEST(DataChunk, RecordIsAtMostOneGibibyte)
{
    DataChunk chunk;
    chunk.Set("big", std::string((std::size_t{1} << 30U) - 40 - 16 - 3, '\0'));
    EXPECT_EQ(chunk.GetSizeOnFile(), DataChunk::kMaxSizeOnFile);
    try {
        chunk.Set("", "");
        FAIL() << "accepted";
    } catch (const std::length_error& error) {
        EXPECT_STREQ(error.what(), "the record would be longer than 1073741824 bytes");
    }
    EXPECT_EQ(chunk.Fields().size(), 1U);
    EXPECT_EQ(chunk.GetSizeOnFile(), DataChunk::kMaxSizeOnFile);
    chunk.Set("big", "small");
    EXPECT_EQ(chunk.GetSizeOnFile(), 40U + 16U + 3U + 5U);
}

TEST(DataChunk, SetThatRunsOutOfMemoryChangesNothing)
{
    DataChunk chunk = Golden();
    const std::string name(100, 'n');
    std::string value(100, 'v');
    {
        support::Allocations allocations;
        allocations.FailAt(0);
        EXPECT_THROW(chunk.Set(name, std::move(value)), std::bad_alloc);
    }
    ExpectGolden(chunk);
    EXPECT_EQ(BytesOf(chunk), GoldenBytes());
}

TEST(DataChunk, CopiesAreIndependent)
{
    const DataChunk chunk = Golden();
    DataChunk copy;
    copy = chunk;
    copy.Set("on", "changed");
    ExpectGolden(chunk);
    EXPECT_EQ(copy.GetSizeOnFile(), 90U);
}

TEST(DataChunk, MovedFromChunkEqualsADefaultConstructedOne)
{
    DataChunk chunk = Golden();
    const DataChunk moved = std::move(chunk);
    ExpectGolden(moved);
    // NOLINTNEXTLINE(bugprone-use-after-move): the test is about the moved-from chunk
    EXPECT_EQ(BytesOf(chunk), BytesOf(DataChunk()));
}

}  // namespace
