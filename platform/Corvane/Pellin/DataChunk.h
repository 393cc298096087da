#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "Corvane/Time/TimePoint.h"

namespace Corvane::Pellin {

/// A time point and named byte fields, such as one set of measurements. Its record checks itself.
///
/// The library calls the default constructor, the destructor, GetTimePoint, GetSizeOnFile, Write and the three
/// ReadFrom. A platform of your own must offer these. The other members are this platform's own.
///
/// - **Disk**: docs/format.md shows the record byte by byte. It begins with a mark that is not zero, and its size. Each
///   part has a checksum (XXH3, 64 bits): the head, the directory of fields, and each field's value. ReadFrom relies on
///   a part only after its checksum was right. Zero bytes are no record.
/// - **Owns**: The names and values of its fields.
/// - **Errors**: ReadFrom returns 0 and leaves the chunk unchanged if the bytes are no good record. A file that ends
///   inside a record counts as such, and so does a failed read or seek. Set and Write throw.
/// - **Threads**: Const members may run at the same time; all others one at a time.
class DataChunk {
public:
    /// The longest record, in bytes. It bounds what a damaged or hostile length can cost.
    static constexpr std::uint64_t kMaxSizeOnFile = std::uint64_t{1} << 30U;

    /// A chunk of 1970-01-01 without fields.
    DataChunk();

    /// A chunk without fields.
    explicit DataChunk(Time::TimePoint timePoint);

    DataChunk(const DataChunk& other) = default;

    /// A moved-from chunk equals a default-constructed one and can still be appended.
    DataChunk(DataChunk&& other) noexcept;

    DataChunk& operator=(DataChunk other) noexcept;
    ~DataChunk() = default;

    Time::TimePoint GetTimePoint() const;

    /// Bytes of the record: the number that Write writes. After a ReadFrom, the size of the record that was read, with
    /// its skipped fields.
    std::uint64_t GetSizeOnFile() const;

    /// Writes the record, exactly GetSizeOnFile() bytes, and returns the address after the last one.
    /// Throws std::logic_error `a chunk with skipped fields has no record to write`.
    unsigned char* Write(unsigned char* record) const;

    /// Reads the record that begins at this address, and returns its size in bytes, or 0. No length is passed. The
    /// record's own size may lead up to kMaxSizeOnFile bytes past `record`, and all of them must be readable.
    std::uint64_t ReadFrom(const unsigned char* record);

    /// Reads the record that begins at the descriptor's position, and returns its size in bytes, or 0. The position is
    /// then right after the record, or anywhere if the result is 0.
    std::uint64_t ReadFrom(int fd);

    /// The same for the fields of these names. It skips the values of all others without checking them, and the chunk
    /// lacks them. The descriptor must be able to seek.
    std::uint64_t ReadFrom(int fd, const std::set<std::string>& names);

    /// Adds or replaces a field. Name and value may hold any bytes.
    ///
    /// Throws, and leaves the chunk unchanged:
    /// - std::length_error `the record would be longer than 1073741824 bytes`
    /// - std::logic_error `a chunk with skipped fields cannot be changed`
    void Set(const std::string& name, std::string value);

    /// Returns the field's value, or null if there is none. It stays valid until the chunk changes.
    const std::string* Get(const std::string& name) const;

    /// All fields, by name.
    const std::map<std::string, std::string>& Fields() const noexcept { return fields_; }

private:
    [[gnu::visibility("hidden")]] void Swap(DataChunk& other) noexcept;
    [[gnu::visibility("hidden")]] std::uint64_t Become(Time::TimePoint timePoint,
                                                       std::map<std::string, std::string> fields,
                                                       std::uint64_t sizeOnFile, bool complete);

    Time::TimePoint timePoint_;
    std::map<std::string, std::string> fields_;
    std::uint64_t sizeOnFile_;
    bool complete_;  // no field was skipped
};

}  // namespace Corvane::Pellin
