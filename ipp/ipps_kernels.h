// Table of the hot element-wise kernels, one instance per instruction-set
// variant. The variants are built from one source (ipps_kernels_body.h)
// compiled for different targets, so the generic build is the reference
// that tests hold the others against.
#pragma once

#include "ippcore.h"

namespace ippk {

// Rows of a FIR run: y[i] = sum over j < L of hr[j] * x[i + j * step],
// i < n. hr holds the taps reversed; a step of 2 runs a filter whose every
// other tap is zero on its non-zero taps alone. The complex form reads x as interleaved
// floats and xs as the same samples turned by +90 degrees (-im, re), so that
// the complex product is two real multiply-adds per float.
struct KernelTable {
    const char* name;
    void (*cvt16s32f)(const Ipp16s* src, Ipp32f* dst, int len, float scale);
    void (*add32f)(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int len);
    void (*mul32f)(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int len);
    void (*mulc32f)(const Ipp32f* a, float c, Ipp32f* d, int len);
    void (*add32fc)(const Ipp32fc* a, const Ipp32fc* b, Ipp32fc* d, int len);
    void (*mul32fc)(const Ipp32fc* a, const Ipp32fc* b, Ipp32fc* d, int len);
    void (*power32fc)(const Ipp32fc* a, Ipp32f* d, int len);
    void (*add64f)(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int len);
    void (*mul64f)(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int len);
    void (*mulc64f)(const Ipp64f* a, double c, Ipp64f* d, int len);
    void (*power64fc)(const Ipp64fc* a, Ipp64f* d, int len);
    void (*cvt16s64f)(const Ipp16s* src, Ipp64f* dst, int len, double scale);
    // d = b < a ? b : a (min) and b > a ? b : a (max), element-wise.
    void (*min32f)(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int len);
    void (*max32f)(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int len);
    void (*min64f)(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int len);
    void (*max64f)(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int len);
    void (*mag32fc)(const Ipp32fc* a, Ipp32f* d, int len);
    void (*mag64fc)(const Ipp64fc* a, Ipp64f* d, int len);
    void (*ln32f)(const Ipp32f* a, Ipp32f* d, int len);
    void (*ln64f)(const Ipp64f* a, Ipp64f* d, int len);
    void (*fir32f)(const Ipp32f* hr, int L, int step, const Ipp32f* x, Ipp32f* y, int n);
    void (*fir64f)(const Ipp64f* hr, int L, int step, const Ipp64f* x, Ipp64f* y, int n);
    void (*fir32fc)(const Ipp32fc* hr, int L, const float* x, const float* xs, float* y, int n);
    // The video filter over a transform's power spectrum in one pass:
    // f = b1 * f + a0 * |x|^2, then mn = min(mn, f) and mx = max(mx, f)
    // by the min64f/max64f rule, unless mn is null.
    // z[i] = (a[i] w[i], b[i] w[i]): two windowed real frames as one
    // complex frame.
    void (*winpair64f)(const Ipp64f* a, const Ipp64f* b, const Ipp64f* w, Ipp64fc* z, int len);
    // The two real frames' bins k = first + j, j < len, from the complex
    // transform z of n points: x = (z[k] + conj z[n - k]) / 2 and
    // y = (z[k] - conj z[n - k]) / 2i, indices modulo n; 0 <= first,
    // first + len - 1 <= n / 2.
    void (*splitpair64fc)(const Ipp64fc* z, int n, int first, int len, Ipp64fc* x, Ipp64fc* y);
    void (*powerfilt64fc)(const Ipp64fc* x, double a0, double b1, Ipp64f* f, Ipp64f* mn, Ipp64f* mx, int len);
};

extern const KernelTable kGeneric;
extern const KernelTable kAVX2;

// The table chosen by ippInit (generic until then).
const KernelTable& kernels();

}  // namespace ippk
