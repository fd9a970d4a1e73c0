// Fill, copy, conversion and element-wise arithmetic. The hot kernels go
// through the variant table; the rest are plain loops that the compiler
// vectorises at the baseline target.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "ipps.h"
#include "ipps_kernels.h"

namespace {

template <typename... P>
inline bool any_null(const P*... p) {
    return ((p == nullptr) || ...);
}

#define IPP_CHECK(len, ...)                              \
    do {                                                 \
        if (any_null(__VA_ARGS__)) return ippStsNullPtrErr; \
        if ((len) <= 0) return ippStsSizeErr;            \
    } while (0)

template <typename T>
IppStatus zero(T* dst, int len) {
    IPP_CHECK(len, dst);
    std::memset(static_cast<void*>(dst), 0, size_t(len) * sizeof(T));
    return ippStsNoErr;
}

template <typename T>
IppStatus copy(const T* src, T* dst, int len) {
    IPP_CHECK(len, src, dst);
    std::memcpy(static_cast<void*>(dst), static_cast<const void*>(src), size_t(len) * sizeof(T));
    return ippStsNoErr;
}

template <typename T>
IppStatus flip(const T* src, T* dst, int len) {
    IPP_CHECK(len, src, dst);
    if (src == dst) {
        std::reverse(dst, dst + len);
    } else {
        for (int i = 0; i < len; ++i) dst[i] = src[len - 1 - i];
    }
    return ippStsNoErr;
}

// 2^-scaleFactor, exact for any scale a float can hold.
inline double scale_of(int scaleFactor) { return std::ldexp(1.0, -scaleFactor); }

template <typename T, typename Op>
IppStatus binary(const T* a, const T* b, T* d, int len, Op op) {
    IPP_CHECK(len, a, b, d);
    for (int i = 0; i < len; ++i) d[i] = op(a[i], b[i]);
    return ippStsNoErr;
}

template <typename S, typename D, typename Op>
IppStatus unary(const S* s, D* d, int len, Op op) {
    IPP_CHECK(len, s, d);
    for (int i = 0; i < len; ++i) d[i] = op(s[i]);
    return ippStsNoErr;
}

}  // namespace

IppStatus ippsZero_32f(Ipp32f* dst, int len) { return zero(dst, len); }
IppStatus ippsZero_32fc(Ipp32fc* dst, int len) { return zero(dst, len); }
IppStatus ippsZero_32s(Ipp32s* dst, int len) { return zero(dst, len); }
IppStatus ippsZero_64f(Ipp64f* dst, int len) { return zero(dst, len); }

IppStatus ippsSet_32f(Ipp32f val, Ipp32f* dst, int len) {
    IPP_CHECK(len, dst);
    std::fill(dst, dst + len, val);
    return ippStsNoErr;
}

IppStatus ippsSet_8u(Ipp8u val, Ipp8u* dst, int len) {
    IPP_CHECK(len, dst);
    std::memset(dst, val, size_t(len));
    return ippStsNoErr;
}

IppStatus ippsCopy_8u(const Ipp8u* src, Ipp8u* dst, int len) { return copy(src, dst, len); }
IppStatus ippsCopy_16s(const Ipp16s* src, Ipp16s* dst, int len) { return copy(src, dst, len); }
IppStatus ippsCopy_32s(const Ipp32s* src, Ipp32s* dst, int len) { return copy(src, dst, len); }
IppStatus ippsCopy_32f(const Ipp32f* src, Ipp32f* dst, int len) { return copy(src, dst, len); }
IppStatus ippsCopy_32fc(const Ipp32fc* src, Ipp32fc* dst, int len) { return copy(src, dst, len); }
IppStatus ippsCopy_64f(const Ipp64f* src, Ipp64f* dst, int len) { return copy(src, dst, len); }

IppStatus ippsMove_32fc(const Ipp32fc* src, Ipp32fc* dst, int len) {
    IPP_CHECK(len, src, dst);
    std::memmove(static_cast<void*>(dst), static_cast<const void*>(src), size_t(len) * sizeof(Ipp32fc));
    return ippStsNoErr;
}

IppStatus ippsFlip_32f(const Ipp32f* src, Ipp32f* dst, int len) { return flip(src, dst, len); }
IppStatus ippsFlip_64f(const Ipp64f* src, Ipp64f* dst, int len) { return flip(src, dst, len); }
IppStatus ippsFlip_32f_I(Ipp32f* srcDst, int len) { return flip(srcDst, srcDst, len); }
IppStatus ippsFlip_64f_I(Ipp64f* srcDst, int len) { return flip(srcDst, srcDst, len); }

// ---- conversions ----------------------------------------------------------

IppStatus ippsConvert_16s32f_Sfs(const Ipp16s* src, Ipp32f* dst, int len, int scaleFactor) {
    IPP_CHECK(len, src, dst);
    ippk::kernels().cvt16s32f(src, dst, len, float(scale_of(scaleFactor)));
    return ippStsNoErr;
}

IppStatus ippsConvert_16s64f_Sfs(const Ipp16s* src, Ipp64f* dst, int len, int scaleFactor) {
    IPP_CHECK(len, src, dst);
    ippk::kernels().cvt16s64f(src, dst, len, scale_of(scaleFactor));
    return ippStsNoErr;
}

IppStatus ippsConvert_32f16s_Sfs(const Ipp32f* src, Ipp16s* dst, int len, IppRoundMode rndMode, int scaleFactor) {
    IPP_CHECK(len, src, dst);
    if (rndMode != ippRndNear && rndMode != ippRndZero) return ippStsRoundModeNotSupportedErr;
    // A power of two scales exactly in float (or saturates to infinity,
    // which the clip handles). The clip comes first, so the conversion
    // never overflows; a NaN fails both compares and is caught after.
    const float s = float(scale_of(scaleFactor));
    if (rndMode == ippRndNear) {
        // Adding and taking away 1.5 * 2^23 rounds to nearest, ties to
        // even, for every value inside the clip: a branch-free loop that
        // vectorises, on the data path of the I/Q buffer.
        const float magic = 12582912.0f;
        for (int i = 0; i < len; ++i) {
            float v = src[i] * s;
            v = v > 32767.0f ? 32767.0f : v;
            v = v < -32768.0f ? -32768.0f : v;
            v = (v == v) ? v : 0.0f;
            dst[i] = Ipp16s(int((v + magic) - magic));
        }
    } else {
        for (int i = 0; i < len; ++i) {
            float v = src[i] * s;
            v = v > 32767.0f ? 32767.0f : v;
            v = v < -32768.0f ? -32768.0f : v;
            v = (v == v) ? v : 0.0f;
            dst[i] = Ipp16s(int(v));
        }
    }
    return ippStsNoErr;
}

IppStatus ippsConvert_32s32f(const Ipp32s* src, Ipp32f* dst, int len) {
    return unary(src, dst, len, [](Ipp32s v) { return float(v); });
}

IppStatus ippsConvert_64f32f(const Ipp64f* src, Ipp32f* dst, int len) {
    return unary(src, dst, len, [](Ipp64f v) { return float(v); });
}

// ---- element-wise arithmetic ------------------------------------------------

IppStatus ippsAdd_32f(const Ipp32f* src1, const Ipp32f* src2, Ipp32f* dst, int len) {
    IPP_CHECK(len, src1, src2, dst);
    ippk::kernels().add32f(src1, src2, dst, len);
    return ippStsNoErr;
}

IppStatus ippsAdd_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len) {
    IPP_CHECK(len, src1, src2, dst);
    ippk::kernels().add64f(src1, src2, dst, len);
    return ippStsNoErr;
}

IppStatus ippsAdd_32fc(const Ipp32fc* src1, const Ipp32fc* src2, Ipp32fc* dst, int len) {
    IPP_CHECK(len, src1, src2, dst);
    ippk::kernels().add32fc(src1, src2, dst, len);
    return ippStsNoErr;
}

IppStatus ippsAdd_32u(const Ipp32u* src1, const Ipp32u* src2, Ipp32u* dst, int len) {
    return binary(src1, src2, dst, len, [](Ipp32u a, Ipp32u b) { return Ipp32u(a + b); });
}

IppStatus ippsSub_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len) {
    return binary(src1, src2, dst, len, [](double a, double b) { return b - a; });
}

IppStatus ippsSub_32s_Sfs(const Ipp32s* src1, const Ipp32s* src2, Ipp32s* dst, int len, int scaleFactor) {
    IPP_CHECK(len, src1, src2, dst);
    if (scaleFactor > 62 || scaleFactor < -62) return ippStsRangeErr;
    for (int i = 0; i < len; ++i) {
        int64_t v = int64_t(src2[i]) - int64_t(src1[i]);
        if (scaleFactor > 0) {
            // Round half to even on the shifted-out bits.
            const int64_t q = v >> scaleFactor;
            const int64_t r = v - q * (int64_t(1) << scaleFactor);
            const int64_t half = int64_t(1) << (scaleFactor - 1);
            v = q + ((r > half || (r == half && (q & 1))) ? 1 : 0);
        } else if (scaleFactor < 0) {
            const int sh = -scaleFactor;
            v = (v > (INT64_MAX >> sh)) ? INT64_MAX : (v < (INT64_MIN >> sh)) ? INT64_MIN : v * (int64_t(1) << sh);
        }
        dst[i] = Ipp32s(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
    }
    return ippStsNoErr;
}

IppStatus ippsDiv_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len) {
    return binary(src1, src2, dst, len, [](double a, double b) { return b / a; });
}

IppStatus ippsMul_32f(const Ipp32f* src1, const Ipp32f* src2, Ipp32f* dst, int len) {
    IPP_CHECK(len, src1, src2, dst);
    ippk::kernels().mul32f(src1, src2, dst, len);
    return ippStsNoErr;
}

IppStatus ippsMul_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len) {
    IPP_CHECK(len, src1, src2, dst);
    ippk::kernels().mul64f(src1, src2, dst, len);
    return ippStsNoErr;
}

IppStatus ippsMul_32fc(const Ipp32fc* src1, const Ipp32fc* src2, Ipp32fc* dst, int len) {
    IPP_CHECK(len, src1, src2, dst);
    ippk::kernels().mul32fc(src1, src2, dst, len);
    return ippStsNoErr;
}

IppStatus ippsMul_64fc(const Ipp64fc* src1, const Ipp64fc* src2, Ipp64fc* dst, int len) {
    IPP_CHECK(len, src1, src2, dst);
    for (int i = 0; i < len; ++i) {
        const double ar = src1[i].re, ai = src1[i].im, br = src2[i].re, bi = src2[i].im;
        dst[i].re = ar * br - ai * bi;
        dst[i].im = ar * bi + ai * br;
    }
    return ippStsNoErr;
}

IppStatus ippsMul_32f_I(const Ipp32f* src, Ipp32f* srcDst, int len) { return ippsMul_32f(src, srcDst, srcDst, len); }

IppStatus ippsMulC_32f(const Ipp32f* src, Ipp32f val, Ipp32f* dst, int len) {
    IPP_CHECK(len, src, dst);
    ippk::kernels().mulc32f(src, val, dst, len);
    return ippStsNoErr;
}

IppStatus ippsMulC_64f(const Ipp64f* src, Ipp64f val, Ipp64f* dst, int len) {
    IPP_CHECK(len, src, dst);
    ippk::kernels().mulc64f(src, val, dst, len);
    return ippStsNoErr;
}

IppStatus ippsAddC_64f(const Ipp64f* src, Ipp64f val, Ipp64f* dst, int len) {
    return unary(src, dst, len, [val](double v) { return v + val; });
}

IppStatus ippsMinEvery_32f(const Ipp32f* src1, const Ipp32f* src2, Ipp32f* dst, int len) {
    IPP_CHECK(len, src1, src2, dst);
    ippk::kernels().min32f(src1, src2, dst, len);
    return ippStsNoErr;
}
IppStatus ippsMinEvery_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len) {
    IPP_CHECK(len, src1, src2, dst);
    ippk::kernels().min64f(src1, src2, dst, len);
    return ippStsNoErr;
}
IppStatus ippsMaxEvery_32f(const Ipp32f* src1, const Ipp32f* src2, Ipp32f* dst, int len) {
    IPP_CHECK(len, src1, src2, dst);
    ippk::kernels().max32f(src1, src2, dst, len);
    return ippStsNoErr;
}
IppStatus ippsMaxEvery_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len) {
    IPP_CHECK(len, src1, src2, dst);
    ippk::kernels().max64f(src1, src2, dst, len);
    return ippStsNoErr;
}

IppStatus ippsMinIndx_32f(const Ipp32f* src, int len, Ipp32f* pMin, int* pIndx) {
    IPP_CHECK(len, src, pMin, pIndx);
    int idx = 0;
    for (int i = 1; i < len; ++i) {
        if (src[i] < src[idx]) idx = i;
    }
    *pMin = src[idx];
    *pIndx = idx;
    return ippStsNoErr;
}

// ---- functions of one value -------------------------------------------------

IppStatus ippsLn_32f_A11(const Ipp32f* src, Ipp32f* dst, int len) {
    IPP_CHECK(len, src, dst);
    ippk::kernels().ln32f(src, dst, len);
    return ippStsNoErr;
}
IppStatus ippsLn_64f(const Ipp64f* src, Ipp64f* dst, int len) {
    IPP_CHECK(len, src, dst);
    ippk::kernels().ln64f(src, dst, len);
    return ippStsNoErr;
}
IppStatus ippsExp_64f(const Ipp64f* src, Ipp64f* dst, int len) {
    return unary(src, dst, len, [](double v) { return std::exp(v); });
}
IppStatus ippsSqr_64f(const Ipp64f* src, Ipp64f* dst, int len) {
    return unary(src, dst, len, [](double v) { return v * v; });
}
IppStatus ippsSqrt_32f_A11(const Ipp32f* src, Ipp32f* dst, int len) {
    return unary(src, dst, len, [](float v) { return std::sqrt(v); });
}
IppStatus ippsSqrt_64f(const Ipp64f* src, Ipp64f* dst, int len) {
    return unary(src, dst, len, [](double v) { return std::sqrt(v); });
}
IppStatus ippsConj_32fc(const Ipp32fc* src, Ipp32fc* dst, int len) {
    return unary(src, dst, len, [](Ipp32fc v) { return Ipp32fc{v.re, -v.im}; });
}
IppStatus ippsMagnitude_32fc(const Ipp32fc* src, Ipp32f* dst, int len) {
    IPP_CHECK(len, src, dst);
    ippk::kernels().mag32fc(src, dst, len);
    return ippStsNoErr;
}
IppStatus ippsMagnitude_64fc(const Ipp64fc* src, Ipp64f* dst, int len) {
    IPP_CHECK(len, src, dst);
    ippk::kernels().mag64fc(src, dst, len);
    return ippStsNoErr;
}
IppStatus ippsPhase_32fc(const Ipp32fc* src, Ipp32f* dst, int len) {
    return unary(src, dst, len, [](Ipp32fc v) { return std::atan2(v.im, v.re); });
}
IppStatus ippsPowerSpectr_32fc(const Ipp32fc* src, Ipp32f* dst, int len) {
    IPP_CHECK(len, src, dst);
    ippk::kernels().power32fc(src, dst, len);
    return ippStsNoErr;
}
IppStatus ippsPowerSpectr_64fc(const Ipp64fc* src, Ipp64f* dst, int len) {
    IPP_CHECK(len, src, dst);
    ippk::kernels().power64fc(src, dst, len);
    return ippStsNoErr;
}
IppStatus ippsWindowPair_64f(const Ipp64f* pSrc1, const Ipp64f* pSrc2, const Ipp64f* pWin, Ipp64fc* pDst, int len) {
    IPP_CHECK(len, pSrc1, pSrc2, pWin, pDst);
    ippk::kernels().winpair64f(pSrc1, pSrc2, pWin, pDst, len);
    return ippStsNoErr;
}
IppStatus ippsSplitPair_64fc(const Ipp64fc* pSrc, int n, int first, Ipp64fc* pDst1, Ipp64fc* pDst2, int len) {
    IPP_CHECK(len, pSrc, pDst1, pDst2);
    if (n < 2 || first < 0 || first + len - 1 > n / 2) return ippStsSizeErr;
    ippk::kernels().splitpair64fc(pSrc, n, first, len, pDst1, pDst2);
    return ippStsNoErr;
}
IppStatus ippsPowerVideoFilter_64fc(const Ipp64fc* src, Ipp64f a0, Ipp64f b1, Ipp64f* pFiltered, Ipp64f* pMin,
                                    Ipp64f* pMax, int len) {
    IPP_CHECK(len, src, pFiltered);
    if (!pMin != !pMax) return ippStsNullPtrErr;
    ippk::kernels().powerfilt64fc(src, a0, b1, pFiltered, pMin, pMax, len);
    return ippStsNoErr;
}
