#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Corvane/Pellin/DataChunk.h"
#include "harness/Memory.h"
#include "support/StraightforwardAppender.h"

namespace bench {

using StraightforwardAppender = support::StraightforwardAppender<Corvane::Pellin::DataChunk>;

// Opens as the appender does, writes everything with one call and closes.
void WriteImage(const std::string& path, const unsigned char* image, std::uint64_t size);

// The limit of writing: serialises a chunk for each time into touched memory and writes all of it at once. Returns the
// number of chunks.
std::uint64_t WriteDirectly(const std::string& path, bool bounded, const std::vector<std::int64_t>& times,
                            Corvane::Pellin::DataChunk& chunk, WarmBuffer& image);

// Appends a chunk for each time. Returns how many were accepted.
template <typename Appender>
std::uint64_t AppendAll(Appender& file, Corvane::Pellin::DataChunk& chunk, const std::vector<std::int64_t>& times)
{
    std::uint64_t accepted = 0;
    for (const std::int64_t time : times) {
        chunk.SetTime(time);
        accepted += file.Append(chunk) ? 1U : 0U;
    }
    return accepted;
}

// The times 0, 1, ...
std::vector<std::int64_t> TimesInOrder(std::uint64_t count);

// Makes a full, bounded file of `count` records with the times 0, 1, ...
void MakeFile(const std::string& path, std::uint64_t count, std::uint64_t recordSize);

}  // namespace bench
