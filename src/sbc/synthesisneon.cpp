// SPDX-License-Identifier: MIT
// synthesis.cpp once more, compiled with -mfpu=neon for programs that are to run on 32-bit ARM with and without it.
#define SBC_SYNTHESIZE synthesizeNeon
#include "sbc/synthesis.cpp"
