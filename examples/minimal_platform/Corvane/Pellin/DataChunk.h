#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "Corvane/Time/TimePoint.h"

namespace Corvane::Pellin {

// A time and a text. Its record: a mark, the size of the record, and the ticks, 8 bytes each; then the text.
class DataChunk {
public:
    DataChunk() : DataChunk(0, "") {}
    DataChunk(long ticks, std::string text);
    DataChunk(const DataChunk&) = delete;
    DataChunk& operator=(const DataChunk&) = delete;
    ~DataChunk() = default;

    Time::TimePoint GetTimePoint() const { return Time::TimePoint(ticks_); }
    std::uint64_t GetSizeOnFile() const;
    void Write(unsigned char* record) const;
    std::uint64_t ReadFrom(const unsigned char* record);
    std::uint64_t ReadFrom(int fd);
    std::uint64_t ReadFrom(int fd, const std::set<std::string>& names);  // "text" is the one name that has a meaning

    const std::string& Text() const { return text_; }

private:
    long ticks_;
    std::string text_;
    std::uint64_t sizeOnFile_;
};

}  // namespace Corvane::Pellin
