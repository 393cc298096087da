#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>

#include "Corvane/Time/TimePoint.h"

namespace Corvane::Pellin {

// A time point and bytes. Its record: a mark and the size (4 bytes each), the time (8 bytes), then the bytes, which are
// copied and never inspected.
class DataChunk {
public:
    static constexpr std::uint64_t kHeadSize = 16;

    DataChunk() = default;

    // A chunk whose record has this size, 16 bytes at least.
    explicit DataChunk(std::uint64_t sizeOnFile) : payload_(sizeOnFile - kHeadSize, 'p') {}

    void SetTime(std::int64_t time) noexcept { head_.time = time; }
    std::int64_t Time() const noexcept { return head_.time; }
    const std::string& Payload() const noexcept { return payload_; }

    Time::TimePoint GetTimePoint() const noexcept { return Time::TimePoint(head_.time); }
    std::uint64_t GetSizeOnFile() const noexcept { return kHeadSize + payload_.size(); }

    void Write(unsigned char* record) const noexcept
    {
        const Head head = {kMark, static_cast<std::uint32_t>(GetSizeOnFile()), head_.time};
        std::memcpy(record, &head, kHeadSize);
        std::memcpy(record + kHeadSize, payload_.data(), payload_.size());
    }

    std::uint64_t ReadFrom(const unsigned char* record)
    {
        std::memcpy(&head_, record, kHeadSize);
        if (!HeadIsGood()) {
            return 0;
        }
        payload_.assign(reinterpret_cast<const char*>(record + kHeadSize), head_.size - kHeadSize);
        return head_.size;
    }

    std::uint64_t ReadFrom(int fd)
    {
        if (::read(fd, &head_, kHeadSize) != kHeadSize || !HeadIsGood()) {
            return 0;
        }
        payload_.resize(head_.size - kHeadSize);
        return ::read(fd, payload_.data(), payload_.size()) == static_cast<ssize_t>(payload_.size()) ? head_.size : 0;
    }

    std::uint64_t ReadFrom(int fd, const std::set<std::string>& /*names*/) { return ReadFrom(fd); }

private:
    static constexpr std::uint32_t kMark = 0x6b6e6863;

    struct Head {
        std::uint32_t mark;
        std::uint32_t size;
        std::int64_t time;
    };
    static_assert(sizeof(Head) == kHeadSize);

    bool HeadIsGood() const noexcept { return head_.mark == kMark && head_.size >= kHeadSize; }

    Head head_ = {};
    std::string payload_;
};

}  // namespace Corvane::Pellin
