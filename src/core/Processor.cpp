#include "core/Processor.h"

#if QH_HAVE_AVX2_PATHS
#include <cpuid.h>
#endif

namespace qh::processor {

// Asked with cpuid and xgetbv on first use, not at start: the compiler's
// __builtin_cpu_supports adds a probe of every feature to each process start
// (each probe instruction traps on a virtual machine), and most one-file
// commands take no fast path that needs to know.
bool hasAvx2() {
#if QH_HAVE_AVX2_PATHS
    static const bool have = [] {
        unsigned a = 0, b = 0, c = 0, d = 0;
        if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
        // AVX, and the system saving the AVX state (OSXSAVE and XCR0 bits 1 and 2).
        if (!(c & bit_AVX) || !(c & bit_OSXSAVE)) return false;
        unsigned xcr0Low = 0, xcr0High = 0;
        __asm__("xgetbv" : "=a"(xcr0Low), "=d"(xcr0High) : "c"(0));
        if ((xcr0Low & 0x6) != 0x6) return false;
        if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return false;
        return (b & bit_AVX2) != 0;
    }();
    return have;
#else
    return false;
#endif
}

}  // namespace qh::processor
