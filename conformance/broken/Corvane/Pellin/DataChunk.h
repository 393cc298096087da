#pragma once

#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <set>
#include <string>

#include "Corvane/Time/TimePoint.h"
#include "Fault.h"

namespace Corvane::Pellin {

// A time and a number of equal bytes. The record is a checksum, its size and the ticks, 8 bytes each, then the bytes.
class DataChunk {
public:
    DataChunk() : DataChunk(0, 0) {}
    DataChunk(long ticks, std::uint64_t length) : ticks_(ticks), length_(length) {}

    Time::TimePoint GetTimePoint() const { return Time::TimePoint(ticks_); }
    std::uint64_t GetSizeOnFile() const { return kHeadSize + length_; }
    std::uint64_t Length() const { return length_; }

    void Write(unsigned char* record) const
    {
        std::memset(record, 'b', skipped_ ? kHeadSize : GetSizeOnFile() - (broken::Has("short") ? 1 : 0));
        Head head = {0, GetSizeOnFile(), ticks_};
        head.checksum = ChecksumOf(head);
        std::memcpy(record, &head, kHeadSize);
        volatile unsigned char* const at = record;  // volatile, or the compiler warns
        if (broken::Has("before")) {
            *(at - 1) = 'b';
        }
        if (broken::Has("after")) {
            at[GetSizeOnFile()] = 'b';
        }
    }

    std::uint64_t ReadFrom(const unsigned char* record)
    {
        Head head = {};
        std::memcpy(&head, record, kHeadSize);
        return broken::Has("memory") || !IsGood(head, record + kHeadSize) ? 0 : Become(head);
    }

    std::uint64_t ReadFrom(int fd)
    {
        Head head = {};
        std::array<unsigned char, kLongest> bytes = {};
        const ssize_t count = ::read(fd, &head, kHeadSize);
        const bool whole =
            count == static_cast<ssize_t>(kHeadSize) && head.size <= kHeadSize + kLongest &&
            ::read(fd, bytes.data(), head.size - kHeadSize) == static_cast<ssize_t>(head.size - kHeadSize);
        if (broken::Has("descriptor") || (!whole && !broken::Has("truncated"))) {
            return 0;
        }
        const bool isTruncated = broken::Has("truncated") && !whole && count > 0;
        const bool isGood = broken::Has("agree") ? HasGoodHead(head) : IsGood(head, bytes.data());
        return isGood || isTruncated ? Become(head) : 0;
    }

    std::uint64_t ReadFrom(int fd, const std::set<std::string>& names)
    {
        const std::uint64_t result = ReadFrom(fd);
        length_ += broken::Has("names") ? 1 : 0;
        skipped_ = broken::Has("reread") && names.empty() && length_ > 0;
        return result;
    }

private:
    struct Head {
        std::uint64_t checksum;
        std::uint64_t size;
        long ticks;
    };
    static constexpr std::uint64_t kHeadSize = sizeof(Head);
    static constexpr std::uint64_t kLongest = 1024;
    static constexpr std::uint64_t kInside = 0x6262626262626262U;  // "bbbbbbbb", where the bytes of a record are

    static std::uint64_t ChecksumOf(const Head& head)
    {
        return 0x9e3779b97f4a7c15U * (head.size + 1) ^ 0xc2b2ae3d27d4eb4fU * static_cast<std::uint64_t>(head.ticks + 1);
    }

    static bool IsGood(const Head& head, const unsigned char* bytes)
    {
        if (broken::Has("crash") && head.size > kHeadSize + kLongest) {
            std::abort();
        }
        if (broken::Has("inside") && head.checksum == kInside) {
            std::abort();
        }
        if (broken::Has("zeros") && head.checksum == 0 && head.size == 0) {
            return true;
        }
        return HasGoodHead(head) && (broken::Has("damage") || AreAll(bytes, head.size - kHeadSize));
    }

    static bool HasGoodHead(const Head& head)
    {
        return head.checksum == ChecksumOf(head) && head.size >= kHeadSize && head.size <= kHeadSize + kLongest;
    }

    static bool AreAll(const unsigned char* bytes, std::uint64_t count)
    {
        return std::accumulate(bytes, bytes + count, true,
                               [](bool all, unsigned char byte) { return all && byte == 'b'; });
    }

    std::uint64_t Become(const Head& head)
    {
        ticks_ = head.ticks;
        length_ = head.size - kHeadSize;
        return 1;
    }

    long ticks_;
    std::uint64_t length_;
    bool skipped_ = false;
};

}  // namespace Corvane::Pellin
