// Sample-rate steps, the tone and the image transpose.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "ippi.h"
#include "ipps.h"

namespace {

template <typename T>
IppStatus sample_down(const T* src, int srcLen, T* dst, int* pDstLen, int factor, int* pPhase) {
    if (!src || !dst || !pDstLen || !pPhase) return ippStsNullPtrErr;
    if (srcLen <= 0) return ippStsSizeErr;
    if (factor <= 0 || *pPhase < 0 || *pPhase >= factor) return ippStsBadArgErr;
    int n = 0;
    int i = *pPhase;
    for (; i < srcLen; i += factor) dst[n++] = src[i];
    *pDstLen = n;
    *pPhase = i - srcLen;
    return ippStsNoErr;
}

// Samples of the tone between exact anchors. Between anchors each sample
// is the anchor turned by a precomputed rotation, all in double, so the
// error does not grow with the block length.
constexpr int kToneRun = 64;

}  // namespace

IppStatus ippsSampleDown_32f(const Ipp32f* pSrc, int srcLen, Ipp32f* pDst, int* pDstLen, int factor, int* pPhase) {
    return sample_down(pSrc, srcLen, pDst, pDstLen, factor, pPhase);
}

IppStatus ippsSampleDown_32fc(const Ipp32fc* pSrc, int srcLen, Ipp32fc* pDst, int* pDstLen, int factor, int* pPhase) {
    return sample_down(pSrc, srcLen, pDst, pDstLen, factor, pPhase);
}

IppStatus ippsSampleUp_32f(const Ipp32f* pSrc, int srcLen, Ipp32f* pDst, int* pDstLen, int factor, int* pPhase) {
    if (!pSrc || !pDst || !pDstLen || !pPhase) return ippStsNullPtrErr;
    if (srcLen <= 0) return ippStsSizeErr;
    if (factor <= 0 || *pPhase < 0 || *pPhase >= factor) return ippStsBadArgErr;
    const int ph = *pPhase;
    // Back to front, so that pDst may begin where pSrc does.
    for (int i = srcLen - 1; i >= 0; --i) {
        const Ipp32f v = pSrc[i];
        for (int k = factor - 1; k >= 0; --k) pDst[i * factor + k] = (k == ph) ? v : 0.0f;
    }
    *pDstLen = srcLen * factor;
    return ippStsNoErr;
}

IppStatus ippsTone_32fc(Ipp32fc* pDst, int len, Ipp32f magn, Ipp32f rFreq, Ipp32f* pPhase, IppHintAlgorithm) {
    if (!pDst || !pPhase) return ippStsNullPtrErr;
    if (len <= 0) return ippStsSizeErr;
    if (!(magn > 0.0f)) return ippStsBadArgErr;
    if (!(rFreq >= 0.0f && rFreq < 1.0f)) return ippStsRelFreqErr;
    const double twoPi = 2.0 * M_PI;
    const double phase0 = double(*pPhase);
    if (!(phase0 >= 0.0 && phase0 < twoPi)) return ippStsRangeErr;
    const double f = double(rFreq);
    const double m = double(magn);

    double rotRe[kToneRun], rotIm[kToneRun];
    for (int k = 0; k < kToneRun; ++k) {
        rotRe[k] = std::cos(twoPi * f * k);
        rotIm[k] = std::sin(twoPi * f * k);
    }
    for (int start = 0; start < len; start += kToneRun) {
        // Anchor phase in cycles, reduced before the multiply by 2 pi so
        // that a long block keeps its accuracy.
        const double cyc = std::fmod(f * double(start), 1.0);
        const double ang = twoPi * cyc + phase0;
        const double aRe = m * std::cos(ang), aIm = m * std::sin(ang);
        const int run = std::min(kToneRun, len - start);
        Ipp32fc* d = pDst + start;
        for (int k = 0; k < run; ++k) {
            d[k].re = float(aRe * rotRe[k] - aIm * rotIm[k]);
            d[k].im = float(aRe * rotIm[k] + aIm * rotRe[k]);
        }
    }
    double next = std::fmod(phase0 + twoPi * std::fmod(f * double(len), 1.0), twoPi);
    float out = float(next);
    if (out >= float(twoPi)) out = 0.0f;  // rounding up to 2 pi wraps to 0
    *pPhase = out;
    return ippStsNoErr;
}

IppStatus ippiTranspose_32f_C1R(const Ipp32f* pSrc, int srcStep, Ipp32f* pDst, int dstStep, IppiSize roiSize) {
    if (!pSrc || !pDst) return ippStsNullPtrErr;
    if (roiSize.width <= 0 || roiSize.height <= 0) return ippStsSizeErr;
    if (srcStep < roiSize.width * int(sizeof(Ipp32f)) || dstStep < roiSize.height * int(sizeof(Ipp32f)))
        return ippStsBadArgErr;
    const auto* s = reinterpret_cast<const Ipp8u*>(pSrc);
    auto* d = reinterpret_cast<Ipp8u*>(pDst);
    // Tiles keep both the rows read and the rows written in cache.
    constexpr int T = 32;
    for (int y0 = 0; y0 < roiSize.height; y0 += T) {
        const int y1 = std::min(y0 + T, roiSize.height);
        for (int x0 = 0; x0 < roiSize.width; x0 += T) {
            const int x1 = std::min(x0 + T, roiSize.width);
            for (int y = y0; y < y1; ++y) {
                const auto* srow = reinterpret_cast<const Ipp32f*>(s + size_t(y) * srcStep);
                for (int x = x0; x < x1; ++x) reinterpret_cast<Ipp32f*>(d + size_t(x) * dstStep)[y] = srow[x];
            }
        }
    }
    return ippStsNoErr;
}
