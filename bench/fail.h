// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <cstdio>
#include <cstdlib>

namespace bench {

/// Ends the program: a measurement that went wrong is none.
[[noreturn]] inline void fail(const QString &what)
{
    std::fflush(stdout);
    std::fprintf(stderr, "kado-bench: %s\n", qPrintable(what));
    std::_Exit(EXIT_FAILURE); // the processes that are under way end with the sandbox
}

} // namespace bench
