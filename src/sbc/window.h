// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace sbc {

// The window of the synthesis filter, floor(2^15 D). For N subbands, D is -N times the coefficients of the prototype
// filter (A2DP 1.3.2, 12.8). Row i has D[i], D[i + 2N], ... D[i + 8N]. The values D[i + N], D[i + 3N], ... D[i + 9N]
// are row N - i in reverse order, because D[j] = D[10N - j] unless j is a multiple of 2N.

constexpr int Taps = 5;

constexpr std::int32_t Window4[][Taps] = {
    {0, -1431, -17773, 17772, 1430},   //
    {-71, -2679, -25558, 10177, 401},  //
    {-196, -3785, -32328, 3777, -245}, //
    {-359, -4220, -36940, -804, -511}, //
    {-503, -3392, -38577, -3392, -503},
};

constexpr std::int32_t Window8[][Taps] = {
    {0, -1484, -17826, 17825, 1483},    //
    {-42, -2105, -21754, 13942, 916},   //
    {-90, -2742, -25579, 10243, 432},   //
    {-146, -3342, -29150, 6844, 46},    //
    {-216, -3842, -32314, 3837, -237},  //
    {-299, -4170, -34935, 1288, -424},  //
    {-388, -4253, -36898, -767, -523},  //
    {-468, -4016, -38114, -2322, -552}, //
    {-528, -3392, -38524, -3392, -528},
};

template <int Subbands>
constexpr std::int32_t windowAt(int row, int tap)
{
    return Subbands == 4 ? Window4[row][tap] : Window8[row][tap];
}

} // namespace sbc
