// A mutator that knows the layout. It changes whole records and single numbers, then repairs the checksums, because a
// blind change never gets past those.
#include <xxhash.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "Support.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed);

namespace {

using Corvane::Time::TimePoint;
using fuzz::DataChunk;

// Positions in an input, and sizes in a record (docs/format.md).
constexpr std::size_t kVersion = fuzz::kChoices;
constexpr std::size_t kCount = kVersion + 8;
constexpr std::size_t kRecords = kCount + 8;
constexpr std::uint32_t kMark = 0x31435643;
constexpr std::size_t kHeadSize = 40;
constexpr std::size_t kEntrySize = 16;

class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}
    std::size_t Below(std::size_t end) { return std::uniform_int_distribution<std::size_t>(0, end - 1)(engine_); }
    bool OneIn(std::size_t n) { return Below(n) == 0; }
    template <typename Choices>
    auto Choose(const Choices& choices)
    {
        return *(std::begin(choices) + static_cast<std::ptrdiff_t>(Below(std::size(choices))));
    }

private:
    std::minstd_rand engine_;
};

std::size_t Load(const std::string& bytes, std::size_t at)
{
    std::uint32_t number = 0;
    if (at + sizeof number <= bytes.size()) {
        std::memcpy(&number, bytes.data() + at, sizeof number);
    }
    return number;
}

template <typename Word>
void Store(std::string& bytes, std::size_t at, Word word)
{
    if (at + sizeof word <= bytes.size()) {
        std::memcpy(bytes.data() + at, &word, sizeof word);
    }
}

// The positions of the records, as far as their sizes lead from one to the next.
std::vector<std::size_t> Records(const std::string& input)
{
    std::vector<std::size_t> records;
    std::size_t at = kRecords;
    while (at + kHeadSize <= input.size()) {
        records.push_back(at);
        at += std::max(Load(input, at + 4), kHeadSize);
    }
    return records;
}

std::uint64_t Checksum(const std::string& input, std::size_t at, std::size_t size)
{
    return XXH3_64bits(input.data() + at, size);
}

// Repairs the mark and the checksums of one record, as far as the bytes they cover are in the input.
void Repair(std::string& input, std::size_t record)
{
    const std::size_t directory = record + kHeadSize;
    const std::size_t directorySize = Load(input, record + 16);
    if (directorySize <= input.size() - directory) {
        const std::size_t end = directory + directorySize;
        std::size_t value = end;
        std::size_t entry = directory;
        while (entry + kEntrySize <= end) {
            const std::size_t valueSize = Load(input, entry + 4);
            if (valueSize <= input.size() - value) {
                Store(input, entry + 8, Checksum(input, value, valueSize));
                value += valueSize;
            }
            entry += kEntrySize + Load(input, entry);
        }
        Store(input, record + 24, Checksum(input, directory, directorySize));
    }
    Store(input, record, kMark);
    Store(input, record + 32, Checksum(input, record, 32));
}

DataChunk NewChunk(Random& random)
{
    DataChunk chunk{TimePoint(static_cast<std::int64_t>(random.Below(20)))};
    for (std::size_t i = random.Below(4); i > 0; --i) {
        static const std::vector<const char*> names = {"", "a", "cpu", "p", "a longer name than others have"};
        chunk.Set(random.Choose(names), std::string(random.Below(200), static_cast<char>(random.Below(256))));
    }
    return chunk;
}

// Replaces a number of a record's head or directory with one that is likely to find a bug.
void ChangeNumber(std::string& input, std::size_t record, Random& random)
{
    const std::size_t size = Load(input, record + 4);
    const std::size_t at = record + random.Choose(std::vector<std::size_t>{4, 16, 20, kHeadSize, kHeadSize + 4});
    if (at + sizeof(std::uint32_t) > input.size()) {
        return;
    }
    const std::size_t old = Load(input, at);
    const std::size_t rest = input.size() - record;
    const std::vector<std::size_t> numbers = {
        0,    1,        39,       40,       41,        old - 1,   old + 1,         size - kHeadSize, size + 1,
        rest, rest - 1, rest + 1, rest + 9, 1U << 20U, 1U << 30U, (1U << 30U) + 1, 0x7fffffff,       0xffffffff};
    Store(input, at, static_cast<std::uint32_t>(random.Choose(numbers)));
}

void FlipBit(char& byte, std::size_t bit)
{
    byte = static_cast<char>(static_cast<unsigned char>(byte) ^ (1U << bit));
}

void Mutate(std::string& input, Random& random)
{
    const std::vector<std::size_t> records = Records(input);
    const std::size_t record = records.empty() ? input.size() : random.Choose(records);
    const std::size_t size = records.empty() ? 0 : std::min(Load(input, record + 4), input.size() - record);
    switch (random.Below(9)) {
        case 0:
            FlipBit(input[random.Below(input.size())], random.Below(8));
            break;
        case 1:
            Store(input, kCount,
                  random.Choose(std::vector<std::uint64_t>{0, 1, records.size(), records.size() + 1,
                                                           std::uint64_t{1} << 63U, UINT64_MAX}));
            break;
        case 2:
            input.insert(records.empty() ? input.size() : random.Choose(records), input.substr(record, size));
            break;
        case 3:
            input.erase(record, size);
            break;
        case 4:
            input.resize(random.Below(input.size()) + 1);
            break;
        case 5:
            input.insert(record, fuzz::RecordOf(NewChunk(random)));
            break;
        case 6:
            input.append(random.Below(100), '\0');
            break;
        case 7:
            Store(input, record + 8, static_cast<std::uint64_t>(random.Below(20)));
            break;
        default:
            ChangeNumber(input, std::min(record, input.size()), random);
    }
}

}  // namespace

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned seed)
{
    Random random(seed);
    if (random.OneIn(4)) {
        size = LLVMFuzzerMutate(data, size, maxSize);
    }
    std::string input(data, data + size);
    input.resize(std::max(input.size(), kRecords));
    for (std::size_t i = random.Below(3); i > 0; --i) {
        Mutate(input, random);
    }
    if (!random.OneIn(8)) {
        Store(input, kVersion, std::uint64_t{2});
        for (const std::size_t record : Records(input)) {
            Repair(input, record);
        }
    }
    size = std::min(input.size(), maxSize);
    std::copy_n(input.begin(), size, data);
    return size;
}
