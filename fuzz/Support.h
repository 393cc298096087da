#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "Corvane/Pellin/DataChunk.h"

// What the fuzz targets share. Each target is one LLVMFuzzerTestOneInput, which libFuzzer calls, or Replay.cpp.
namespace fuzz {

using Corvane::Pellin::DataChunk;

// What a target is given: four bytes that choose how the file is used, then the file.
constexpr std::size_t kChoices = 4;

struct Input {
    Input(const std::uint8_t* data, std::size_t size);

    std::uint8_t choices[kChoices] = {};
    std::string file;
};

// Ends the process, and so reports the input, unless what is claimed holds.
void Check(bool holds, const char* claim);

// While it lives, the calling thread may spend one second of processor time.
class TimeLimit {
public:
    TimeLimit();
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;
    ~TimeLimit();

private:
    double start_;
};

// A file without a disk.
class MemoryFile {
public:
    explicit MemoryFile(const std::string& bytes);
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile();

    std::string Path() const;
    std::string Bytes() const;
    int Fd() const { return fd_; }

private:
    int fd_;
};

// Makes the library's loggers build every text, and print none.
void DiscardLog();

// Whether time, size and fields are the same.
bool Equal(const DataChunk& left, const DataChunk& right);

// The bytes of the chunk's record.
std::string RecordOf(const DataChunk& chunk);

// An unsigned 64-bit word; what the bytes lack of it is zero.
std::uint64_t WordAt(const std::string& bytes, std::size_t position);

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
