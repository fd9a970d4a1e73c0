// AVX2 + FMA variant of the hot kernels: the same source as the generic one,
// compiled for the wider target. ippInit picks it only where the processor
// has both extensions.
#include "ipps_kernels.h"

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2,fma"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2,fma")
#endif
namespace ippk {
namespace avx2 {
#define VARIANT_NAME "avx2"
#include "ipps_kernels_body.h"
#undef VARIANT_NAME
}  // namespace avx2
const KernelTable kAVX2 = avx2::table;
}  // namespace ippk
#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
