#pragma once

#include <vector>

namespace bench {

// Median and quartiles.
struct Spread {
    double median = 0;
    double low = 0;
    double high = 0;
};
Spread SpreadOf(std::vector<double> values);

// "holds" if three quarters of the rounds are within the goal, "missed" if three quarters exceed it, else "near".
const char* Verdict(const Spread& figure, double goal);

}  // namespace bench
