/* What a processor has beyond the baseline of its architecture. */
#ifndef MIX_MISC_PROCESSOR_H
#define MIX_MISC_PROCESSOR_H

#if defined(__x86_64__)

#include <cpuid.h>

#include <cstdint>

namespace mix
{

/* Wide registers count only when the system saves them. */
struct processor {
    bool ssse3 = false;
    bool popcnt = false;
    bool avx2 = false;
    bool avx512_popcnt = false;
};

/* The register files that the system saves, as a processor with XSAVE says. */
inline uint32_t saved_registers()
{
    uint32_t low;
    uint32_t high;
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return low;
}

/* Asks anew at each call, which takes long: callers keep what they make of it. */
inline processor this_processor()
{
    constexpr uint32_t avx_registers = 0x06;
    constexpr uint32_t avx512_registers = 0xE6;
    unsigned a;
    unsigned b;
    unsigned c;
    unsigned d;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0)
        return {};
    processor has{.ssse3 = (c & bit_SSSE3) != 0, .popcnt = (c & bit_POPCNT) != 0};
    const uint32_t saved = (c & bit_OSXSAVE) != 0 ? saved_registers() : 0;
    if (__get_cpuid_count(7, 0, &a, &b, &c, &d) == 0)
        return has;
    has.avx2 = (saved & avx_registers) == avx_registers && (b & bit_AVX2) != 0;
    has.avx512_popcnt = (saved & avx512_registers) == avx512_registers && (b & bit_AVX512F) != 0 &&
                        (c & bit_AVX512VPOPCNTDQ) != 0;
    return has;
}

} // namespace mix

#endif

#endif
