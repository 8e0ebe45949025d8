// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/multiply.h"

namespace sbc {

// For N subbands the matrix has 2N rows. The entry in row k and column i is cos((i + 1/2)(k + N/2) pi / N) (A2DP 1.3.2,
// 12.6). The entries here are floor(2^13 cos(...)). Of each row's sum, the upper 17 bits are used.
//
// With eight subbands the cosines repeat. A row of even k is symmetric, and a row of odd k is antisymmetric. Row 8 - k
// is row k negated. Rows 13 to 15 equal rows 11 to 9. Row 4 is zero, and every entry of row 12 is -1. Entries are
// rounded down, and floor(-x) = -1 - floor(x), so a negated entry subtracts its sample once more. The code subtracts
// the sum of these samples from the row. Row k of four subbands is the first half of row 2k of eight.

namespace {

/// The rows of even k, from the samples s. For eight subbands e[j] = s[j] + s[7 - j], for four subbands e[j] = s[j].
/// `sum` is the sum of all samples.
struct EvenRows {
    EvenRows(const Vector (&e)[4], Vector sum)
    {
        const Vector inner = e[1] + e[2];
        const Pair outerAndInner(e[0] - e[3], e[1] - e[2]);
        row0 = sumOfProducts<5792, -1>(Pair(e[0] + e[3] - inner, inner));
        row2 = sumOfProducts<3134, -7569>(outerAndInner) - e[2] - e[3];
        row6 = -row2 - sum;
        row8 = -row0 - sum;
        row10 = sumOfProducts<-7569, -3135>(outerAndInner) - e[2] - e[3];
        row12 = -(sum << 13);
    }
    Vector row0;
    Vector row2;
    Vector row6;
    Vector row8;
    Vector row10; ///< and row 14
    Vector row12;
};

/// The rows of odd k for eight subbands, with d[j] = s[j] - s[7 - j]. `sum` is the sum of all samples, and `upper` is
/// the sum of s[4] to s[7].
struct OddRows {
    OddRows(const Vector (&d)[4], Vector sum, Vector upper)
    {
        const Pair low(d[0], d[1]);
        const Pair high(d[2], d[3]);
        row1 = sumOfProducts<4551, -8035>(low) + sumOfProducts<1598, 6811>(high) - upper;
        row3 = sumOfProducts<1598, -4552>(low) + sumOfProducts<6811, -8035>(high) - upper;
        row5 = -row3 - sum;
        row7 = -row1 - sum;
        row9 = sumOfProducts<-6812, 1598>(low) + sumOfProducts<8034, 4551>(high) - upper;
        row11 = sumOfProducts<-8035, -6812>(low) + sumOfProducts<-4552, -1599>(high) - upper;
    }
    Vector row1;
    Vector row3;
    Vector row5;
    Vector row7;
    Vector row9;  ///< and row 15
    Vector row11; ///< and row 13
};

} // namespace

} // namespace sbc
