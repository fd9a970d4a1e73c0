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
// glibc's vector logarithms for AVX2 (libmvec), 8 floats or 4 doubles in
// one ymm register.
typedef float VecF __attribute__((vector_size(32)));
typedef double VecD __attribute__((vector_size(32)));
extern "C" VecF _ZGVdN8v_logf(VecF);
extern "C" VecD _ZGVdN4v_log(VecD);
namespace ippk {
namespace avx2 {
static VecF vlogf(VecF v) { return _ZGVdN8v_logf(v); }
static VecD vlog(VecD v) { return _ZGVdN4v_log(v); }
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
