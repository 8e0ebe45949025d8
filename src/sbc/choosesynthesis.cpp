// SPDX-License-Identifier: MIT
#include "sbc/synthesis.h"

// 32-bit ARM processors may have NEON or not, and programs built for all of them must not count on it.
#if defined(SBC_NEON_VARIANT)
#include <sys/auxv.h>

namespace sbc {

Synthesize synthesizeNeon; // synthesisneon.cpp

Synthesize *chooseSynthesis()
{
    constexpr unsigned long HasNeon = 1UL << 12; // HWCAP_NEON in asm/hwcap.h of 32-bit ARM
    return (getauxval(AT_HWCAP) & HasNeon) != 0 ? synthesizeNeon : synthesize;
}

} // namespace sbc
#else
sbc::Synthesize *sbc::chooseSynthesis()
{
    return synthesize;
}
#endif
