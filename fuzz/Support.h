#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "Corvane/Pellin/DataChunk.h"

// What the fuzz targets share. Each target is one LLVMFuzzerTestOneInput, called by libFuzzer or by Replay.cpp.
namespace fuzz {

using Corvane::Pellin::DataChunk;

// An input of a target: four bytes that choose how to use the file, then the file.
constexpr std::size_t kChoices = 4;

struct Input {
    Input(const std::uint8_t* data, std::size_t size);

    std::uint8_t choices[kChoices] = {};
    std::string file;
};

// The maximum size that the input chooses for a reopening, in bytes; 0: unbounded.
std::uint64_t ChooseMaxSize(const Input& input);

// Ends the process unless the claim holds; libFuzzer then reports the input.
void Check(bool holds, const char* claim);

// Checks that the thread spends at most a second of processor time during its life.
class TimeLimit {
public:
    TimeLimit();
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;
    ~TimeLimit();

private:
    double start_;
};

// A file in memory.
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

// Makes the library's loggers build every text and print none.
void DiscardLog();

// Whether time points, sizes and fields are equal.
bool Equal(const DataChunk& left, const DataChunk& right);

// The bytes of the chunk's record.
std::string RecordOf(const DataChunk& chunk);

// The 64-bit word at this position. Bytes past the end count as zero.
std::uint64_t WordAt(const std::string& bytes, std::size_t position);

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
