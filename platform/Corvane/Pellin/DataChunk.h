#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "Corvane/Time/TimePoint.h"

namespace Corvane::Pellin {

// A time point and named byte fields, such as one set of measurements, with a record that checks itself.
//
// What the library calls, and a platform of your own must offer: the default constructor and destructor, GetTimePoint,
// GetSizeOnFile, Write and the three ReadFrom. The other members are this platform's own.
//
// Disk     The record's layout is in docs/format.md. It opens with a mark that is not zero and with its size; a
//          checksum (XXH3, 64 bits) guards the head, one the directory of fields and one each field's value. Nothing
//          in it is believed before its checksum was right. Zero bytes are no record.
// Owns     The names and bytes of its fields.
// Errors   ReadFrom returns 0, and leaves the chunk as it was, for bytes that are not a good record, whole and of this
//          machine's byte order; for a failing read or seek; and at the end of the file. Set and Write throw.
// Threads  Const members at once; otherwise one thread at a time.
class DataChunk {
public:
    // No record is longer, in bytes: what a damaged or hostile length can cost is bounded.
    static constexpr std::uint64_t kMaxSizeOnFile = std::uint64_t{1} << 30U;

    // A chunk of 1970-01-01 without fields.
    DataChunk();
    explicit DataChunk(Time::TimePoint timePoint);

    // A chunk that was moved from is as new: its size and its record fit together, whoever still appends it.
    DataChunk(const DataChunk& other) = default;
    DataChunk(DataChunk&& other) noexcept;
    DataChunk& operator=(DataChunk other) noexcept;
    ~DataChunk() = default;

    Time::TimePoint GetTimePoint() const;

    // Bytes of the record: what Write puts down, or, after a ReadFrom, the length of the record that was read, skipped
    // fields included.
    std::uint64_t GetSizeOnFile() const;

    // Puts the record down: exactly GetSizeOnFile() bytes. Returns behind the last one.
    // Throws std::logic_error "a chunk of which fields were skipped has no record to write".
    unsigned char* Write(unsigned char* record) const;

    // Reads the record that begins there and returns its size in bytes, or 0. From memory, up to kMaxSizeOnFile bytes
    // behind `record` are looked at: no length is passed that could stop it. From a descriptor, it reads on from where
    // that stands, and leaves it behind the record; one that could not be read leaves it anywhere.
    // With names, only the values of these fields are read; the others are skipped, unchecked, and the chunk then
    // lacks them. A descriptor must be able to seek over them.
    std::uint64_t ReadFrom(const unsigned char* record);
    std::uint64_t ReadFrom(int fd);
    std::uint64_t ReadFrom(int fd, const std::set<std::string>& names);

    // Adds or replaces a field. Any bytes may stand in name and value.
    // Throws std::length_error "the record would be longer than 1073741824 bytes", and std::logic_error "a chunk of
    // which fields were skipped cannot be changed"; the chunk is then as it was.
    void Set(const std::string& name, std::string value);

    // The field's value; null if there is none. Good until the chunk is changed.
    const std::string* Get(const std::string& name) const;

    const std::map<std::string, std::string>& Fields() const noexcept { return fields_; }

private:
    void Swap(DataChunk& other) noexcept;
    std::uint64_t Become(Time::TimePoint timePoint, std::map<std::string, std::string> fields, std::uint64_t sizeOnFile,
                         bool complete);

    Time::TimePoint timePoint_;
    std::map<std::string, std::string> fields_;
    std::uint64_t sizeOnFile_;
    bool complete_;  // no field was skipped
};

}  // namespace Corvane::Pellin
