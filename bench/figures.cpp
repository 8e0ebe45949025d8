// SPDX-License-Identifier: MIT
#include "bench/figures.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace bench {

double quantile(std::vector<double> values, double share)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const double position = share * static_cast<double>(values.size() - 1);
    const auto below = static_cast<std::size_t>(position);
    const std::size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (position - std::floor(position)) * (values[above] - values[below]);
}

Figure figureOf(const std::vector<double> &values)
{
    const double median = quantile(values, 0.5);
    const double range = quantile(values, 0.75) - quantile(values, 0.25);
    return {median, median == 0 ? 0 : range / 2 / median};
}

Figure pairedRatio(const std::vector<double> &values, const std::vector<double> &others)
{
    std::vector<double> ratios;
    for (std::size_t i = 0; i < std::min(values.size(), others.size()); ++i)
        ratios.push_back(values[i] / others[i]);
    return figureOf(ratios);
}

Figure ratio(const Figure &value, const Figure &other)
{
    return {value.median / other.median, std::hypot(value.noise, other.noise)};
}

} // namespace bench
