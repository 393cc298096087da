#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Corvane/Pellin/DataChunk.h"
#include "Corvane/Time/TimePoint.h"

namespace bench {

// The appender as one writes it down first: a vector that is resized, a lookup and an insertion for each chunk, a file
// read through a stream. It shows what the library's effort is worth. It logs nothing and has no limit of size.
class StraightforwardAppender {
public:
    StraightforwardAppender(const std::string& filename, bool reopen, std::uint64_t maxSize);
    StraightforwardAppender(const StraightforwardAppender&) = delete;
    StraightforwardAppender& operator=(const StraightforwardAppender&) = delete;
    ~StraightforwardAppender();

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
