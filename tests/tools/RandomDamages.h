#pragma once

#include <algorithm>
#include <random>
#include <string>

#include "model/Damage.h"
#include "support/DamagedFiles.h"

namespace support {

// Files with two damages each, the same in every run. A tear may bring back the records of `old`.
inline Files RandomDamages(const std::string& file, const std::string& old)
{
    std::mt19937_64 random(14);  // NOLINT(cert-msc51-cpp)
    Files files;
    for (int i = 0; i < 500; ++i) {
        std::string bytes(64, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        model::Choices choices(bytes);
        std::string what;
        const std::string once = model::Damaged(file, old, choices, what).value_or("");
        files.push_back(model::Damaged(once, file, choices, what).value_or(""));
    }
    return files;
}

}  // namespace support
