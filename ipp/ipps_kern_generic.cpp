// Generic variant of the hot kernels: the baseline instruction set, and the
// reference for the others.
#include "ipps_kernels.h"

namespace ippk {
namespace generic {
#define VARIANT_NAME "generic"
#include "ipps_kernels_body.h"
#undef VARIANT_NAME
}  // namespace generic
const KernelTable kGeneric = generic::table;
}  // namespace ippk
