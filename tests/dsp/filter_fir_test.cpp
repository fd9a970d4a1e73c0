// Single-rate FIR filtering and FIR design: against a direct convolution
// in long double, block-wise against one long run, on every kernel variant.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "dsp/ipps_states.h"
#include "ipp_test_util.h"

using namespace ipptest;

namespace {

using cf = std::complex<float>;

// y[n] = sum h[k] x[n - k], with x before 0 taken from hist (oldest first).
template <typename T>
std::vector<T> convolve(const std::vector<T>& h, const std::vector<T>& hist, const std::vector<T>& x) {
    const int L = int(h.size());
    std::vector<T> full(hist);
    full.insert(full.end(), x.begin(), x.end());
    std::vector<T> y(x.size());
    for (size_t n = 0; n < x.size(); ++n) {
        std::complex<long double> acc = 0;
        for (int k = 0; k < L; ++k) {
            const auto xv = full[n + size_t(L - 1 - k)];
            acc += std::complex<long double>(h[size_t(k)]) * std::complex<long double>(xv);
        }
        if constexpr (std::is_same_v<T, cf>) {
            y[n] = cf(float(acc.real()), float(acc.imag()));
        } else {
            y[n] = T(acc.real());
        }
    }
    return y;
}

template <typename T>
std::vector<T> rand_vec(int n, unsigned seed) {
    auto r = randd(2 * n, seed);
    std::vector<T> v(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        if constexpr (std::is_same_v<T, cf>) {
            v[size_t(i)] = cf(float(r[2 * size_t(i)]), float(r[2 * size_t(i) + 1]));
        } else {
            v[size_t(i)] = T(r[size_t(i)]);
        }
    }
    return v;
}

IppStatus run(const float* s, float* d, int n, Ipp8u* spec, const float* ds, float* dd, Ipp8u* buf) {
    return ippsFIRSR_32f(s, d, n, reinterpret_cast<IppsFIRSpec_32f*>(spec), ds, dd, buf);
}
IppStatus run(const double* s, double* d, int n, Ipp8u* spec, const double* ds, double* dd, Ipp8u* buf) {
    return ippsFIRSR_64f(s, d, n, reinterpret_cast<IppsFIRSpec_64f*>(spec), ds, dd, buf);
}
IppStatus run(const cf* s, cf* d, int n, Ipp8u* spec, const cf* ds, cf* dd, Ipp8u* buf) {
    return ippsFIRSR_32fc(reinterpret_cast<const Ipp32fc*>(s), reinterpret_cast<Ipp32fc*>(d), n,
                          reinterpret_cast<IppsFIRSpec_32fc*>(spec), reinterpret_cast<const Ipp32fc*>(ds),
                          reinterpret_cast<Ipp32fc*>(dd), buf);
}
IppStatus init(const float* t, int n, Ipp8u* spec) {
    return ippsFIRSRInit_32f(t, n, ippAlgAuto, reinterpret_cast<IppsFIRSpec_32f*>(spec));
}
IppStatus init(const double* t, int n, Ipp8u* spec) {
    return ippsFIRSRInit_64f(t, n, ippAlgAuto, reinterpret_cast<IppsFIRSpec_64f*>(spec));
}
IppStatus init(const cf* t, int n, Ipp8u* spec) {
    return ippsFIRSRInit_32fc(reinterpret_cast<const Ipp32fc*>(t), n, ippAlgAuto, reinterpret_cast<IppsFIRSpec_32fc*>(spec));
}
constexpr IppDataType type_of(float*) { return ipp32f; }
constexpr IppDataType type_of(double*) { return ipp64f; }
constexpr IppDataType type_of(cf*) { return ipp32fc; }

// Tolerance: 2^-20 (float) or 2^-48 (double) of sum |h| |x|max, x in [-1, 1].
template <typename T>
double tol_for(const std::vector<T>& h) {
    double s = 0;
    for (auto& v : h) s += std::abs(v);
    return s * (std::is_same_v<T, double> ? 0x1p-48 : 0x1p-20) * 2;
}

// zeroFrom 0 or 1: taps zeroFrom, zeroFrom + 2, ... are zero, as in
// half-band and Hilbert designs.
template <typename T>
void check_primitive(int L, int n, int off, int zeroFrom = -1) {
    SCOPED_TRACE(::testing::Message() << "taps " << L << " samples " << n << " offset " << off << " zero taps from "
                                      << zeroFrom);
    auto h = rand_vec<T>(L, 1u + unsigned(L));
    if (zeroFrom >= 0)
        for (int k = zeroFrom; k < L; k += 2) h[size_t(k)] = T(0);
    auto hist = rand_vec<T>(L - 1, 2u + unsigned(L));
    auto x = rand_vec<T>(n, 3u + unsigned(n));
    int specSize, bufSize;
    ASSERT_EQ(ippsFIRSRGetSize(L, type_of(static_cast<T*>(nullptr)), &specSize, &bufSize), ippStsNoErr);
    std::vector<Ipp8u> spec(static_cast<size_t>(specSize)), buf(static_cast<size_t>(bufSize));
    ASSERT_EQ(init(h.data(), L, spec.data()), ippStsNoErr);
    Buf<T> src(n, off), dst(n, off);
    std::copy(x.begin(), x.end(), src.get());
    std::vector<T> dly(hist);
    dly.push_back(T(0));  // room for a zero-length history
    ASSERT_EQ(run(src.get(), dst.get(), n, spec.data(), dly.data(), dly.data(), buf.data()), ippStsNoErr);
    const auto want = convolve(h, hist, x);
    const double tol = tol_for(h);
    for (int i = 0; i < n; ++i) ASSERT_LE(std::abs(dst[i] - want[size_t(i)]), tol) << "sample " << i;
    // The delay line now holds the last L - 1 inputs of the series.
    std::vector<T> series(hist);
    series.insert(series.end(), x.begin(), x.end());
    for (int i = 0; i < L - 1; ++i) ASSERT_EQ(dly[size_t(i)], series[series.size() - size_t(L - 1) + size_t(i)]);
}

class FirVariants : public ::testing::TestWithParam<IppKernelVariant> {};

TEST_P(FirVariants, PrimitiveMatchesDirectConvolution) {
    VariantScope scope(GetParam());
    // Tap counts on both sides of the complex filters' switch to
    // overlap-save, and blocks shorter and longer than its transform.
    const int cases[][2] = {{1, 5}, {2, 17}, {7, 1}, {7, 1023}, {63, 500}, {64, 3001}, {127, 300}, {128, 3}, {255, 2049}, {1500, 7000}};
    for (const auto& c : cases) {
        for (int off : {0, 1}) {
            check_primitive<float>(c[0], c[1], off);
            check_primitive<double>(c[0], c[1], off);
            check_primitive<cf>(c[0], c[1], off);
        }
    }
}

// Real filters with every other tap zero run on the others alone: both
// parities, odd and even lengths, around the vector block and the chunk.
TEST_P(FirVariants, EveryOtherTapZeroMatchesDirectConvolution) {
    VariantScope scope(GetParam());
    const int cases[][2] = {{16, 40}, {17, 9}, {33, 1025}, {2047, 3000}};
    for (const auto& c : cases)
        for (int zeroFrom : {0, 1})
            for (int off : {0, 1}) {
                check_primitive<float>(c[0], c[1], off, zeroFrom);
                check_primitive<double>(c[0], c[1], off, zeroFrom);
            }
}

// Blocks of uneven size, some shorter than the filter, in place, must give
// the samples of one run over the whole signal.
TEST_P(FirVariants, BlockWiseEqualsOneLongRun) {
    VariantScope scope(GetParam());
    const int n = 5000;
    auto x = rand_vec<cf>(n, 41);
    // Direct form is bit-exact across splits; long filters run by blocks of
    // their own, where a split call changes only rounding (2^-20 of sum |h|).
    for (const int L : {63, 1024}) {
        SCOPED_TRACE(::testing::Message() << "taps " << L);
        auto h = rand_vec<cf>(L, 40u + unsigned(L));
        FIR_32fc whole(reinterpret_cast<const Ipp32fc*>(h.data()), L), parts(reinterpret_cast<const Ipp32fc*>(h.data()), L);
        std::vector<cf> one(x.size()), split(x);
        ASSERT_EQ(whole.Filter(reinterpret_cast<Ipp32fc*>(x.data()), reinterpret_cast<Ipp32fc*>(one.data()), n), ippStsNoErr);
        int pos = 0;
        for (int step : {3, 100, 1024, 1, 2500, 1372}) {
            ASSERT_EQ(parts.Filter_I(reinterpret_cast<Ipp32fc*>(split.data()) + pos, step), ippStsNoErr);
            pos += step;
        }
        ASSERT_EQ(pos, n);
        const double tol = L > 63 ? tol_for(h) : 0.0;
        for (int i = 0; i < n; ++i) ASSERT_LE(std::abs(one[size_t(i)] - split[size_t(i)]), tol) << i;
    }

    auto hr = rand_vec<float>(33, 42);
    auto xr = rand_vec<float>(999, 43);
    FIR_32f a, b;
    a.SetTaps(hr.data(), 33);
    b.SetTaps(hr.data(), 33);
    std::vector<float> ya(xr.size()), yb(xr.size());
    a.Filter(xr.data(), ya.data(), 999);
    b.Filter(xr.data(), yb.data(), 500);
    b.Filter(xr.data() + 500, yb.data() + 500, 499);
    EXPECT_EQ(ya, yb);
}

INSTANTIATE_TEST_SUITE_P(Variants, FirVariants, ::testing::ValuesIn(variants()),
                         [](const ::testing::TestParamInfo<IppKernelVariant>& i) {
                             return std::string(i.param == ippKernelAVX2 ? "avx2" : "generic");
                         });

// The impulse response of an antisymmetric (Hilbert-like) filter is its
// taps in stored order: reversed taps would flip its sign.
TEST(FirFilter, AntisymmetricTapsRunInStoredOrder) {
    const int L = 2047;
    std::vector<double> h(L, 0.0);
    for (int i = 0; i < L; i += 2) h[size_t(i)] = (2.0 / M_PI) / (i - 1023);
    ippsWinBlackmanStd_64f_I(h.data(), L);
    FIR_64f f;
    f.SetTaps(h.data(), L);
    std::vector<double> x(3000, 0.0), y(3000);
    x[10] = 1.0;
    f.Filter(x.data(), y.data(), 3000);
    for (int k = 0; k < L; ++k) ASSERT_EQ(y[size_t(10 + k)], h[size_t(k)]);
    EXPECT_EQ(y[9], 0.0);
}

TEST(FirFilter, SetTapsClearsTheHistory) {
    std::vector<float> h(256);
    for (int i = 0; i < 256; ++i) h[size_t(i)] = float(i + 1);
    FIR_32f f;
    f.SetTaps(h.data(), 256);
    ASSERT_EQ(f.dly.size(), 255u);
    for (size_t i = 0; i < 255; ++i) EXPECT_EQ(f.dly[i], 0.0f);
    std::vector<float> x(300, 1.0f), y(300);
    f.Filter(x.data(), y.data(), 300);
    EXPECT_NE(f.dly[0], 0.0f);
    f.SetTaps(h.data(), 256);  // again: silence before the next sample
    std::vector<float> imp(256, 0.0f);
    imp[0] = 1.0f;
    f.Filter_I(imp.data(), 256);
    for (int i = 0; i < 256; ++i) ASSERT_EQ(imp[size_t(i)], h[size_t(i)]);
    EXPECT_EQ(f.GetTaps().size(), 256u);
}

TEST(FirFilter, EmptyFilterAndDelay) {
    FIR_32fc f;
    EXPECT_EQ(f.FilterDelay(), 0);
    Ipp32fc x[4] = {};
    EXPECT_EQ(f.Filter(x, x, 4), ippStsNullPtrErr);
    std::vector<Ipp32fc> taps(8192, Ipp32fc{0.0f, 0.0f});
    f.SetTaps(taps.data(), 8192);
    EXPECT_EQ(f.FilterDelay(), 4096);
    FIR_32fc one;
    one.SetTaps(taps.data(), 1);
    EXPECT_EQ(one.Filter(x, x, 4), ippStsNoErr);
}

// ---- design ------------------------------------------------------------------------

double gain(const std::vector<double>& h, double f) {
    std::complex<double> acc = 0;
    for (size_t n = 0; n < h.size(); ++n) acc += h[n] * std::polar(1.0, -2.0 * M_PI * f * double(n));
    return std::abs(acc);
}

TEST(FirDesign, NormalisedPassBandsAndSymmetry) {
    std::vector<double> lp(255), hp(255), bp(1025);
    ASSERT_EQ(ippsFIRGenLowpass_64f(0.1, lp.data(), 255, ippWinBlackman, ippTrue, nullptr), ippStsNoErr);
    ASSERT_EQ(ippsFIRGenHighpass_64f(0.2, hp.data(), 255, ippWinBlackman, ippTrue, nullptr), ippStsNoErr);
    ASSERT_EQ(ippsFIRGenBandpass_64f(0.2, 0.3, bp.data(), 1025, ippWinBlackman, ippTrue, nullptr), ippStsNoErr);
    EXPECT_NEAR(gain(lp, 0.0), 1.0, 1e-12);
    EXPECT_NEAR(gain(lp, 0.1), 0.5, 0.01);  // windowed sinc: half amplitude at the cut-off
    EXPECT_LT(gain(lp, 0.2), 1e-4);
    EXPECT_NEAR(gain(hp, 0.5), 1.0, 1e-12);
    EXPECT_LT(gain(hp, 0.05), 1e-4);
    EXPECT_NEAR(gain(bp, 0.25), 1.0, 1e-12);
    EXPECT_LT(gain(bp, 0.1), 1e-4);
    EXPECT_LT(gain(bp, 0.4), 1e-4);
    for (size_t i = 0; i < 255; ++i) ASSERT_NEAR(lp[i], lp[254 - i], 1e-17);

    // Unnormalised rectangular low-pass is the bare 2 f sinc.
    std::vector<double> raw(9);
    ippsFIRGenLowpass_64f(0.25, raw.data(), 9, ippWinRect, ippFalse, nullptr);
    EXPECT_DOUBLE_EQ(raw[4], 0.5);
    EXPECT_NEAR(raw[5], 1.0 / M_PI, 1e-15);
    EXPECT_NEAR(raw[6], 0.0, 1e-15);

    std::vector<double> w(5, 1.0);
    ippsWinBlackmanStd_64f_I(w.data(), 5);
    EXPECT_NEAR(w[0], 0.0, 1e-15);
    EXPECT_NEAR(w[1], 0.42 - 0.08, 1e-15);
    EXPECT_DOUBLE_EQ(w[2], 1.0);
}

TEST(FirDesign, FloatAndComplexWrappers) {
    std::vector<Ipp32fc> c(63);
    FIRGenLowpass_32fc(0.05, c.data(), 63, ippWinBlackman, ippTrue);
    std::vector<double> d(63);
    ippsFIRGenLowpass_64f(0.05, d.data(), 63, ippWinBlackman, ippTrue, nullptr);
    for (size_t i = 0; i < 63; ++i) {
        EXPECT_EQ(c[i].im, 0.0f);
        EXPECT_EQ(c[i].re, float(d[i]));
    }
    std::vector<float> hp(63), bp(63);
    FIRGenTaps_32f(0.2, hp.data(), 63, ippWinBlackman, ippTrue, highPassFilter);
    FIRGenBandpass_32f(0.1, 0.2, bp.data(), 63, ippWinBlackman, ippTrue);
    double alt = 0;
    for (size_t i = 0; i < 63; ++i) alt += hp[i] * ((i % 2) ? -1.0 : 1.0);
    EXPECT_NEAR(std::fabs(alt), 1.0, 1e-6);
    EXPECT_NEAR(gain(std::vector<double>(bp.begin(), bp.end()), 0.15), 1.0, 1e-6);
}

TEST(FirDesign, RefusedSettings) {
    std::vector<double> h(16);
    EXPECT_EQ(ippsFIRGenHighpass_64f(0.2, h.data(), 16, ippWinBlackman, ippTrue, nullptr), ippStsFIRLenErr);
    EXPECT_EQ(ippsFIRGenLowpass_64f(0.5, h.data(), 16, ippWinBlackman, ippTrue, nullptr), ippStsRelFreqErr);
    EXPECT_EQ(ippsFIRGenLowpass_64f(0.0, h.data(), 16, ippWinBlackman, ippTrue, nullptr), ippStsRelFreqErr);
    EXPECT_EQ(ippsFIRGenBandpass_64f(0.3, 0.2, h.data(), 16, ippWinBlackman, ippTrue, nullptr), ippStsRelFreqErr);
    EXPECT_EQ(ippsFIRGenLowpass_64f(0.1, h.data(), 0, ippWinBlackman, ippTrue, nullptr), ippStsSizeErr);
    int a, b;
    EXPECT_EQ(ippsFIRSRGetSize(0, ipp32f, &a, &b), ippStsFIRLenErr);
    EXPECT_EQ(ippsFIRSRGetSize(4, IppDataType(3), &a, &b), ippStsBadArgErr);
}

}  // namespace
