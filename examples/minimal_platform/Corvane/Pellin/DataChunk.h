#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "Corvane/Time/TimePoint.h"

namespace Corvane::Pellin {

// A time and a text. The record is a mark, its size and the ticks, 8 bytes each, then the text.
class DataChunk {
public:
    DataChunk() : DataChunk(0, "") {}
    DataChunk(long ticks, std::string text);
    DataChunk(const DataChunk&) = delete;
    DataChunk& operator=(const DataChunk&) = delete;
    ~DataChunk() = default;

    Time::TimePoint GetTimePoint() const { return Time::TimePoint(ticks_); }
    std::uint64_t GetSizeOnFile() const;
    void Write(unsigned char* record) const;  // throws std::logic_error if the text was not read
    std::uint64_t ReadFrom(const unsigned char* record);
    std::uint64_t ReadFrom(int fd);
    std::uint64_t ReadFrom(int fd, const std::set<std::string>& names);  // reads the text for "text"

    const std::string& Text() const { return text_; }

private:
    long ticks_;
    std::string text_;
    std::uint64_t sizeOnFile_;
};

}  // namespace Corvane::Pellin
