// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

namespace bench {

/// Start-up times of the daemon, in milliseconds.
struct Starts {
    std::vector<double> registered; ///< from exec to the registration of the last endpoint with BlueZ
    std::vector<double> version;    ///< from exec of `kado-bt --version` to its end, the time to load the program
};
/// Measures both times alternately.
Starts measureStarts(int times);

} // namespace bench
