#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace bench {

std::string SizeText(std::uint64_t bytes);  // "64 B", "1 KiB", "1 MiB"

// In random order, the same in every run.
template <typename Value>
std::vector<Value> Shuffled(std::vector<Value> values)
{
    std::shuffle(values.begin(), values.end(), std::mt19937_64(1));  // NOLINT(cert-msc51-cpp): repeatable
    return values;
}

}  // namespace bench
