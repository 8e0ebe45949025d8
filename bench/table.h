// SPDX-License-Identifier: MIT
#pragma once

#include "bench/figures.h"

#include <string>

/// The table that both programs of the benchmark print: what, the daemon's figure, the bare loop's, their ratio, each
/// with its noise. Rows are printed as they come.
namespace table {

void header();
void section(const std::string &title);
void row(const std::string &what, const bench::Figure &daemon, const bench::Figure &bare, const bench::Figure &ratio);
/// Without anything to compare with.
void row(const std::string &what, const bench::Figure &daemon);
/// Counts, which are exact; the ratio is left out.
void counts(const std::string &what, double daemon, double bare);
void count(const std::string &what, double daemon);

} // namespace table
