// SPDX-License-Identifier: MIT
// Compiles synthesis.cpp again, with -mfpu=neon, for programs that run on 32-bit ARM with and without NEON.
#define SBC_SYNTHESIZE synthesizeNeon
#include "sbc/synthesis.cpp"
