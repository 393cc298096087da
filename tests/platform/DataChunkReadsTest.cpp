#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Corvane/Pellin/DataChunk.h"
#include "ReferenceRecord.h"
#include "support/SystemCalls.h"

namespace {

using Corvane::Pellin::DataChunk;
using records::Field;
using records::OpenFile;
using records::Record;
using support::SystemCalls;

Record TheRecord()
{
    return Record({{"a", "first value"}, {"b", "second value"}});
}

std::set<std::string> Both()
{
    return {"a", "b"};
}

// A pipe that holds exactly these bytes.
class Pipe {
public:
    explicit Pipe(const std::string& bytes)
    {
        std::array<int, 2> ends = {};
        if (::pipe(ends.data()) != 0 ||
            ::write(ends[1], bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("no pipe");
        }
        ::close(ends[1]);
        fd_ = ends[0];
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() { ::close(fd_); }

    int Get() const { return fd_; }

private:
    int fd_ = -1;
};

TEST(Reads, EndOfTheFileIsNoRecord)
{
    const OpenFile file("");
    DataChunk chunk;
    EXPECT_EQ(chunk.ReadFrom(file.Get()), 0U);
    EXPECT_EQ(chunk.ReadFrom(file.Get(), Both()), 0U);
}

TEST(Reads, WholeRecordTakesTwoReads)
{
    const OpenFile file(TheRecord().Bytes());
    DataChunk chunk;
    const SystemCalls calls;
    EXPECT_EQ(chunk.ReadFrom(file.Get()), TheRecord().size);
    ASSERT_EQ(calls.Names(), (std::vector<std::string>{"read", "read"}));
    EXPECT_EQ(calls.Calls()[0].size, 40U);
    EXPECT_EQ(calls.Calls()[1].size, TheRecord().size - 40);
}

TEST(Reads, ShortReadsAreContinued)
{
    for (const bool withNames : {false, true}) {
        const OpenFile file(TheRecord().Bytes());
        DataChunk chunk;
        SystemCalls calls;
        calls.ShortenEach("read", 1);
        EXPECT_EQ(withNames ? chunk.ReadFrom(file.Get(), Both()) : chunk.ReadFrom(file.Get()), TheRecord().size);
        EXPECT_EQ(calls.Calls("read").size(), TheRecord().size);
        EXPECT_EQ(*chunk.Get("b"), "second value");
    }
}

TEST(Reads, InterruptedReadsAreRepeated)
{
    for (std::uint64_t nth = 0; nth < 4; ++nth) {
        const OpenFile file(TheRecord().Bytes());
        DataChunk chunk;
        SystemCalls calls;
        calls.Fail("read", EINTR, nth);
        EXPECT_EQ(chunk.ReadFrom(file.Get(), Both()), TheRecord().size);
        EXPECT_EQ(calls.Fired(), 1U);
    }
}

// The value is the byte by which the directory begins, and that was read before.
TEST(Reads, FailedReadIsNotReplacedByEarlierBytes)
{
    const OpenFile file(Record({Field("a", "\1")}).Bytes());
    DataChunk chunk;
    SystemCalls calls;
    calls.Fail("read", EIO, 2);
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"a"}), 0U);
    EXPECT_EQ(calls.Fired(), 1U);
}

TEST(Reads, EveryFailedReadGivesNoRecord)
{
    for (std::uint64_t nth = 0; nth < 4; ++nth) {
        const OpenFile file(TheRecord().Bytes());
        DataChunk chunk;
        SystemCalls calls;
        calls.Fail("read", EIO, nth);
        EXPECT_EQ(nth < 2 ? chunk.ReadFrom(file.Get()) : chunk.ReadFrom(file.Get(), Both()), 0U);
        EXPECT_EQ(calls.Fired(), 1U);
        EXPECT_TRUE(chunk.Fields().empty());
    }
}

TEST(Reads, UnreadableDescriptorGivesNoRecord)
{
    const int folder = ::open("/", O_RDONLY | O_DIRECTORY);
    for (const int fd : {-1, folder}) {
        DataChunk chunk;
        EXPECT_EQ(chunk.ReadFrom(fd), 0U);
        EXPECT_EQ(chunk.ReadFrom(fd, Both()), 0U);
    }
    ::close(folder);
}

TEST(Reads, PipeGivesWholeRecordsOneAfterTheOther)
{
    const Pipe pipe(TheRecord().Bytes() + TheRecord().Bytes());
    DataChunk chunk;
    EXPECT_EQ(chunk.ReadFrom(pipe.Get()), TheRecord().size);
    EXPECT_EQ(chunk.ReadFrom(pipe.Get(), Both()), TheRecord().size);
    EXPECT_EQ(chunk.ReadFrom(pipe.Get()), 0U);
    EXPECT_EQ(*chunk.Get("b"), "second value");
}

TEST(Reads, FieldsToSkipInAPipeGiveNoRecord)
{
    const Pipe pipe(TheRecord().Bytes());
    DataChunk chunk;
    EXPECT_EQ(chunk.ReadFrom(pipe.Get(), {"b"}), 0U);
    EXPECT_TRUE(chunk.Fields().empty());
}

// Without the seek, the first value would pass for the second.
TEST(Reads, FieldToSkipInAPipeIsNotReadInPlaceOfAnother)
{
    const Pipe pipe(Record({{"a", "value"}, {"b", "value"}}).Bytes());
    DataChunk chunk;
    EXPECT_EQ(chunk.ReadFrom(pipe.Get(), {"b"}), 0U);
}

TEST(Reads, EmptyFieldsAreReadFromAPipeToo)
{
    const Record record({{"a", "value"}, {"b", ""}});
    const Pipe pipe(record.Bytes());
    DataChunk chunk;
    EXPECT_EQ(chunk.ReadFrom(pipe.Get(), Both()), record.size);
    EXPECT_EQ(*chunk.Get("b"), "");
}

TEST(Reads, EmptyFieldsAreSkippedInAPipeToo)
{
    const Record record({{"a", "value"}, {"b", ""}});
    const Pipe pipe(record.Bytes());
    DataChunk chunk;
    EXPECT_EQ(chunk.ReadFrom(pipe.Get(), {"a"}), record.size);
    EXPECT_EQ(chunk.Fields().size(), 1U);
}

TEST(Reads, SkippedFieldsAreNotRead)
{
    const Record record({{"a", std::string(100'000, 'x')}, {"b", "second value"}, {"c", std::string(100'000, 'y')}});
    const OpenFile file(record.Bytes());
    DataChunk chunk;
    const SystemCalls calls;
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"b"}), record.size);
    std::int64_t read = 0;
    for (const auto& call : calls.Calls("read")) {
        read += call.result;
    }
    EXPECT_EQ(read, 40 + 3 * 17 + 12 + 1);  // head, directory, value, and the last byte, which must exist
}

TEST(Reads, RecordWhoseLastFieldIsReadTakesNoOtherRead)
{
    const OpenFile file(TheRecord().Bytes());
    DataChunk chunk;
    const SystemCalls calls;
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"b"}), TheRecord().size);
    EXPECT_EQ(calls.Calls("read").size(), 3U);  // head, directory, value
}

TEST(Reads, TruncatedLongRecordTakesNoMemory)
{
    Record record({});
    record.size = DataChunk::kMaxSizeOnFile;
    const OpenFile file(record.Bytes());
    DataChunk chunk;
    const SystemCalls calls;
    EXPECT_EQ(chunk.ReadFrom(file.Get()), 0U);
    for (const auto& call : calls.Calls("read")) {
        EXPECT_LE(call.size, 65536U);
    }
}

// Each step is as long as what has been read, so that a record's claim costs at most twice what the file holds.
TEST(Reads, LongValuesAreReadInSteps)
{
    const Record record({{"a", std::string(300'000, 'x')}});
    const OpenFile file(record.Bytes());
    DataChunk chunk;
    const SystemCalls calls;
    EXPECT_EQ(chunk.ReadFrom(file.Get()), record.size);
    std::vector<std::uint64_t> sizes;
    for (const auto& call : calls.Calls("read")) {
        sizes.push_back(call.size);
    }
    EXPECT_EQ(sizes, (std::vector<std::uint64_t>{40, 65536, 65536, 131072, record.size - 40 - 262144}));
    EXPECT_EQ(*chunk.Get("a"), record.fields[0].value);
}

}  // namespace
