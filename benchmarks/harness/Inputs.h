#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace bench {

// "64 B", "1 KiB", "1 MiB"
inline std::string SizeText(std::uint64_t bytes)
{
    if (bytes >= 1U << 20U) {
        return std::to_string(bytes >> 20U) + " MiB";
    }
    return bytes >= 1024 ? std::to_string(bytes >> 10U) + " KiB" : std::to_string(bytes) + " B";
}

// In random order, the same in every run.
template <typename Value>
std::vector<Value> Shuffled(std::vector<Value> values)
{
    std::shuffle(values.begin(), values.end(), std::mt19937_64(1));  // NOLINT(cert-msc51-cpp): repeatable
    return values;
}

}  // namespace bench
