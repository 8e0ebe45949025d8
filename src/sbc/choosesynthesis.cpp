// SPDX-License-Identifier: MIT
#include "sbc/synthesis.h"

// A program for all 32-bit ARM processors must check for NEON at run time, because some of them lack it.
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
