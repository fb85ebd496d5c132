#pragma once
// What the processor offers beyond the baseline the code is compiled for,
// asked of it the first time a fast path wants to know.

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define QH_HAVE_AVX2_PATHS 1
#endif

namespace qh::processor {

// AVX2 (and so SSSE3) usable: the processor has it and the system saves its state.
bool hasAvx2();

}  // namespace qh::processor
