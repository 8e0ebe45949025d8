// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <cstdio>
#include <cstdlib>

namespace bench {

/// Prints the reason and ends the program, because a failed measurement has no result.
[[noreturn]] inline void fail(const QString &what)
{
    std::fflush(stdout);
    std::fprintf(stderr, "kado-bench: %s\n", qPrintable(what));
    std::_Exit(EXIT_FAILURE); // child processes end with the sandbox
}

} // namespace bench
