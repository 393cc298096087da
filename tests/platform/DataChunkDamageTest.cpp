#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

#include "Corvane/Pellin/DataChunk.h"
#include "ReferenceRecord.h"

namespace {

using Corvane::Pellin::DataChunk;
using Corvane::Time::TimePoint;
using records::Field;
using records::Form;
using records::Record;

constexpr std::uint64_t kHeadSize = 40;

Record Good()
{
    return Record({{"a", "first value"}, {"b", ""}, {"c", "third value"}});
}

// The given bytes, then readable zeros past the largest record's end. The kernel maps one zero page for them.
class LongMemory {
public:
    explicit LongMemory(const std::string& bytes)
        : memory_(::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))
    {
        if (memory_ == MAP_FAILED) {
            throw std::runtime_error("no memory");
        }
        std::memcpy(memory_, bytes.data(), bytes.size());
    }
    LongMemory(const LongMemory&) = delete;
    LongMemory& operator=(const LongMemory&) = delete;
    ~LongMemory() { ::munmap(memory_, kSize); }

    const unsigned char* Get() const { return static_cast<const unsigned char*>(memory_); }

private:
    static constexpr std::size_t kSize = DataChunk::kMaxSizeOnFile + 65536;
    void* memory_;
};

// The given bytes, then at once a page without access: reading past the bytes ends the process.
class GuardedMemory {
public:
    explicit GuardedMemory(const std::string& bytes)
        : memory_(::mmap(nullptr, 2 * kPageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)),
          first_(static_cast<unsigned char*>(memory_) + kPageSize - bytes.size())
    {
        if (memory_ == MAP_FAILED || ::mprotect(first_ + bytes.size(), kPageSize, PROT_NONE) != 0) {
            throw std::runtime_error("no memory");
        }
        std::memcpy(first_, bytes.data(), bytes.size());
    }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;
    ~GuardedMemory() { ::munmap(memory_, 2 * kPageSize); }

    const unsigned char* Get() const { return first_; }

private:
    static constexpr std::size_t kPageSize = 4096;
    void* memory_;
    unsigned char* first_;
};

class DamagedRecord : public testing::TestWithParam<Form> {
protected:
    DamagedRecord() { chunk_.Set("held", "before"); }

    // The chunk refuses these bytes and does not change.
    void ExpectRefused(const std::string& bytes)
    {
        EXPECT_EQ(records::Read(GetParam(), chunk_, bytes, {"a", "b", "c"}), 0U);
        ExpectAsItWas();
    }

    // The same if the form may read past the bytes: it finds zeros in memory, or the end of the file.
    void ExpectRefusedBeforeZeros(const std::string& bytes)
    {
        if (GetParam() != Form::kMemory) {
            ExpectRefused(bytes);
            return;
        }
        const LongMemory memory(bytes);
        EXPECT_EQ(chunk_.ReadFrom(memory.Get()), 0U);
        ExpectAsItWas();
    }

    // A sound record after `change`, with its checksums made right again.
    void ExpectRefused(const std::function<void(Record&)>& change)
    {
        Record record = Good();
        change(record);
        ExpectRefusedBeforeZeros(record.Bytes());
    }

    // The descriptor's position after a refused read from a file that is longer than these bytes.
    std::uint64_t PositionAfterRefusal(const std::string& bytes)
    {
        const records::OpenFile file(bytes + std::string(100'000, '\0'));
        EXPECT_EQ(GetParam() == Form::kDescriptor ? chunk_.ReadFrom(file.Get()) : chunk_.ReadFrom(file.Get(), {"a"}),
                  0U);
        return static_cast<std::uint64_t>(file.Position());
    }

    void ExpectAsItWas() const
    {
        EXPECT_EQ(chunk_.GetTimePoint().Nanoseconds(), 77);
        EXPECT_EQ(chunk_.GetSizeOnFile(), 40U + 16U + 4U + 6U);
        ASSERT_EQ(chunk_.Fields().size(), 1U);
        EXPECT_EQ(*chunk_.Get("held"), "before");
    }

    DataChunk chunk_{TimePoint(77)};
};

INSTANTIATE_TEST_SUITE_P(All, DamagedRecord,
                         testing::Values(Form::kMemory, Form::kDescriptor, Form::kDescriptorWithNames),
                         testing::PrintToStringParamName());

TEST_P(DamagedRecord, RecordMadeByHandIsGood)
{
    EXPECT_EQ(records::Read(GetParam(), chunk_, Good().Bytes(), {"a", "b", "c"}), Good().size);
    EXPECT_EQ(*chunk_.Get("c"), "third value");
    EXPECT_EQ(records::BytesOf(chunk_), Good().Bytes());
}

TEST_P(DamagedRecord, EveryFlippedBitIsRefused)
{
    const std::string good = Good().Bytes();
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
        SCOPED_TRACE(bit);
        std::string bytes = good;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
        ExpectRefused(bytes);
    }
}

TEST_P(DamagedRecord, EveryByteSetToAnyOtherValueIsRefused)
{
    const std::string good = Good().Bytes();
    for (std::size_t at = 0; at < good.size(); ++at) {
        SCOPED_TRACE(at);
        for (const char value : {'\0', '\x01', '\x7f', '\x80', '\xff'}) {
            std::string bytes = good;
            bytes[at] = value;
            if (bytes != good) {
                ExpectRefused(bytes);
            }
        }
    }
}

TEST_P(DamagedRecord, EveryTruncationIsRefused)
{
    const std::string good = Good().Bytes();
    for (std::size_t size = 0; size < good.size(); ++size) {
        SCOPED_TRACE(size);
        std::string bytes = good.substr(0, size);
        if (GetParam() == Form::kMemory) {
            bytes.resize(good.size());  // like the zeros after an image's end
        }
        ExpectRefused(bytes);
    }
}

TEST_P(DamagedRecord, ZerosAreRefused)
{
    ExpectRefused(std::string(40, '\0'));
    ExpectRefused(std::string(4096, '\0'));
}

TEST_P(DamagedRecord, WrongMarkIsRefused)
{
    ExpectRefused([](Record& record) { record.mark = 0x43564331; });
    ExpectRefused([](Record& record) { record.mark = 0; });
}

TEST_P(DamagedRecord, WrongRecordSizeIsRefused)
{
    for (const std::uint64_t size : {0UL, 39UL, 40UL, Good().size - 1, Good().size + 1, 1UL << 29U, 1UL << 30U,
                                     (1UL << 30U) + 1, 1UL << 31U, (1UL << 32U) - 1}) {
        SCOPED_TRACE(size);
        ExpectRefused([size](Record& record) { record.size = size; });
    }
}

// The head of a sound record with a directory of 17 bytes, but with this size of the record.
std::string HeadThatClaims(std::uint64_t recordSize)
{
    Record record({Field("a", "value")});
    record.size = recordSize;
    return record.Bytes().substr(0, kHeadSize);
}

TEST_P(DamagedRecord, SizeThatNoRecordCanHaveIsRefusedByTheHeadAlone)
{
    for (const std::uint64_t size : {0UL, 16UL, 39UL, (1UL << 30U) + 1, 1UL << 31U, (1UL << 32U) - 1}) {
        SCOPED_TRACE(size);
        if (GetParam() == Form::kMemory) {
            EXPECT_EQ(chunk_.ReadFrom(GuardedMemory(HeadThatClaims(size)).Get()), 0U);
        } else {
            EXPECT_EQ(PositionAfterRefusal(HeadThatClaims(size)), kHeadSize);
        }
        ExpectAsItWas();
    }
}

TEST_P(DamagedRecord, LongestSizeIsNotRefusedByTheHeadAlone)
{
    const std::string head = HeadThatClaims(DataChunk::kMaxSizeOnFile);
    if (GetParam() == Form::kMemory) {
        EXPECT_DEATH(chunk_.ReadFrom(GuardedMemory(head).Get()), "");
    } else {
        EXPECT_GT(PositionAfterRefusal(head), kHeadSize);
    }
}

TEST_P(DamagedRecord, WrongDirectorySizeIsRefused)
{
    for (const std::uint64_t size : {0UL, 1UL, 15UL, 16UL, 17UL, Good().directorySize - 1, Good().directorySize + 1,
                                     Good().size - 40, Good().size, 1UL << 31U, (1UL << 32U) - 1}) {
        SCOPED_TRACE(size);
        ExpectRefused([size](Record& record) { record.directorySize = size; });
    }
}

TEST_P(DamagedRecord, HugeMissingDirectoryIsRefused)
{
    ExpectRefused([](Record& record) {
        record.size = 1U << 30U;
        record.directorySize = (1U << 30U) - 40;
    });
}

TEST_P(DamagedRecord, WrongNumberOfFieldsIsRefused)
{
    for (const std::uint64_t number : {0UL, 2UL, 4UL, (1UL << 32U) - 1}) {
        SCOPED_TRACE(number);
        ExpectRefused([number](Record& record) { record.fieldNumber = number; });
    }
}

TEST_P(DamagedRecord, WrongNameSizeIsRefused)
{
    for (const std::uint64_t size :
         {0UL, 2UL, 17UL, 18UL, 35UL, 36UL, 1UL << 31U, (1UL << 32U) - 16, (1UL << 32U) - 1}) {
        for (const std::size_t field : {0U, 1U, 2U}) {
            SCOPED_TRACE(size);
            ExpectRefused([=](Record& record) { record.fields[field].nameSize = size; });
        }
    }
}

TEST_P(DamagedRecord, WrongValueSizeIsRefused)
{
    for (const std::uint64_t size : {1UL, 10UL, 12UL, 22UL, 23UL, 1UL << 31U, (1UL << 32U) - 11, (1UL << 32U) - 1}) {
        for (const std::size_t field : {0U, 1U, 2U}) {
            SCOPED_TRACE(size);
            ExpectRefused([=](Record& record) { record.fields[field].valueSize = size; });
        }
    }
}

TEST_P(DamagedRecord, ValueWithAWrongChecksumIsRefused)
{
    for (const std::size_t field : {0U, 1U, 2U}) {
        ExpectRefused([field](Record& record) { ++record.fields[field].checksum; });
    }
}

TEST_P(DamagedRecord, NamesThatDoNotAscendAreRefused)
{
    ExpectRefused(Record({{"b", "1"}, {"a", "2"}}).Bytes());
    ExpectRefused(Record({{"a", "1"}, {"a", "2"}}).Bytes());
    ExpectRefused(Record({{"\x80", "1"}, {"a", "2"}}).Bytes());  // names compare as unsigned bytes
    ExpectRefused(Record({{"aa", "1"}, {"a", "2"}}).Bytes());
}

TEST(SkippedFields, ValuesAreNotChecked)
{
    Record record = Good();
    ++record.fields[2].checksum;
    const records::OpenFile file(record.Bytes());
    DataChunk chunk;
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"a"}), record.size);
    EXPECT_EQ(*chunk.Get("a"), "first value");
}

TEST(SkippedFields, HeadAndDirectoryAreChecked)
{
    const std::string good = Good().Bytes();
    for (std::size_t at = 0; at < 40 + Good().directorySize; ++at) {
        std::string bytes = good;
        bytes[at] = static_cast<char>(~bytes[at]);
        const records::OpenFile file(bytes);
        DataChunk chunk;
        EXPECT_EQ(chunk.ReadFrom(file.Get(), std::set<std::string>{}), 0U) << at;
    }
}

TEST(SkippedFields, TruncatedRecordIsRefused)
{
    const std::string good = Good().Bytes();
    for (std::size_t size = 0; size < good.size(); ++size) {
        for (const std::set<std::string>& names : {std::set<std::string>{}, {"a"}, {"b"}, {"c"}}) {
            const records::OpenFile file(good.substr(0, size));
            DataChunk chunk;
            EXPECT_EQ(chunk.ReadFrom(file.Get(), names), 0U) << size;
        }
    }
}

// Reading the empty field moves nothing, so it proves nothing about the skipped one.
TEST(SkippedFields, TruncationBeforeAnEmptyFieldIsRefused)
{
    std::string bytes = Record({{"a", "first value"}, {"b", ""}}).Bytes();
    bytes.pop_back();
    const records::OpenFile file(bytes);
    DataChunk chunk;
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"b"}), 0U);
}

}  // namespace
