#pragma once

#include <string>
#include <vector>

#include "harness/Cost.h"
#include "harness/Options.h"
#include "harness/Workload.h"

namespace bench {

// One contender after all rounds.
struct Result {
    std::string name;
    std::vector<double> seconds;  // of each round
    Cost cost;
};

// Runs the contenders in turn, in rounds, until the time is over. Throws if they differ in their result or their file.
std::vector<Result> RunRounds(const Workload& workload, const Options& options);

inline constexpr std::size_t kMostRounds = 25;

}  // namespace bench
