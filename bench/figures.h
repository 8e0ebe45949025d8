// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

namespace bench {

/// What was measured, and how far it spread.
struct Figure {
    double median = 0;
    double noise = 0; ///< half the interquartile range over the median
};

/// The value below which the part `share` (0 to 1) of the values lies; 0 of none.
double quantile(std::vector<double> values, double share);
Figure figureOf(const std::vector<double> &values);
/// Of the ratios taken round by round; as many rounds as the shorter has.
Figure pairedRatio(const std::vector<double> &values, const std::vector<double> &others);
/// Of rounds that were not taken in pairs; the noise is that of both together.
Figure ratio(const Figure &value, const Figure &other);

} // namespace bench
