#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Harness.h"

namespace bench {

// The workloads of each kind, in the order of their table.
std::vector<Workload> WritingWorkloads(const Options& options);
std::vector<Workload> ReopeningWorkloads(const Options& options);
std::vector<Workload> ReadingWorkloads(const Options& options);
std::vector<Workload> AttributeWorkloads(const Options& options);
std::vector<Workload> SmallFileWorkloads(const Options& options);
std::vector<Workload> RefusalWorkloads(const Options& options);

// Time and memory of each chunk of 64 bytes while a file grows from 10^3 to 10^7 chunks. Returns false if appending has
// become dearer by more than a quarter from 10^4 on.
bool MeasureGrowth(const Options& options);

// What a program of measurements does besides measuring: reads its arguments, makes and removes the folder of its files.
int Main(const std::vector<std::string>& arguments, const std::function<void(const Options&)>& measure);

// What the workloads share.
std::string SizeText(std::uint64_t bytes);  // "64 B", "1 KiB"
std::vector<std::int64_t> TimesInOrder(std::uint64_t count);
std::vector<std::int64_t> TimesInRandomOrder(std::uint64_t count);

// A buffer whose memory is there: nothing is faulted in when it is used.
class WarmBuffer {
public:
    explicit WarmBuffer(std::uint64_t size) : bytes_(size, 1) { Clear(); }
    void Clear() { bytes_.assign(bytes_.size(), 0); }
    // Has every page in this process: a child shares its parent's until it writes.
    void Touch();
    unsigned char* Data() { return bytes_.data(); }
    std::uint64_t Size() const { return bytes_.size(); }

private:
    std::vector<unsigned char> bytes_;
};

// Opens as the appender does, writes all of it with one call and closes.
void WriteImage(const std::string& path, const unsigned char* image, std::uint64_t size);

// Makes a full, bounded file of `count` records with times 0, 1, ...; returns its size.
std::uint64_t MakeFile(const std::string& path, std::uint64_t count, std::uint64_t recordSize);

}  // namespace bench
