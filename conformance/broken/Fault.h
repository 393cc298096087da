#pragma once

#include <cstdlib>
#include <string_view>

// A platform that keeps every rule except the one that the environment names.
namespace broken {

inline bool Has(std::string_view fault)
{
    const char* const chosen = std::getenv("CORVANE_FAULT");  // NOLINT(concurrency-mt-unsafe): nobody sets it
    return chosen != nullptr && chosen == fault;
}

}  // namespace broken
