#include "ReferenceRecord.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>
#include <xxhash.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace records {

namespace {

template <typename Word>
std::string Bytes(Word word)
{
    return {reinterpret_cast<const char*>(&word), sizeof word};
}

std::uint64_t Checksum(const std::string& bytes)
{
    return XXH3_64bits(bytes.data(), bytes.size());
}

std::string EntryOf(const Field& field)
{
    return Bytes(static_cast<std::uint32_t>(field.nameSize)) + Bytes(static_cast<std::uint32_t>(field.valueSize)) +
           Bytes(field.checksum) + field.name;
}

}  // namespace

Field::Field(std::string fieldName, std::string fieldValue)
    : name(std::move(fieldName)),
      value(std::move(fieldValue)),
      nameSize(name.size()),
      valueSize(value.size()),
      checksum(Checksum(value))
{
}

Record::Record(std::vector<Field> recordFields)
    : fields(std::move(recordFields)), size(40), directorySize(0), fieldNumber(fields.size())
{
    for (const Field& field : fields) {
        directorySize += 16 + field.name.size();
        size += 16 + field.name.size() + field.value.size();
    }
}

std::string Record::Bytes() const
{
    std::string directory;
    std::string values;
    for (const Field& field : fields) {
        directory += EntryOf(field);
        values += field.value;
    }
    // The checksum of the directory: as many bytes as the head claims, or all that exist.
    std::string head =
        records::Bytes(mark) + records::Bytes(static_cast<std::uint32_t>(size)) + records::Bytes(time) +
        records::Bytes(static_cast<std::uint32_t>(directorySize)) +
        records::Bytes(static_cast<std::uint32_t>(fieldNumber)) +
        records::Bytes(directoryChecksum.value_or(Checksum((directory + values).substr(0, directorySize))));
    head += records::Bytes(Checksum(head));
    return head + directory + values;
}

void PrintTo(Form form, std::ostream* stream)
{
    const std::vector<std::string> names = {"Memory", "Descriptor", "DescriptorWithNames"};
    *stream << names[static_cast<std::size_t>(form)];
}

OpenFile::OpenFile(const std::string& bytes) : fd_(::memfd_create("record", 0))
{
    if (fd_ == -1 || ::write(fd_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
        ::lseek(fd_, 0, SEEK_SET) != 0) {
        throw std::runtime_error("no file in memory");
    }
}

OpenFile::~OpenFile()
{
    ::close(fd_);
}

std::int64_t OpenFile::Position() const
{
    return ::lseek(fd_, 0, SEEK_CUR);
}

std::uint64_t Read(Form form, DataChunk& chunk, const std::string& bytes, const std::set<std::string>& names)
{
    if (form == Form::kMemory) {
        const std::vector<unsigned char> memory(bytes.begin(),
                                                bytes.end());  // sized exactly, so that a sanitizer sees reads past it
        return chunk.ReadFrom(memory.data());
    }
    const OpenFile file(bytes);
    return form == Form::kDescriptor ? chunk.ReadFrom(file.Get()) : chunk.ReadFrom(file.Get(), names);
}

std::string BytesOf(const DataChunk& chunk)
{
    std::vector<unsigned char> memory(chunk.GetSizeOnFile());
    EXPECT_EQ(chunk.Write(memory.data()), memory.data() + memory.size());
    return {memory.begin(), memory.end()};
}

}  // namespace records
