// Filter design (windowed-sinc FIR, Butterworth and Chebyshev I IIR) and
// filtering (single-rate FIR, IIR).
#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "ipps.h"
#include "ipps_kernels.h"

namespace {

constexpr size_t kAlign = 64;
constexpr uint32_t kFirMagic = 0x52494653u;
constexpr uint32_t kIirMagic = 0x52494953u;
// Output samples per FIR frame: large enough that the frame's history
// shift is small beside the arithmetic, small enough to stay in cache.
constexpr int kFirChunk = 1024;
constexpr int kMaxIirOrder = 12;

inline uint8_t* align_up(void* p) {
    return reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(p) + kAlign - 1) & ~uintptr_t(kAlign - 1));
}
inline size_t round_up(size_t v) { return (v + kAlign - 1) & ~(kAlign - 1); }

// ---- windows and FIR design -------------------------------------------------

double window_value(IppWinType wt, int n, int len) {
    if (len == 1) return 1.0;
    const double x = double(n) / double(len - 1);
    switch (wt) {
        case ippWinBartlett:
            return 1.0 - std::fabs(2.0 * x - 1.0);
        case ippWinBlackman:
            return 0.42 - 0.5 * std::cos(2.0 * M_PI * x) + 0.08 * std::cos(4.0 * M_PI * x);
        case ippWinHamming:
            return 0.54 - 0.46 * std::cos(2.0 * M_PI * x);
        case ippWinHann:
            return 0.5 - 0.5 * std::cos(2.0 * M_PI * x);
        case ippWinRect:
            return 1.0;
    }
    return 1.0;
}

bool window_ok(IppWinType wt) { return wt >= ippWinBartlett && wt <= ippWinRect; }

// 2 f sinc(2 f m): the ideal low-pass of cut-off f at offset m.
double ideal_lowpass(double f, double m) {
    if (m == 0.0) return 2.0 * f;
    return std::sin(2.0 * M_PI * f * m) / (M_PI * m);
}

// |sum h[n] exp(-j 2 pi f n)|: the gain of the taps at frequency f.
double gain_at(const double* h, int len, double f) {
    long double re = 0, im = 0;
    for (int n = 0; n < len; ++n) {
        const long double ph = -2.0L * M_PIl * f * n;
        re += h[n] * std::cos(ph);
        im += h[n] * std::sin(ph);
    }
    return double(std::sqrt(re * re + im * im));
}

enum class FirKind { Low, High, Band };

IppStatus fir_gen(FirKind kind, double f1, double f2, double* taps, int len, IppWinType wt, IppBool doNormal) {
    if (!taps) return ippStsNullPtrErr;
    if (len < 1) return ippStsSizeErr;
    if (!window_ok(wt)) return ippStsBadArgErr;
    if (!(f1 > 0.0 && f1 < 0.5)) return ippStsRelFreqErr;
    if (kind == FirKind::Band && !(f2 > f1 && f2 < 0.5)) return ippStsRelFreqErr;
    if (kind == FirKind::High && (len & 1) == 0) return ippStsFIRLenErr;
    const double centre = 0.5 * double(len - 1);
    for (int n = 0; n < len; ++n) {
        const double m = double(n) - centre;
        double h = 0.0;
        switch (kind) {
            case FirKind::Low:
                h = ideal_lowpass(f1, m);
                break;
            case FirKind::High:
                h = (m == 0.0 ? 1.0 : 0.0) - ideal_lowpass(f1, m);
                break;
            case FirKind::Band:
                h = ideal_lowpass(f2, m) - ideal_lowpass(f1, m);
                break;
        }
        taps[n] = h * window_value(wt, n, len);
    }
    if (doNormal == ippTrue) {
        const double at = kind == FirKind::Low ? 0.0 : kind == FirKind::High ? 0.5 : 0.5 * (f1 + f2);
        const double g = gain_at(taps, len, at);
        if (g > 0.0) {
            for (int n = 0; n < len; ++n) taps[n] /= g;
        }
    }
    return ippStsNoErr;
}

// ---- IIR design ---------------------------------------------------------------

using cld = std::complex<long double>;

// Coefficients of prod (1 - r z^-1), real parts, out[0..n].
void poly_from_roots(const cld* roots, int n, long double* out) {
    cld c[kMaxIirOrder + 1] = {};
    c[0] = 1;
    for (int k = 0; k < n; ++k) {
        for (int i = k + 1; i >= 1; --i) c[i] -= roots[k] * c[i - 1];
    }
    for (int i = 0; i <= n; ++i) out[i] = c[i].real();
}

// Analog prototype with its pass-band edge at 1 rad/s, mapped to the
// digital domain by the bilinear transform with the edge pre-warped to
// tan(pi f): poles P of the analog low-pass (or of its high-pass image
// wc / p) go to z = (1 + P) / (1 - P).
IppStatus iir_gen(bool high, double f, double ripple, int order, double* taps, IppsIIRFilterType type) {
    if (!taps) return ippStsNullPtrErr;
    if (order < 1 || order > kMaxIirOrder) return ippStsIIROrderErr;
    if (!(f > 0.0 && f < 0.5)) return ippStsRelFreqErr;
    if (type != ippButterworth && type != ippChebyshev1) return ippStsBadArgErr;
    if (type == ippChebyshev1 && !(ripple > 0.0 && ripple <= 29.0)) return ippStsRangeErr;

    const long double wc = std::tan(M_PIl * (long double)f);
    long double eps = 0, mu = 0;
    if (type == ippChebyshev1) {
        eps = std::sqrt(std::pow(10.0L, 0.1L * (long double)ripple) - 1.0L);
        mu = std::asinh(1.0L / eps) / order;
    }
    cld zp[kMaxIirOrder], zz[kMaxIirOrder];
    for (int k = 0; k < order; ++k) {
        const long double th = M_PIl * (2 * k + 1) / (2.0L * order);
        cld p = type == ippButterworth ? cld(-std::sin(th), std::cos(th))
                                       : cld(-std::sinh(mu) * std::sin(th), std::cosh(mu) * std::cos(th));
        const cld P = high ? wc / p : wc * p;
        zp[k] = (1.0L + P) / (1.0L - P);
        zz[k] = high ? 1.0L : -1.0L;
    }
    long double b[kMaxIirOrder + 1], a[kMaxIirOrder + 1];
    poly_from_roots(zz, order, b);
    poly_from_roots(zp, order, a);

    // Gain at the middle of the pass band: z = 1 for low-pass, -1 for
    // high-pass. An even-order Chebyshev filter sits at the bottom of its
    // ripple there.
    // The sums use A as it will be stored in double, so that the stored
    // taps have the pass-band gain exactly.
    long double nb = 0, na = 0, sgn = 1;
    for (int i = 0; i <= order; ++i) {
        nb += b[i] * sgn;
        na += (long double)double(a[i]) * sgn;
        if (high) sgn = -sgn;
    }
    long double target = 1.0L;
    if (type == ippChebyshev1 && (order % 2) == 0) target = 1.0L / std::sqrt(1.0L + eps * eps);
    const long double g = target * na / nb;
    for (int i = 0; i <= order; ++i) {
        taps[i] = double(b[i] * g);
        taps[order + 1 + i] = double(a[i]);
    }
    return ippStsNoErr;
}

// ---- single-rate FIR ------------------------------------------------------------

template <typename T>
struct FirSpecT {
    uint32_t magic;
    IppDataType type;
    int len;
    T* hr;  // taps reversed, so that each output is a forward dot product
    // Real filters whose every other reversed tap is zero (half-band and
    // Hilbert designs) keep only the others: hr then holds tapCount taps,
    // tap m reading x[tapFirst + 2 m]. Otherwise tapStep 1, tapFirst 0.
    // Adding the products of zero taps changes no finite sum, so both forms
    // give the same samples.
    int tapCount;
    int tapStep;
    int tapFirst;
    // Long complex filters run by overlap-save (fftN > 0): H is the
    // transform of the taps divided by fftN, tw the forward twiddles, rev
    // the bit-reversal permutation. All of it lives in the spec's bytes, so
    // a spec needs no release and may be copied.
    int fftN;
    Ipp32fc* H;
    Ipp32fc* tw;
    int* rev;
};

// Complex filters from this many taps on use the transform. Measured with
// bench_ipp_vector (Fir32fc, 24576 samples a call, one core): the direct
// form gave 33-44 M samples/s at 32 taps, 22-25 M at 64 and 11.5 M at
// 127; overlap-save gave 42 M at 128, 35 M at 1024 and 22 M at 8192
// taps, where the direct form would manage about 0.2 M.
constexpr int kFftFirMinTaps = 64;
// Real filters from this many taps on are checked for every other tap zero;
// below it the check would cost more than the products it saves.
constexpr int kSparseFirMinTaps = 16;

int fft_fir_size(int len) {
    if (len < kFftFirMinTaps) return 0;
    int n = 1;
    while (n < 2 * len) n <<= 1;
    return n;
}

// In-place radix-2 transform of n points (n a power of two), forward with
// tw = exp(-j 2 pi k / n), inverse with its conjugate. Unscaled.
void small_fft(Ipp32fc* a, int n, const Ipp32fc* tw, const int* rev, bool inverse) {
    for (int i = 0; i < n; ++i) {
        const int j = rev[i];
        if (i < j) std::swap(a[i], a[j]);
    }
    const float sgn = inverse ? -1.0f : 1.0f;
    for (int len = 2; len <= n; len <<= 1) {
        const int half = len / 2, step = n / len;
        for (int i = 0; i < n; i += len) {
            Ipp32fc* lo = a + i;
            Ipp32fc* hi = a + i + half;
            for (int k = 0; k < half; ++k) {
                const float wr = tw[k * step].re, wi = sgn * tw[k * step].im;
                const float vr = hi[k].re * wr - hi[k].im * wi;
                const float vi = hi[k].re * wi + hi[k].im * wr;
                const float ur = lo[k].re, ui = lo[k].im;
                lo[k] = {ur + vr, ui + vi};
                hi[k] = {ur - vr, ui - vi};
            }
        }
    }
}

template <typename T>
constexpr IppDataType type_of();
template <>
constexpr IppDataType type_of<Ipp32f>() {
    return ipp32f;
}
template <>
constexpr IppDataType type_of<Ipp64f>() {
    return ipp64f;
}
template <>
constexpr IppDataType type_of<Ipp32fc>() {
    return ipp32fc;
}

size_t sample_size(IppDataType t) { return t == ipp32f ? 4 : 8; }

template <typename T>
IppStatus fir_init(const T* taps, int len, IppAlgType alg, FirSpecT<T>* raw) {
    if (!taps || !raw) return ippStsNullPtrErr;
    if (len < 1) return ippStsFIRLenErr;
    if (alg != ippAlgAuto) return ippStsBadArgErr;
    auto* s = reinterpret_cast<FirSpecT<T>*>(align_up(raw));
    s->type = type_of<T>();
    s->len = len;
    s->hr = reinterpret_cast<T*>(align_up(reinterpret_cast<uint8_t*>(s) + sizeof(FirSpecT<T>)));
    for (int j = 0; j < len; ++j) s->hr[j] = taps[len - 1 - j];
    s->tapCount = len;
    s->tapStep = 1;
    s->tapFirst = 0;
    if constexpr (!std::is_same_v<T, Ipp32fc>) {
        if (len >= kSparseFirMinTaps) {
            for (int first = 0; first < 2; ++first) {
                bool zeros = true;
                for (int j = 1 - first; j < len && zeros; j += 2) zeros = s->hr[j] == T(0);
                if (!zeros) continue;
                s->tapCount = (len - first + 1) / 2;
                s->tapStep = 2;
                s->tapFirst = first;
                for (int m = 0; m < s->tapCount; ++m) s->hr[m] = s->hr[first + 2 * m];
                break;
            }
        }
    }
    s->fftN = 0;
    if constexpr (std::is_same_v<T, Ipp32fc>) {
        const int n = fft_fir_size(len);
        if (n > 0) {
            s->fftN = n;
            uint8_t* p = align_up(s->hr + len);
            s->H = reinterpret_cast<Ipp32fc*>(p);
            s->tw = reinterpret_cast<Ipp32fc*>(align_up(s->H + n));
            s->rev = reinterpret_cast<int*>(align_up(s->tw + n / 2));
            int bits = 0;
            while ((1 << bits) < n) ++bits;
            for (int i = 0; i < n; ++i) {
                int r = 0;
                for (int b = 0; b < bits; ++b) r |= ((i >> b) & 1) << (bits - 1 - b);
                s->rev[i] = r;
            }
            for (int k = 0; k < n / 2; ++k) {
                const double ph = -2.0 * M_PI * k / n;
                s->tw[k] = {float(std::cos(ph)), float(std::sin(ph))};
            }
            for (int i = 0; i < n; ++i) s->H[i] = i < len ? taps[i] : Ipp32fc{0.0f, 0.0f};
            small_fft(s->H, n, s->tw, s->rev, false);
            const float inv = 1.0f / float(n);
            for (int i = 0; i < n; ++i) s->H[i] = {s->H[i].re * inv, s->H[i].im * inv};
        }
    }
    s->magic = kFirMagic;
    return ippStsNoErr;
}

template <typename T>
FirSpecT<T>* fir_spec(void* raw) {
    auto* s = reinterpret_cast<FirSpecT<T>*>(align_up(raw));
    return (s->magic == kFirMagic && s->type == type_of<T>()) ? s : nullptr;
}

inline void fir_rows(const FirSpecT<Ipp32f>* s, const Ipp32f* x, Ipp32f* y, int n) {
    ippk::kernels().fir32f(s->hr, s->tapCount, s->tapStep, x + s->tapFirst, y, n);
}
inline void fir_rows(const FirSpecT<Ipp64f>* s, const Ipp64f* x, Ipp64f* y, int n) {
    ippk::kernels().fir64f(s->hr, s->tapCount, s->tapStep, x + s->tapFirst, y, n);
}

// Real FIR over frames of [history | new samples] in the work buffer. A
// frame's input is copied before its outputs are written, so dst may be
// src, and the history carries over from frame to frame and call to call.
template <typename T>
IppStatus fir_real(const T* src, T* dst, int num, void* rawSpec, const T* dlySrc, T* dlyDst, Ipp8u* pBuf) {
    if (!src || !dst || !rawSpec || !pBuf) return ippStsNullPtrErr;
    if (num <= 0) return ippStsSizeErr;
    const FirSpecT<T>* s = fir_spec<T>(rawSpec);
    if (!s) return ippStsBadArgErr;
    const int hist = s->len - 1;
    T* frame = reinterpret_cast<T*>(align_up(pBuf));
    if (hist > 0) {
        if (dlySrc) {
            std::memmove(frame, dlySrc, size_t(hist) * sizeof(T));
        } else {
            std::fill(frame, frame + hist, T(0));
        }
    }
    for (int pos = 0; pos < num; pos += kFirChunk) {
        const int c = std::min(kFirChunk, num - pos);
        std::memcpy(frame + hist, src + pos, size_t(c) * sizeof(T));
        fir_rows(s, frame, dst + pos, c);
        if (hist > 0) std::memmove(frame, frame + c, size_t(hist) * sizeof(T));
    }
    if (dlyDst && hist > 0) std::memmove(dlyDst, frame, size_t(hist) * sizeof(T));
    return ippStsNoErr;
}

// Overlap-save: each block transforms [L - 1 history | up to N - L + 1 new
// samples], multiplies by H and keeps the outputs past the history, where
// the circular convolution has not wrapped. The inputs are copied into the
// work buffer before outputs are written, so dst may be src.
IppStatus fir_cplx_fft(const Ipp32fc* src, Ipp32fc* dst, int num, const FirSpecT<Ipp32fc>* s, const Ipp32fc* dlySrc,
                       Ipp32fc* dlyDst, Ipp8u* pBuf) {
    const int n = s->fftN, hist = s->len - 1, block = n - hist;
    Ipp32fc* hbuf = reinterpret_cast<Ipp32fc*>(align_up(pBuf));  // hist + block inputs
    Ipp32fc* x = reinterpret_cast<Ipp32fc*>(align_up(hbuf + n));  // n-point work
    if (dlySrc) {
        std::memmove(hbuf, dlySrc, size_t(hist) * sizeof(Ipp32fc));
    } else {
        std::fill(hbuf, hbuf + hist, Ipp32fc{0.0f, 0.0f});
    }
    for (int pos = 0; pos < num; pos += block) {
        const int c = std::min(block, num - pos);
        std::memcpy(hbuf + hist, src + pos, size_t(c) * sizeof(Ipp32fc));
        std::memcpy(x, hbuf, size_t(hist + c) * sizeof(Ipp32fc));
        std::fill(x + hist + c, x + n, Ipp32fc{0.0f, 0.0f});
        small_fft(x, n, s->tw, s->rev, false);
        ippk::kernels().mul32fc(x, s->H, x, n);
        small_fft(x, n, s->tw, s->rev, true);
        std::memcpy(dst + pos, x + hist, size_t(c) * sizeof(Ipp32fc));
        std::memmove(hbuf, hbuf + c, size_t(hist) * sizeof(Ipp32fc));
    }
    if (dlyDst) std::memmove(dlyDst, hbuf, size_t(hist) * sizeof(Ipp32fc));
    return ippStsNoErr;
}

// Complex FIR: as the real one, with a second frame of the samples turned
// by 90 degrees (see ippk::KernelTable::fir32fc).
IppStatus fir_cplx(const Ipp32fc* src, Ipp32fc* dst, int num, void* rawSpec, const Ipp32fc* dlySrc, Ipp32fc* dlyDst,
                   Ipp8u* pBuf) {
    if (!src || !dst || !rawSpec || !pBuf) return ippStsNullPtrErr;
    if (num <= 0) return ippStsSizeErr;
    const FirSpecT<Ipp32fc>* s = fir_spec<Ipp32fc>(rawSpec);
    if (!s) return ippStsBadArgErr;
    if (s->fftN > 0) return fir_cplx_fft(src, dst, num, s, dlySrc, dlyDst, pBuf);
    const int hist = s->len - 1;
    const size_t frameFloats = 2 * size_t(hist + kFirChunk);
    float* x = reinterpret_cast<float*>(align_up(pBuf));
    float* xs = reinterpret_cast<float*>(align_up(x + frameFloats));
    auto turn = [&](int from, int to) {
        for (int i = from; i < to; ++i) {
            xs[2 * i] = -x[2 * i + 1];
            xs[2 * i + 1] = x[2 * i];
        }
    };
    if (hist > 0) {
        if (dlySrc) {
            std::memmove(x, dlySrc, size_t(hist) * sizeof(Ipp32fc));
        } else {
            std::fill(x, x + 2 * hist, 0.0f);
        }
        turn(0, hist);
    }
    for (int pos = 0; pos < num; pos += kFirChunk) {
        const int c = std::min(kFirChunk, num - pos);
        std::memcpy(x + 2 * hist, src + pos, size_t(c) * sizeof(Ipp32fc));
        turn(hist, hist + c);
        ippk::kernels().fir32fc(s->hr, s->len, x, xs, &dst[pos].re, c);
        if (hist > 0) {
            std::memmove(x, x + 2 * c, size_t(hist) * sizeof(Ipp32fc));
            std::memmove(xs, xs + 2 * c, size_t(hist) * sizeof(Ipp32fc));
        }
    }
    if (dlyDst && hist > 0) std::memmove(dlyDst, x, size_t(hist) * sizeof(Ipp32fc));
    return ippStsNoErr;
}

// ---- IIR ---------------------------------------------------------------------

// Transposed direct form II in double for both sample types: the float
// filters of the audio chain then lose nothing to their own rounding.
struct IirState {
    uint32_t magic;
    int order;
    double b[kMaxIirOrder + 1];
    double a[kMaxIirOrder + 1];
    double z[kMaxIirOrder + 1];
};

template <typename T>
IppStatus iir_init(IirState** pp, const T* taps, int order, const T* dly, Ipp8u* pBuf) {
    if (!pp || !taps || !pBuf) return ippStsNullPtrErr;
    if (order < 1 || order > kMaxIirOrder) return ippStsIIROrderErr;
    const double a0 = double(taps[order + 1]);
    if (a0 == 0.0) return ippStsBadArgErr;
    auto* s = reinterpret_cast<IirState*>(align_up(pBuf));
    std::memset(static_cast<void*>(s), 0, sizeof(*s));
    s->order = order;
    for (int i = 0; i <= order; ++i) {
        s->b[i] = double(taps[i]) / a0;
        s->a[i] = double(taps[order + 1 + i]) / a0;
    }
    if (dly) {
        for (int i = 0; i < order; ++i) s->z[i] = double(dly[i]);
    }
    s->magic = kIirMagic;
    *pp = s;
    return ippStsNoErr;
}

template <typename T>
IppStatus iir_run(const T* src, T* dst, int len, IirState* s) {
    if (!src || !dst || !s) return ippStsNullPtrErr;
    if (len <= 0) return ippStsSizeErr;
    if (s->magic != kIirMagic) return ippStsBadArgErr;
    const int N = s->order;
    double z[kMaxIirOrder + 1];
    std::copy(s->z, s->z + N + 1, z);
    for (int n = 0; n < len; ++n) {
        const double x = double(src[n]);
        const double y = s->b[0] * x + z[0];
        for (int k = 0; k < N - 1; ++k) z[k] = s->b[k + 1] * x - s->a[k + 1] * y + z[k + 1];
        z[N - 1] = s->b[N] * x - s->a[N] * y;
        dst[n] = T(y);
    }
    std::copy(z, z + N + 1, s->z);
    return ippStsNoErr;
}

}  // namespace

struct IppsFIRSpec_32f : FirSpecT<Ipp32f> {};
struct IppsFIRSpec_64f : FirSpecT<Ipp64f> {};
struct IppsFIRSpec_32fc : FirSpecT<Ipp32fc> {};
struct IppsIIRState_32f : IirState {};
struct IppsIIRState_64f : IirState {};

IppStatus ippsFIRGenGetBufferSize(int tapsLen, int* pBufferSize) {
    if (!pBufferSize) return ippStsNullPtrErr;
    if (tapsLen < 1) return ippStsSizeErr;
    *pBufferSize = 0;  // the generators need no scratch
    return ippStsNoErr;
}

IppStatus ippsFIRGenLowpass_64f(Ipp64f rFreq, Ipp64f* pTaps, int tapsLen, IppWinType winType, IppBool doNormal, Ipp8u*) {
    return fir_gen(FirKind::Low, rFreq, 0.0, pTaps, tapsLen, winType, doNormal);
}

IppStatus ippsFIRGenHighpass_64f(Ipp64f rFreq, Ipp64f* pTaps, int tapsLen, IppWinType winType, IppBool doNormal, Ipp8u*) {
    return fir_gen(FirKind::High, rFreq, 0.0, pTaps, tapsLen, winType, doNormal);
}

IppStatus ippsFIRGenBandpass_64f(Ipp64f rLowFreq, Ipp64f rHighFreq, Ipp64f* pTaps, int tapsLen, IppWinType winType,
                                 IppBool doNormal, Ipp8u*) {
    return fir_gen(FirKind::Band, rLowFreq, rHighFreq, pTaps, tapsLen, winType, doNormal);
}

IppStatus ippsWinBlackmanStd_64f_I(Ipp64f* pSrcDst, int len) {
    if (!pSrcDst) return ippStsNullPtrErr;
    if (len < 1) return ippStsSizeErr;
    for (int n = 0; n < len; ++n) pSrcDst[n] *= window_value(ippWinBlackman, n, len);
    return ippStsNoErr;
}

IppStatus ippsIIRGenGetBufferSize(int order, int* pBufferSize) {
    if (!pBufferSize) return ippStsNullPtrErr;
    if (order < 1 || order > kMaxIirOrder) return ippStsIIROrderErr;
    *pBufferSize = 0;  // the design works on the stack
    return ippStsNoErr;
}

IppStatus ippsIIRGenLowpass_64f(Ipp64f rFreq, Ipp64f ripple, int order, Ipp64f* pTaps, IppsIIRFilterType filterType, Ipp8u*) {
    return iir_gen(false, rFreq, ripple, order, pTaps, filterType);
}

IppStatus ippsIIRGenHighpass_64f(Ipp64f rFreq, Ipp64f ripple, int order, Ipp64f* pTaps, IppsIIRFilterType filterType, Ipp8u*) {
    return iir_gen(true, rFreq, ripple, order, pTaps, filterType);
}

IppStatus ippsFIRSRGetSize(int tapsLen, IppDataType tapsType, int* pSpecSize, int* pBufSize) {
    if (!pSpecSize || !pBufSize) return ippStsNullPtrErr;
    if (tapsLen < 1) return ippStsFIRLenErr;
    if (tapsType != ipp32f && tapsType != ipp64f && tapsType != ipp32fc) return ippStsBadArgErr;
    const size_t ss = sample_size(tapsType);
    size_t spec = kAlign + round_up(sizeof(FirSpecT<double>)) + round_up(size_t(tapsLen) * ss);
    size_t frame = round_up(size_t(tapsLen - 1 + kFirChunk) * ss);
    if (tapsType == ipp32fc) frame *= 2;  // the turned copy
    size_t buf = kAlign + frame;
    const int n = tapsType == ipp32fc ? fft_fir_size(tapsLen) : 0;
    if (n > 0) {
        // H, twiddles and the permutation; history plus block, and the work.
        spec += round_up(size_t(n) * 8) + round_up(size_t(n / 2) * 8) + round_up(size_t(n) * 4) + 3 * kAlign;
        buf = kAlign + 2 * round_up(size_t(n) * 8) + kAlign;
    }
    if (spec > size_t(INT32_MAX) || buf > size_t(INT32_MAX)) return ippStsFIRLenErr;
    *pSpecSize = int(spec);
    *pBufSize = int(buf);
    return ippStsNoErr;
}

IppStatus ippsFIRSRInit_32f(const Ipp32f* pTaps, int tapsLen, IppAlgType algType, IppsFIRSpec_32f* pSpec) {
    return fir_init<Ipp32f>(pTaps, tapsLen, algType, pSpec);
}
IppStatus ippsFIRSRInit_64f(const Ipp64f* pTaps, int tapsLen, IppAlgType algType, IppsFIRSpec_64f* pSpec) {
    return fir_init<Ipp64f>(pTaps, tapsLen, algType, pSpec);
}
IppStatus ippsFIRSRInit_32fc(const Ipp32fc* pTaps, int tapsLen, IppAlgType algType, IppsFIRSpec_32fc* pSpec) {
    return fir_init<Ipp32fc>(pTaps, tapsLen, algType, pSpec);
}

IppStatus ippsFIRSR_32f(const Ipp32f* pSrc, Ipp32f* pDst, int numIters, IppsFIRSpec_32f* pSpec, const Ipp32f* pDlySrc,
                        Ipp32f* pDlyDst, Ipp8u* pBuf) {
    return fir_real<Ipp32f>(pSrc, pDst, numIters, pSpec, pDlySrc, pDlyDst, pBuf);
}
IppStatus ippsFIRSR_64f(const Ipp64f* pSrc, Ipp64f* pDst, int numIters, IppsFIRSpec_64f* pSpec, const Ipp64f* pDlySrc,
                        Ipp64f* pDlyDst, Ipp8u* pBuf) {
    return fir_real<Ipp64f>(pSrc, pDst, numIters, pSpec, pDlySrc, pDlyDst, pBuf);
}
IppStatus ippsFIRSR_32fc(const Ipp32fc* pSrc, Ipp32fc* pDst, int numIters, IppsFIRSpec_32fc* pSpec, const Ipp32fc* pDlySrc,
                         Ipp32fc* pDlyDst, Ipp8u* pBuf) {
    return fir_cplx(pSrc, pDst, numIters, pSpec, pDlySrc, pDlyDst, pBuf);
}

IppStatus ippsIIRGetStateSize_32f(int order, int* pBufferSize) {
    if (!pBufferSize) return ippStsNullPtrErr;
    if (order < 1 || order > kMaxIirOrder) return ippStsIIROrderErr;
    *pBufferSize = int(kAlign + sizeof(IirState));
    return ippStsNoErr;
}
IppStatus ippsIIRGetStateSize_64f(int order, int* pBufferSize) { return ippsIIRGetStateSize_32f(order, pBufferSize); }

IppStatus ippsIIRInit_32f(IppsIIRState_32f** ppState, const Ipp32f* pTaps, int order, const Ipp32f* pDlyLine, Ipp8u* pBuf) {
    return iir_init<Ipp32f>(reinterpret_cast<IirState**>(ppState), pTaps, order, pDlyLine, pBuf);
}
IppStatus ippsIIRInit_64f(IppsIIRState_64f** ppState, const Ipp64f* pTaps, int order, const Ipp64f* pDlyLine, Ipp8u* pBuf) {
    return iir_init<Ipp64f>(reinterpret_cast<IirState**>(ppState), pTaps, order, pDlyLine, pBuf);
}
IppStatus ippsIIR_32f(const Ipp32f* pSrc, Ipp32f* pDst, int len, IppsIIRState_32f* pState) {
    return iir_run<Ipp32f>(pSrc, pDst, len, pState);
}
IppStatus ippsIIR_64f(const Ipp64f* pSrc, Ipp64f* pDst, int len, IppsIIRState_64f* pState) {
    return iir_run<Ipp64f>(pSrc, pDst, len, pState);
}
