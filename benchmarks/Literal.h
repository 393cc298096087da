#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Corvane/Pellin/DataChunk.h"
#include "Corvane/Time/TimePoint.h"

namespace bench {

// The appender as one would write it down first: a vector that is resized, a look-up and an insertion for each chunk, a
// file read through a stream. It shows what the library's effort is worth. It logs nothing and never refuses for size.
class LiteralAppender {
public:
    LiteralAppender(const std::string& filename, bool reopen, std::uint64_t maxSize);
    LiteralAppender(const LiteralAppender&) = delete;
    LiteralAppender& operator=(const LiteralAppender&) = delete;
    ~LiteralAppender();

    bool Append(const Corvane::Pellin::DataChunk& chunk);

private:
    void Reopen(const std::string& filename);

    std::uint64_t maxSize_;
    std::vector<std::uint8_t> data_;
    std::uint64_t currentSize_;
    std::uint64_t chunkNumber_ = 0;
    int fd_;
    std::set<Corvane::Time::TimePoint> timePoints_;
};

}  // namespace bench
