// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/multiply.h"

namespace sbc {

// For N subbands the matrix has 2N rows; row k, column i is cos((i + 1/2)(k + N/2) pi / N) (A2DP 1.3.2, 12.6). Its
// entries here are floor(2^13 cos(...)), and of each row's sum the upper 17 bits are kept.
//
// With eight subbands the cosines repeat: a row of even k reads the same from both ends, a row of odd k changes its
// sign. Row 8 - k is row k negated, rows 13 to 15 are rows 11 to 9, row 4 is zero, every entry of row 12 is -1. The
// entries are rounded down, and floor(-x) = -1 - floor(x): each negated entry costs its sample once more. Those are the
// sums of samples that are subtracted. Row k of four subbands is the first half of row 2k of eight.

namespace {

/// Rows of even k from sums of samples: e[j] = s[j] + s[7 - j] of eight subbands, e = s of four; `sum` of all samples.
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

/// Rows of odd k from differences of samples, d[j] = s[j] - s[7 - j]; `sum` of all samples, `upper` of the upper half.
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
