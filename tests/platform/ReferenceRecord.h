#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Corvane/Pellin/DataChunk.h"

// Records made byte by byte, and the three ways to read them.
namespace records {

using Corvane::Pellin::DataChunk;

// A directory entry. Sizes and checksums are right unless a test sets them.
struct Field {
    Field(std::string fieldName, std::string fieldValue);

    std::string name;
    std::string value;
    std::uint64_t nameSize;
    std::uint64_t valueSize;
    std::uint64_t checksum;
};

// A record whose head and directory have right checksums, whatever else they hold, unless a test sets the directory's.
struct Record {
    explicit Record(std::vector<Field> recordFields);

    std::string Bytes() const;

    std::vector<Field> fields;
    std::uint32_t mark = 0x31435643;
    std::uint64_t size;
    std::int64_t time = 1;
    std::uint64_t directorySize;
    std::uint64_t fieldNumber;
    std::optional<std::uint64_t> directoryChecksum;  // if it is wrong
};

enum class Form { kMemory, kDescriptor, kDescriptorWithNames };
void PrintTo(Form form, std::ostream* stream);

// The bytes in an open file of their own, positioned at the start.
class OpenFile {
public:
    explicit OpenFile(const std::string& bytes);
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile();

    int Get() const { return fd_; }
    std::int64_t Position() const;

private:
    int fd_;
};

// Lets the chunk read these bytes. From memory it may not read past them; with names, every field is named.
std::uint64_t Read(Form form, DataChunk& chunk, const std::string& bytes, const std::set<std::string>& names = {});

// The bytes that a chunk writes into memory of exactly its size.
std::string BytesOf(const DataChunk& chunk);

}  // namespace records
