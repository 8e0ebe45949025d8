// SPDX-License-Identifier: MIT
#include "bench/table.h"

#include <cstdio>

namespace table {

namespace {

constexpr double Percent = 100;

/// Formats a figure, for example "12.34 ±  5 %".
std::string text(const bench::Figure &figure, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f ±%3.0f %%", decimals, figure.median, figure.noise * Percent);
    return text;
}

std::string text(const bench::Figure &figure)
{
    constexpr double WholeFrom = 100;
    return text(figure, figure.median < WholeFrom ? 2 : 0);
}

std::string text(double count)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2f        ", count);
    return text;
}

void print(const std::string &what, const std::string &daemon, const std::string &bare, const std::string &ratio)
{
    // "±" has two bytes and one column.
    const auto width = [](const std::string &cell) { return cell.find("±") == std::string::npos ? 17 : 18; };
    std::printf("%-50s%*s%*s%*s\n", what.c_str(), width(daemon), daemon.c_str(), width(bare), bare.c_str(),
                width(ratio), ratio.c_str());
    std::fflush(stdout);
}

} // namespace

void header()
{
    print("medians, ± half the interquartile range", "kado-bt", "bare", "ratio");
}

void section(const std::string &title)
{
    std::printf("%s\n", title.c_str());
    std::fflush(stdout);
}

void row(const std::string &what, const bench::Figure &daemon, const bench::Figure &bare, const bench::Figure &ratio)
{
    print("  " + what, text(daemon), text(bare), text(ratio, 3));
}

void row(const std::string &what, const bench::Figure &daemon)
{
    print("  " + what, text(daemon), {}, {});
}

void counts(const std::string &what, double daemon, double bare)
{
    print("  " + what, text(daemon), text(bare), {});
}

void count(const std::string &what, double daemon)
{
    print("  " + what, text(daemon), {}, {});
}

} // namespace table
