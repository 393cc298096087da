#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/Records.h"

namespace support {

// A chunk at this time (nanoseconds) whose record has exactly `size` bytes: 40, or 57 and more. The bytes of its one
// field "p" depend on time and size.
DataChunk ChunkOfSize(std::int64_t time, std::uint64_t size);

// The bytes of a chunk file: header with this version and count, then the records.
std::string FileOf(const std::vector<DataChunk>& chunks, std::uint64_t version = 2);

// All chunks of a file up to the first bad record, read by the reader.
std::vector<DataChunk> ReadAll(const std::string& path);

// The time points, in nanoseconds.
std::vector<std::int64_t> TimesOf(const std::vector<DataChunk>& chunks);

}  // namespace support
