// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

namespace bench {

/// A measured value and its spread.
struct Figure {
    double median = 0;
    double noise = 0; ///< half the interquartile range, divided by the median
};

/// Returns the value below which the fraction `share` (0 to 1) of the values lies, or 0 without values.
double quantile(std::vector<double> values, double share);
Figure figureOf(const std::vector<double> &values);
/// Returns the figure of the ratios of each round. Ignores excess rounds of the longer list.
Figure pairedRatio(const std::vector<double> &values, const std::vector<double> &others);
/// Returns the ratio of two figures whose rounds were not paired. Combines the noise of both.
Figure ratio(const Figure &value, const Figure &other);

} // namespace bench
