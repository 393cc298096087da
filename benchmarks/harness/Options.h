#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

struct Options {
    bool quick = false;          // small and short: shows that everything works
    bool processorTime = false;  // of this thread, instead of elapsed time
    std::uint64_t bytes = 256ULL << 20U;
    double seconds = 8;             // for the rounds of one workload
    std::string folder;             // of the files; the program's own, removed at the end
    std::string results;            // the file that SaveResult appends to; empty: none
    std::vector<std::string> only;  // workloads by id; empty: all
};

// Throws std::exception for an argument that is unknown or lacks its value.
Options ParseOptions(const std::vector<std::string>& arguments);

}  // namespace bench
