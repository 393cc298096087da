#include "harness/Inputs.h"

namespace bench {

std::string SizeText(std::uint64_t bytes)
{
    if (bytes >= 1U << 20U) {
        return std::to_string(bytes >> 20U) + " MiB";
    }
    return bytes >= 1024 ? std::to_string(bytes >> 10U) + " KiB" : std::to_string(bytes) + " B";
}

}  // namespace bench
