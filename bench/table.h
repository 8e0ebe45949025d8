// SPDX-License-Identifier: MIT
#pragma once

#include "bench/figures.h"

#include <string>

/// The table that both programs of the benchmark print. Columns: name, the daemon's figure, the bare loop's figure,
/// their ratio, each with its noise. Prints each row at once.
namespace table {

void header();
void section(const std::string &title);
void row(const std::string &what, const bench::Figure &daemon, const bench::Figure &bare, const bench::Figure &ratio);
/// Prints a row without a comparison.
void row(const std::string &what, const bench::Figure &daemon);
/// Prints exact counts, without noise and ratio.
void counts(const std::string &what, double daemon, double bare);
void count(const std::string &what, double daemon);

} // namespace table
