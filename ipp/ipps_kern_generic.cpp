// Generic variant of the hot kernels: the baseline instruction set, and the
// reference for the others.
#include "ipps_kernels.h"

// glibc's vector logarithms for the baseline (libmvec, SSE2 registers):
// 4 floats or 2 doubles.
typedef float VecF __attribute__((vector_size(16)));
typedef double VecD __attribute__((vector_size(16)));
extern "C" VecF _ZGVbN4v_logf(VecF);
extern "C" VecD _ZGVbN2v_log(VecD);
namespace ippk {
namespace generic {
static VecF vlogf(VecF v) { return _ZGVbN4v_logf(v); }
static VecD vlog(VecD v) { return _ZGVbN2v_log(v); }
#define VARIANT_NAME "generic"
#include "ipps_kernels_body.h"
#undef VARIANT_NAME
}  // namespace generic
const KernelTable kGeneric = generic::table;
}  // namespace ippk
