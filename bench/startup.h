// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

namespace bench {

/// Milliseconds of starts of the daemon, taken in turns.
struct Starts {
    std::vector<double> registered; ///< from exec to the last endpoint registered with BlueZ
    std::vector<double> version;    ///< `kado-bt --version`, from exec to its end: what loading alone takes
};
Starts measureStarts(int times);

} // namespace bench
