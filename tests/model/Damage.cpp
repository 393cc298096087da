#include "model/Damage.h"

#include <xxhash.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace model {

namespace {

constexpr std::size_t kHeaderSize = 16;
constexpr std::size_t kHeadSize = 40;  // of a record

template <typename Word>
Word Load(const std::string& bytes, std::size_t position)
{
    Word word = 0;
    if (position < bytes.size()) {
        std::memcpy(&word, bytes.data() + position, std::min(sizeof word, bytes.size() - position));
    }
    return word;
}

template <typename Word>
void Store(std::string& bytes, std::size_t position, Word word)
{
    if (position < bytes.size()) {
        std::memcpy(bytes.data() + position, &word, std::min(sizeof word, bytes.size() - position));
    }
}

// Where records begin, and where the last one ends.
std::vector<std::size_t> Bounds(const std::string& bytes)
{
    std::vector<std::size_t> bounds = {kHeaderSize};
    while (bytes.compare(std::min(bounds.back(), bytes.size()), 4, "CVC1") == 0) {
        bounds.push_back(bounds.back() + std::max<std::size_t>(Load<std::uint32_t>(bytes, bounds.back() + 4), 1));
    }
    return bounds;
}

void StoreChecksum(std::string& bytes, std::size_t position, std::size_t from, std::size_t size)
{
    if (from <= bytes.size() && size <= bytes.size() - from) {
        Store(bytes, position, std::uint64_t{XXH3_64bits(bytes.data() + from, size)});
    }
}

// A number of head or directory, or a byte of a name, becomes another, and the checksums of both are right again.
void Forge(std::string& bytes, std::size_t record, Choices& choices)
{
    constexpr std::array<std::size_t, 6> kNumbers = {4, 8, 16, 20, kHeadSize, kHeadSize + 4};
    const std::size_t directorySize = Load<std::uint32_t>(bytes, record + 16);
    if (choices.OneIn(2)) {
        const std::size_t position = record + kHeadSize + choices.Below(directorySize % 256 + 1);
        Store(bytes, position, choices.Of(std::array{'\0', '\1', 'a', 'p', 'z'}));
    } else {
        const std::size_t position = record + choices.Of(kNumbers);
        const auto old = Load<std::uint32_t>(bytes, position);
        const std::array<std::uint32_t, 12> numbers = {old + 1, old - 1, old + 1,       old - 1,    0,         39, 40,
                                                       41,      900'000, 1'073'741'825, 0x7fffffff, 0xffffffff};
        Store(bytes, position, choices.Of(numbers));
    }
    StoreChecksum(bytes, record + 24, record + kHeadSize, Load<std::uint32_t>(bytes, record + 16));
    StoreChecksum(bytes, record + 32, record, 32);
}

void Repeat(std::string& bytes, std::size_t from, std::size_t to, std::size_t end)
{
    end = std::min(end, bytes.size());
    from = std::min(from, end);
    bytes.insert(end, bytes.substr(from, to - from));
    Store(bytes, 8, Load<std::uint64_t>(bytes, 8) + 1);
}

void Flip(std::string& bytes, Choices& choices)
{
    char& byte = bytes[choices.Below(choices.OneIn(3) ? std::min(bytes.size(), kHeaderSize) : bytes.size())];
    byte = static_cast<char>(static_cast<unsigned char>(byte) ^ 1U << choices.Below(8));
}

}  // namespace

std::optional<std::string> Damaged(std::string bytes, const std::string& old, Choices& choices, std::string& what)
{
    constexpr std::array<std::uint64_t, 6> kVersions = {2, 2, 0, 3, 258, std::uint64_t{1} << 63U};
    const std::vector<std::size_t> bounds = Bounds(bytes);
    const std::size_t i = choices.Below(bounds.size());
    const std::size_t next = bounds[std::min(i + 1, bounds.size() - 1)];
    const std::uint64_t count = bounds.size() - 1;
    const std::array<std::uint64_t, 6> counts = {count, count + 1, count - 1, 0, std::uint64_t{1} << 32U, UINT64_MAX};
    const std::size_t cut = choices.Below(bytes.size() + 1);
    switch (choices.Below(bytes.empty() ? 4 : 13)) {
        case 0:
            what = "remove";
            return std::nullopt;
        case 1:
            what = "bring back the old";
            return old;
        case 2:
            what = "extend";
            return bytes + std::string(choices.Below(300), choices.Of(std::array{'\0', '\1', '\xff'}));
        case 3:
            what = "tear over the old";
            return bytes.substr(0, cut) + old.substr(std::min(cut, old.size()));
        case 4:
            what = "cut";
            bytes.resize(cut);
            return bytes;
        case 5:
            what = "change the version of";
            Store(bytes, 0, choices.Of(kVersions));
            return bytes;
        case 6:
            what = "change the count of";
            Store(bytes, 8, choices.Of(counts));
            return bytes;
        case 7:
            what = "forge a record of";
            Forge(bytes, bounds[i], choices);
            return bytes;
        case 8:
            what = "repeat a record of";
            Repeat(bytes, bounds[i], next, bounds.back());
            return bytes;
        case 9:
            what = "zero a record of";
            bytes.replace(std::min(bounds[i], bytes.size()), next - bounds[i], next - bounds[i], '\0');
            return bytes;
        case 10:
            what = "cut the zeros at the end of";
            bytes.resize(bytes.find_last_not_of('\0') + 1);
            return bytes;
        default:
            what = "flip a bit of";
            Flip(bytes, choices);
            return bytes;
    }
}

}  // namespace model
