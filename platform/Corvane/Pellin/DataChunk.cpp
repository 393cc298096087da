#include "Corvane/Pellin/DataChunk.h"

#include <unistd.h>
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Corvane::Pellin {

using Time::TimePoint;

namespace {

using FieldMap = std::map<std::string, std::string>;

static_assert(std::endian::native == std::endian::little, "words are copied in the host's byte order");

// A record is a head, a directory of its fields in the byte order of their names, and their values in the same order.
constexpr std::size_t kHeadSize = 40;
constexpr std::uint32_t kMark = 0x31435643;  // "CVC1", the first four bytes
constexpr std::size_t kSizePosition = 4;
constexpr std::size_t kTimePosition = 8;
constexpr std::size_t kDirectorySizePosition = 16;
constexpr std::size_t kFieldNumberPosition = 20;
constexpr std::size_t kDirectoryChecksumPosition = 24;
constexpr std::size_t kHeadChecksumPosition = 32;  // of the bytes before it

// In each entry of the directory, after the size of the name.
constexpr std::size_t kValueSizePosition = 4;
constexpr std::size_t kValueChecksumPosition = 8;
constexpr std::size_t kNamePosition = 16;

struct Head {
    std::uint64_t recordSize = 0;
    std::int64_t nanoseconds = 0;
    std::uint64_t directorySize = 0;
    std::uint64_t fieldNumber = 0;
    std::uint64_t directoryChecksum = 0;
};

struct Entry {
    std::string name;
    std::uint64_t valueSize = 0;
    std::uint64_t checksum = 0;
};

template <typename Word>
Word LoadWord(const unsigned char* bytes)
{
    Word word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

template <typename Word>
void StoreWord(unsigned char* bytes, Word word)
{
    std::memcpy(bytes, &word, sizeof word);
}

// A fuzzer cannot forge a checksum, so it would find no bug after one. In a fuzzer's build every checksum is therefore
// right, unless the size is above any fuzzer's file: the zeros after the file would fail it.
bool HasChecksum(const unsigned char* bytes, std::uint64_t size, std::uint64_t checksum)
{
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
    return (static_cast<void>(bytes), static_cast<void>(checksum), size <= std::uint64_t{1} << 20U);
#else
    return XXH3_64bits(bytes, size) == checksum;
#endif
}

std::uint64_t EntrySize(const std::string& name)
{
    return kNamePosition + name.size();
}

bool ParseHead(const unsigned char* bytes, Head& head)
{
    if (LoadWord<std::uint32_t>(bytes) != kMark ||
        !HasChecksum(bytes, kHeadChecksumPosition, LoadWord<std::uint64_t>(bytes + kHeadChecksumPosition))) {
        return false;
    }
    head.recordSize = LoadWord<std::uint32_t>(bytes + kSizePosition);
    head.nanoseconds = LoadWord<std::int64_t>(bytes + kTimePosition);
    head.directorySize = LoadWord<std::uint32_t>(bytes + kDirectorySizePosition);
    head.fieldNumber = LoadWord<std::uint32_t>(bytes + kFieldNumberPosition);
    head.directoryChecksum = LoadWord<std::uint64_t>(bytes + kDirectoryChecksumPosition);
    return head.recordSize <= DataChunk::kMaxSizeOnFile && head.recordSize >= kHeadSize &&
           head.directorySize <= head.recordSize - kHeadSize;
}

// The names must ascend, so that none comes twice. The sizes must add up to the record's.
bool ParseDirectory(const unsigned char* bytes, const Head& head, std::vector<Entry>& entries)
{
    if (!HasChecksum(bytes, head.directorySize, head.directoryChecksum)) {
        return false;
    }
    std::uint64_t rest = head.directorySize;
    std::uint64_t values = head.recordSize - kHeadSize - head.directorySize;
    while (rest != 0) {
        if (rest < kNamePosition || LoadWord<std::uint32_t>(bytes) > rest - kNamePosition) {
            return false;
        }
        const auto* const name = reinterpret_cast<const char*>(bytes + kNamePosition);
        const Entry entry = {{name, LoadWord<std::uint32_t>(bytes)},
                             LoadWord<std::uint32_t>(bytes + kValueSizePosition),
                             LoadWord<std::uint64_t>(bytes + kValueChecksumPosition)};
        if (entry.valueSize > values || (!entries.empty() && entry.name <= entries.back().name)) {
            return false;
        }
        values -= entry.valueSize;
        bytes += EntrySize(entry.name);
        rest -= EntrySize(entry.name);
        entries.push_back(entry);
    }
    return values == 0 && entries.size() == head.fieldNumber;
}

// Bytes of a record in memory.
class MemorySource {
public:
    explicit MemorySource(const unsigned char* bytes) : bytes_(bytes) {}

    const unsigned char* Next(std::uint64_t size) { return std::exchange(bytes_, bytes_ + size); }
    bool Skip(std::uint64_t size) { return Next(size) != nullptr; }
    bool IsWhole() const { return bytes_ != nullptr; }

private:
    const unsigned char* bytes_;
};

// Bytes of a record in a file. What Next returns is valid until the next call; it is null at the end of the file.
class DescriptorSource {
public:
    explicit DescriptorSource(int fd) : fd_(fd) {}

    const unsigned char* Next(std::uint64_t size)
    {
        std::uint64_t have = 0;
        while (have < size) {
            // In steps, because a size that is larger than the file must not cost its memory.
            bytes_.resize(std::min(size, std::max(kFirstStep, 2 * have)));
            const std::uint64_t count = Read(bytes_.data() + have, bytes_.size() - have);
            if (count == 0) {
                return nullptr;
            }
            have += count;
        }
        lastSkipped_ = lastSkipped_ && size == 0;
        bytes_.resize(std::max<std::size_t>(bytes_.size(), 1));  // so that data() is not null for 0 bytes
        return bytes_.data();
    }

    bool Skip(std::uint64_t size)
    {
        if (size == 0) {
            return true;
        }
        lastSkipped_ = true;
        return ::lseek(fd_, static_cast<off_t>(size), SEEK_CUR) != -1;
    }

    // A seek succeeds past the end of the file too. So the last byte is read if it was skipped.
    bool IsWhole() { return !lastSkipped_ || (::lseek(fd_, -1, SEEK_CUR) != -1 && Next(1) != nullptr); }

private:
    static constexpr std::uint64_t kFirstStep = 65536;

    // The number of bytes read; 0 at the end of the file or on an error.
    std::uint64_t Read(unsigned char* bytes, std::uint64_t size) const
    {
        ssize_t count = 0;
        do {
            count = ::read(fd_, bytes, size);
        } while (count == -1 && errno == EINTR);
        return count == -1 ? 0 : static_cast<std::uint64_t>(count);
    }

    int fd_;
    std::vector<unsigned char> bytes_;
    bool lastSkipped_ = false;
};

// Parses what comes after the head. Adds the fields of these names to `fields`, or all of them if `names` is null.
template <typename Source>
bool ParseBody(Source& source, const Head& head, const std::set<std::string>* names, FieldMap& fields)
{
    const unsigned char* const directory = source.Next(head.directorySize);
    std::vector<Entry> entries;
    if (directory == nullptr || !ParseDirectory(directory, head, entries)) {
        return false;
    }
    for (Entry& entry : entries) {
        if (names != nullptr && names->find(entry.name) == names->end()) {
            if (!source.Skip(entry.valueSize)) {
                return false;
            }
            continue;
        }
        const unsigned char* const value = source.Next(entry.valueSize);
        if (value == nullptr || !HasChecksum(value, entry.valueSize, entry.checksum)) {
            return false;
        }
        fields.emplace_hint(fields.end(), std::move(entry.name),
                            std::string(reinterpret_cast<const char*>(value), entry.valueSize));
    }
    return source.IsWhole();
}

}  // namespace

DataChunk::DataChunk() : DataChunk(TimePoint(0)) {}

DataChunk::DataChunk(TimePoint timePoint) : timePoint_(timePoint), sizeOnFile_(kHeadSize), complete_(true) {}

DataChunk::DataChunk(DataChunk&& other) noexcept : DataChunk()
{
    Swap(other);
}

DataChunk& DataChunk::operator=(DataChunk other) noexcept
{
    Swap(other);
    return *this;
}

void DataChunk::Swap(DataChunk& other) noexcept
{
    std::swap(timePoint_, other.timePoint_);
    std::swap(fields_, other.fields_);
    std::swap(sizeOnFile_, other.sizeOnFile_);
    std::swap(complete_, other.complete_);
}

TimePoint DataChunk::GetTimePoint() const
{
    return timePoint_;
}

std::uint64_t DataChunk::GetSizeOnFile() const
{
    return sizeOnFile_;
}

unsigned char* DataChunk::Write(unsigned char* record) const
{
    if (!complete_) {
        throw std::logic_error("a chunk with skipped fields has no record to write");
    }
    unsigned char* const directory = record + kHeadSize;
    unsigned char* entry = directory;
    for (const auto& [name, value] : fields_) {
        StoreWord(entry, static_cast<std::uint32_t>(name.size()));
        StoreWord(entry + kValueSizePosition, static_cast<std::uint32_t>(value.size()));
        StoreWord(entry + kValueChecksumPosition, std::uint64_t{XXH3_64bits(value.data(), value.size())});
        std::copy(name.begin(), name.end(), entry + kNamePosition);
        entry += EntrySize(name);
    }
    const auto directorySize = static_cast<std::size_t>(entry - directory);
    unsigned char* end = entry;
    for (const auto& field : fields_) {
        end = std::copy(field.second.begin(), field.second.end(), end);
    }
    StoreWord(record, kMark);
    StoreWord(record + kSizePosition, static_cast<std::uint32_t>(sizeOnFile_));
    StoreWord(record + kTimePosition, timePoint_.Nanoseconds());
    StoreWord(record + kDirectorySizePosition, static_cast<std::uint32_t>(directorySize));
    StoreWord(record + kFieldNumberPosition, static_cast<std::uint32_t>(fields_.size()));
    StoreWord(record + kDirectoryChecksumPosition, std::uint64_t{XXH3_64bits(directory, directorySize)});
    StoreWord(record + kHeadChecksumPosition, std::uint64_t{XXH3_64bits(record, kHeadChecksumPosition)});
    return end;
}

std::uint64_t DataChunk::ReadFrom(const unsigned char* record)
{
    Head head;
    if (!ParseHead(record, head)) {
        return 0;
    }
    FieldMap fields;
    MemorySource body(record + kHeadSize);
    if (!ParseBody(body, head, nullptr, fields)) {
        return 0;
    }
    return Become(TimePoint(head.nanoseconds), std::move(fields), head.recordSize, true);
}

std::uint64_t DataChunk::ReadFrom(int fd)
{
    DescriptorSource source(fd);
    Head head;
    FieldMap fields;
    const unsigned char* bytes = source.Next(kHeadSize);
    if (bytes == nullptr || !ParseHead(bytes, head)) {
        return 0;
    }
    bytes = source.Next(head.recordSize - kHeadSize);  // the rest in one read
    if (bytes == nullptr) {
        return 0;
    }
    MemorySource body(bytes);
    if (!ParseBody(body, head, nullptr, fields)) {
        return 0;
    }
    return Become(TimePoint(head.nanoseconds), std::move(fields), head.recordSize, true);
}

std::uint64_t DataChunk::ReadFrom(int fd, const std::set<std::string>& names)
{
    DescriptorSource source(fd);
    Head head;
    FieldMap fields;
    const unsigned char* const bytes = source.Next(kHeadSize);
    if (bytes == nullptr || !ParseHead(bytes, head) || !ParseBody(source, head, &names, fields)) {
        return 0;
    }
    const bool complete = fields.size() == head.fieldNumber;
    return Become(TimePoint(head.nanoseconds), std::move(fields), head.recordSize, complete);
}

std::uint64_t DataChunk::Become(TimePoint timePoint, FieldMap fields, std::uint64_t sizeOnFile, bool complete)
{
    timePoint_ = timePoint;
    fields_ = std::move(fields);
    sizeOnFile_ = sizeOnFile;
    complete_ = complete;
    return sizeOnFile;
}

void DataChunk::Set(const std::string& name, std::string value)
{
    if (!complete_) {
        throw std::logic_error("a chunk with skipped fields cannot be changed");
    }
    const auto found = fields_.find(name);
    const std::uint64_t before = found == fields_.end() ? 0 : EntrySize(name) + found->second.size();
    const std::uint64_t others = sizeOnFile_ - before;
    if (name.size() > kMaxSizeOnFile || value.size() > kMaxSizeOnFile ||
        EntrySize(name) + value.size() > kMaxSizeOnFile - others) {
        throw std::length_error("the record would be longer than 1073741824 bytes");
    }
    const std::uint64_t size = others + EntrySize(name) + value.size();
    fields_.insert_or_assign(name, std::move(value));
    sizeOnFile_ = size;
}

const std::string* DataChunk::Get(const std::string& name) const
{
    const auto found = fields_.find(name);
    return found == fields_.end() ? nullptr : &found->second;
}

}  // namespace Corvane::Pellin
