#pragma once

#include <cstdint>
#include <string>

namespace Corvane::FileTool {

/// `1 record`, `2 records`.
inline std::string Number(std::uint64_t number, const char* one, const char* many)
{
    return std::to_string(number) + " " + (number == 1 ? one : many);
}

inline std::string Records(std::uint64_t number)
{
    return Number(number, "record", "records");
}

inline std::string Bytes(std::uint64_t number)
{
    return Number(number, "byte", "bytes");
}

}  // namespace Corvane::FileTool
