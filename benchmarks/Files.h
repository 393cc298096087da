#pragma once

#include <cstdint>
#include <string>

namespace bench {

// Opens as the appender does, writes everything with one call and closes.
void WriteImage(const std::string& path, const unsigned char* image, std::uint64_t size);

// Makes a full, bounded file of `count` records with the times 0, 1, ...; returns its size.
std::uint64_t MakeFile(const std::string& path, std::uint64_t count, std::uint64_t recordSize);

}  // namespace bench
