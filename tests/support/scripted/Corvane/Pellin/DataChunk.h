#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <set>
#include <string>

#include "Corvane/Time/TimePoint.h"

namespace Corvane::Pellin {

// A chunk that a test scripts. Its record: a mark, the size and the time, 8 bytes each, then bytes of 0x5a. A record of
// less than 24 bytes is truncated and cannot be read back.
class DataChunk {
public:
    static constexpr std::uint64_t kMark = 0x6b72616d;
    static constexpr std::uint64_t kHeadSize = 24;

    DataChunk() : DataChunk(0, 0) {}
    DataChunk(std::int64_t time, std::uint64_t size) : time_(time), size_(size)
    {
        ++alive;
        mostAlive = std::max(mostAlive, alive);
    }
    DataChunk(const DataChunk&) = delete;
    DataChunk& operator=(const DataChunk&) = delete;
    ~DataChunk() { --alive; }

    Time::TimePoint GetTimePoint() const
    {
        Call(onGetTimePoint);
        return Time::TimePoint(time_);
    }

    std::uint64_t GetSizeOnFile() const
    {
        Call(onGetSizeOnFile);
        return size_;
    }

    // Calls onWrite when half of the record is written.
    void Write(unsigned char* record) const
    {
        const std::uint64_t head[] = {kMark, size_, static_cast<std::uint64_t>(time_)};
        std::memset(record, 0x5a, size_ / 2);
        Call(onWrite);
        std::memset(record, 0x5a, size_);
        std::memcpy(record, head, size_ < kHeadSize ? size_ : kHeadSize);
    }

    // Returns what `parse` returns if that is set; else 0 if the mark is missing.
    std::uint64_t ReadFrom(const unsigned char* record)
    {
        Call(onReadFrom);
        if (parse) {
            return parse(*this, record);
        }
        std::uint64_t head[3] = {};
        std::memcpy(head, record, sizeof head);
        return Take(head);
    }

    std::uint64_t ReadFrom(int fd)
    {
        Call(onReadFrom);
        std::uint64_t head[3] = {};
        return ::read(fd, head, sizeof head) == static_cast<ssize_t>(sizeof head) ? Take(head) : 0;
    }

    std::uint64_t ReadFrom(int fd, const std::set<std::string>& names)
    {
        lastNames = &names;
        return ReadFrom(fd);
    }

    void Become(std::int64_t time, std::uint64_t size)
    {
        time_ = time;
        size_ = size;
    }

    // Each is called, if set, by the member function of its name.
    static inline std::function<void()> onGetTimePoint;
    static inline std::function<void()> onGetSizeOnFile;
    static inline std::function<void()> onWrite;
    static inline std::function<void()> onReadFrom;
    static inline std::function<std::uint64_t(DataChunk&, const unsigned char*)> parse;
    static inline const std::set<std::string>* lastNames = nullptr;

    // Chunks that exist now, and the most that have existed at once since a test set this.
    static inline int alive = 0;
    static inline int mostAlive = 0;

private:
    static void Call(const std::function<void()>& function)
    {
        if (function) {
            function();
        }
    }

    std::uint64_t Take(const std::uint64_t* head)
    {
        if (head[0] != kMark) {
            return 0;
        }
        Become(static_cast<std::int64_t>(head[2]), head[1]);
        return 1;
    }

    std::int64_t time_;
    std::uint64_t size_;
};

}  // namespace Corvane::Pellin
