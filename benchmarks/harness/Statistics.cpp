#include "harness/Statistics.h"

#include <algorithm>
#include <cmath>

namespace bench {

Spread SpreadOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const auto quantile = [&](double part) {  // interpolated between the two nearest values
        const double place = part * static_cast<double>(values.size() - 1);
        const auto before = static_cast<std::size_t>(place);
        const std::size_t after = std::min(before + 1, values.size() - 1);
        return values[before] + (place - std::floor(place)) * (values[after] - values[before]);
    };
    return {quantile(0.5), quantile(0.25), quantile(0.75)};
}

const char* Verdict(const Spread& figure, double goal)
{
    if (figure.high <= goal) {
        return "holds";
    }
    return figure.low > goal ? "missed" : "near";
}

}  // namespace bench
