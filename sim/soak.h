#pragma once

#include <QtGlobal>

namespace sim {

/// Runs a board at random for `minutes` (longer where that is less than 800 steps), the same story for the same seed,
/// as fast as the daemon goes: streams, clients and phones that come and go, and faults in between; everything that is
/// heard and told is compared. Ends with a table. Stops at the first fault. Returns the exit status of the program: 0
/// when everything was as it should be. Needs a QCoreApplication.
int runSoak(double minutes, quint32 seed);

} // namespace sim
