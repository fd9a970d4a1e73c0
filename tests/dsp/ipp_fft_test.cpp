// Transforms against a direct DFT in long double: every family, small
// sizes in full, 2^12 and 2^20 on a spread of bins.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "dsp/ipps_states.h"
#include "ipp_test_util.h"

using namespace ipptest;

namespace {

using cld = std::complex<long double>;

// exp(j 2 pi m / n) for m < n in long double, made once per size.
const std::vector<cld>& twiddles(size_t n) {
    static std::vector<cld> table;
    if (table.size() != n) {
        table.resize(n);
        for (size_t m = 0; m < n; ++m) {
            const long double ph = 2.0L * M_PIl * (long double)m / (long double)n;
            table[m] = cld(std::cos(ph), std::sin(ph));
        }
    }
    return table;
}

// Bin k of the DFT of x (sign -1 forward, +1 inverse), with the phase index
// reduced mod N so that the twiddles stay exact.
template <typename T>
cld dft_bin(const std::vector<std::complex<T>>& x, int k, int sign) {
    const size_t n = x.size();
    const auto& w = twiddles(n);
    cld acc = 0;
    for (size_t i = 0; i < n; ++i) {
        size_t m = (i * size_t(k)) % n;
        if (sign < 0 && m != 0) m = n - m;
        acc += cld(x[i].real(), x[i].imag()) * w[m];
    }
    return acc;
}

// Bins to check: all of them up to 256 points, else a spread that
// includes the ends and the middle.
std::vector<int> bins_of(int n) {
    std::vector<int> b;
    if (n <= 256) {
        for (int k = 0; k < n; ++k) b.push_back(k);
    } else {
        for (int k : {0, 1, 2, 3, n / 4, n / 2 - 1, n / 2, n / 2 + 1, n - 1}) b.push_back(k);
        for (int k = 7; k < n; k += n / 7 + 3) b.push_back(k);
    }
    return b;
}

// Error bound: a few ulp per stage, relative to the input's energy.
template <typename T>
double tolerance(int order, double norm) {
    return 4.0 * std::numeric_limits<T>::epsilon() * (order + 1) * norm;
}

template <typename T>
double norm_of(const std::vector<std::complex<T>>& x) {
    double s = 0;
    for (auto& v : x) s += std::norm(std::complex<double>(v.real(), v.imag()));
    return std::sqrt(s);
}

// ---- real transforms ----------------------------------------------------------------

template <typename T, typename Obj>
void check_real_forward(int order) {
    const int n = 1 << order;
    SCOPED_TRACE(::testing::Message() << "order " << order);
    auto r = randd(n, 100u + unsigned(order));
    std::vector<T> x(r.begin(), r.end()), y(static_cast<size_t>(n));
    std::vector<std::complex<T>> xc(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) xc[size_t(i)] = {x[size_t(i)], 0};
    Obj f(order, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast);
    f.FwdFFT(x.data(), y.data());
    const double tol = tolerance<T>(order, norm_of(xc));
    for (int k : bins_of(n)) {
        if (k > n / 2) continue;
        const cld want = dft_bin(xc, k, -1);
        if (k == 0) {
            EXPECT_NEAR(y[0], double(want.real()), tol);
        } else if (k == n / 2) {
            EXPECT_NEAR(y[1], double(want.real()), tol);  // Perm entry 0, im part
        } else {
            EXPECT_NEAR(y[2 * size_t(k)], double(want.real()), tol) << "bin " << k;
            EXPECT_NEAR(y[2 * size_t(k) + 1], double(want.imag()), tol) << "bin " << k;
        }
    }
}

TEST(IppFft, RealForwardIsPermPackedDft) {
    for (int order : {1, 2, 3, 5, 8, 12, 20}) {
        check_real_forward<float, fft_R_32f>(order);
        check_real_forward<double, fft_R_64f>(order);
    }
}

// Bin 0 and the Nyquist bin share the first pair of the packed form; the
// conjugate-symmetric unpacking puts them and the mirror image in place.
TEST(IppFft, PermEntryZeroHoldsBinZeroAndNyquist) {
    // x[n] = 1 + (-1)^n / 2: bin 0 = N, bin N/2 = N/2, all else 0.
    const int n = 16;
    std::vector<float> xf(n), p(n);
    for (int i = 0; i < n; ++i) xf[size_t(i)] = 1.0f + ((i & 1) ? -0.5f : 0.5f);
    std::vector<Ipp32fc> full(n);
    fft_R_32f_fwd_direct(xf.data(), p.data(), 4, IPP_FFT_DIV_FWD_BY_N, ippAlgHintAccurate);
    EXPECT_NEAR(p[0], 1.0f, 1e-6f);
    EXPECT_NEAR(p[1], 0.5f, 1e-6f);
    // A ramp has a spectrum with both parts, to see the mirror image.
    for (int i = 0; i < n; ++i) xf[size_t(i)] = float(i * i % 7);
    fft_R_32f_fwd_direct(xf.data(), p.data(), 4, IPP_FFT_NODIV_BY_ANY, ippAlgHintAccurate);
    ippsConjPerm_32fc(p.data(), full.data(), n);
    EXPECT_EQ(full[0].re, p[0]);
    EXPECT_EQ(full[0].im, 0.0f);
    EXPECT_EQ(full[n / 2].re, p[1]);
    for (int k = 1; k < n / 2; ++k) {
        EXPECT_EQ(full[size_t(k)].re, p[2 * size_t(k)]);
        EXPECT_EQ(full[size_t(n - k)].re, p[2 * size_t(k)]);
        EXPECT_EQ(full[size_t(n - k)].im, -p[2 * size_t(k) + 1]);
    }
}

// ---- complex transforms ----------------------------------------------------------------

template <typename T>
std::vector<std::complex<T>> rand_complex(int n, unsigned seed) {
    auto r = randd(2 * n, seed);
    std::vector<std::complex<T>> x(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) x[size_t(i)] = {T(r[2 * size_t(i)]), T(r[2 * size_t(i) + 1])};
    return x;
}

template <typename T, typename C>
void expect_bins(const std::vector<std::complex<T>>& x, const C* y, int order, int sign, long double scale) {
    const double tol = tolerance<T>(order, norm_of(x)) * double(scale);
    for (int k : bins_of(1 << order)) {
        const cld want = dft_bin(x, k, sign) * scale;
        ASSERT_NEAR(y[k].re, double(want.real()), tol) << "bin " << k;
        ASSERT_NEAR(y[k].im, double(want.imag()), tol) << "bin " << k;
    }
}

TEST(IppFft, ComplexForwardAndInverseAreDft) {
    for (int order : {0, 1, 3, 6, 12, 20}) {
        SCOPED_TRACE(::testing::Message() << "order " << order);
        const int n = 1 << order;
        auto xf = rand_complex<float>(n, 200u + unsigned(order));
        std::vector<Ipp32fc> yf(static_cast<size_t>(n));
        fft_C_32fc f(order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast);
        f.FwdFFT(reinterpret_cast<Ipp32fc*>(xf.data()), yf.data());
        expect_bins(xf, yf.data(), order, -1, 1.0L / n);
        f.InvFFT(reinterpret_cast<Ipp32fc*>(xf.data()), yf.data());
        expect_bins(xf, yf.data(), order, +1, 1.0L);

        auto xd = rand_complex<double>(n, 300u + unsigned(order));
        std::vector<Ipp64fc> yd(static_cast<size_t>(n));
        fft_C_64fc d(order, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast);
        d.FwdFFT(reinterpret_cast<Ipp64fc*>(xd.data()), yd.data());
        expect_bins(xd, yd.data(), order, -1, 1.0L);
    }
}

// ---- scaling, round trips, aliasing ---------------------------------------------------------

TEST(IppFft, ScaleFlagsAndRoundTrips) {
    const int order = 10, n = 1 << order;
    auto r = randd(n, 5);
    std::vector<float> x(r.begin(), r.end());
    struct Case {
        int flag;
        double fwdGain;  // forward bin 0 of a constant 1
        double trip;     // inverse(forward(x)) / x
    } cases[] = {{IPP_FFT_DIV_FWD_BY_N, 1.0, 1.0},
                 {IPP_FFT_DIV_INV_BY_N, double(n), 1.0},
                 {IPP_FFT_DIV_BY_SQRTN, std::sqrt(double(n)), 1.0},
                 {IPP_FFT_NODIV_BY_ANY, double(n), double(n)}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "flag " << c.flag);
        fft_R_32f f(order, c.flag, ippAlgHintFast);
        std::vector<float> ones(size_t(n), 1.0f), y(static_cast<size_t>(n)), z(static_cast<size_t>(n));
        f.FwdFFT(ones.data(), y.data());
        EXPECT_NEAR(y[0], c.fwdGain, 1e-4 * c.fwdGain);
        f.FwdFFT(x.data(), y.data());
        f.InvFFT(y.data(), z.data());
        for (int i = 0; i < n; ++i) ASSERT_NEAR(z[size_t(i)], c.trip * x[size_t(i)], 1e-5 * c.trip);

        fft_C_32fc cf(order, c.flag, ippAlgHintFast);
        std::vector<Ipp32fc> cx(static_cast<size_t>(n)), cy(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) cx[size_t(i)] = {x[size_t(i)], -x[size_t(n - 1 - i)]};
        cf.FwdFFT(cx.data(), cy.data());
        cf.InvFFT(cy.data(), cy.data());
        for (int i = 0; i < n; ++i) ASSERT_NEAR(cy[size_t(i)].im, c.trip * cx[size_t(i)].im, 1e-5 * c.trip);
    }
    fft_R_64f d(order, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast);
    std::vector<double> dx(r), dy(static_cast<size_t>(n));
    d.FwdFFT(dx.data(), dy.data());
    d.InvFFT(dy.data(), dy.data());
    for (int i = 0; i < n; ++i) ASSERT_NEAR(dy[size_t(i)], r[size_t(i)], 1e-13);
}

// In place and off the 64-byte grid the transform goes other ways through
// the layer; the result must not change beyond rounding.
TEST(IppFft, InPlaceAndUnalignedArraysGiveTheSameResult) {
    const int order = 11, n = 1 << order;
    auto r = randd(2 * n, 9);
    fft_R_32f f(order, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast);
    fft_C_32fc c(order, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast);
    std::vector<float> ref(static_cast<size_t>(2 * n)), cref(static_cast<size_t>(2 * n));
    std::vector<float> x(r.begin(), r.end());
    f.FwdFFT(x.data(), ref.data());
    c.FwdFFT(reinterpret_cast<Ipp32fc*>(x.data()), reinterpret_cast<Ipp32fc*>(cref.data()));
    for (int off : {0, 1, 2}) {
        SCOPED_TRACE(::testing::Message() << "offset " << off);
        Buf<float> a(2 * n, off), b(2 * n, 1 - off % 2);
        std::copy(x.begin(), x.end(), a.get());
        f.FwdFFT(a.get(), b.get());
        for (int i = 0; i < n; ++i) ASSERT_NEAR(b[i], ref[size_t(i)], 1e-3);
        f.FwdFFT(a.get(), a.get());
        for (int i = 0; i < n; ++i) ASSERT_NEAR(a[i], ref[size_t(i)], 1e-3);
        f.InvFFT(a.get(), a.get());
        for (int i = 0; i < n; ++i) ASSERT_NEAR(a[i], n * x[size_t(i)], 1e-2);

        std::copy(x.begin(), x.end(), a.get());
        auto* ca = reinterpret_cast<Ipp32fc*>(a.get());  // off the grid by 0, 4 or 8 bytes
        c.FwdFFT(ca, ca);
        for (int i = 0; i < 2 * n; ++i) ASSERT_NEAR(a[i], cref[size_t(i)], 1e-3);
    }
}

// The half spectrum in n + 2 elements: the Perm transform's bins, with
// bin 0 and the Nyquist bin in their own pairs, scaled alike, on and off
// the grid, and not one element past its end.
TEST(IppFft, ForwardIntoCcsHoldsEveryBinOfThePermForm) {
    const int order = 10, n = 1 << order;
    auto r = randd(n, 21);
    const std::vector<float> x(r.begin(), r.end());
    for (int flag : {IPP_FFT_NODIV_BY_ANY, IPP_FFT_DIV_FWD_BY_N}) {
        fft_R_32f f(order, flag, ippAlgHintFast);
        std::vector<float> perm(static_cast<size_t>(n));
        f.FwdFFT(const_cast<float*>(x.data()), perm.data());
        for (int off : {0, 1}) {
            SCOPED_TRACE(::testing::Message() << "flag " << flag << " offset " << off);
            Buf<float> in(n, off), ccs(n + 3, 1 - off);
            std::copy(x.begin(), x.end(), in.get());
            ccs[n + 2] = 123.0f;
            ASSERT_EQ(ippsFFTFwd_RToCCS_32f(in.get(), ccs.get(), f.fftSpec, f.work.ptr), ippStsNoErr);
            EXPECT_EQ(ccs[0], perm[0]);
            EXPECT_EQ(ccs[1], 0.0f);
            EXPECT_EQ(ccs[n], perm[1]);
            EXPECT_EQ(ccs[n + 1], 0.0f);
            EXPECT_EQ(ccs[n + 2], 123.0f);
            for (int i = 2; i < n; ++i) ASSERT_EQ(ccs[i], perm[size_t(i)]) << i;
        }
    }
}

TEST(IppFft, OneSpecServesThreadsWithTheirOwnBuffers) {
    const int order = 12, n = 1 << order;
    int specSize, initSize, workSize;
    ASSERT_EQ(ippsFFTGetSize_R_32f(order, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast, &specSize, &initSize, &workSize), ippStsNoErr);
    smart_ptr<Ipp8u> spec(specSize), init(initSize);
    IppsFFTSpec_R_32f* s = nullptr;
    ASSERT_EQ(ippsFFTInit_R_32f(&s, order, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast, spec, init), ippStsNoErr);
    auto r = randd(n, 77);
    std::vector<float> x(r.begin(), r.end()), want(static_cast<size_t>(n));
    smart_ptr<Ipp8u> w0(workSize);
    ippsFFTFwd_RToPerm_32f(x.data(), want.data(), s, w0);
    std::vector<float> got[2] = {std::vector<float>(static_cast<size_t>(n)), std::vector<float>(static_cast<size_t>(n))};
    auto run = [&](int t) {
        std::vector<Ipp8u> work(size_t(workSize) + 64);
        for (int rep = 0; rep < 50; ++rep) ippsFFTFwd_RToPerm_32f(x.data(), got[t].data(), s, work.data());
    };
    std::thread a(run, 0), b(run, 1);
    a.join();
    b.join();
    EXPECT_EQ(got[0], want);
    EXPECT_EQ(got[1], want);
    EXPECT_EQ(ippsFFTFree_R_32f(s), ippStsNoErr);
    EXPECT_EQ(ippsFFTFwd_RToPerm_32f(x.data(), want.data(), s, w0), ippStsBadArgErr);  // freed spec
}

// Workers build their own transforms on their own threads: the planner
// must be safe to enter from several at once. Each thread plans sizes of
// its own, so the planner's tables change under the others.
TEST(IppFft, TransformsMayBeBuiltOnSeveralThreadsAtOnce) {
    std::vector<int> bad(4, 0);
    auto run = [&](int t) {
        for (int rep = 0; rep < 60; ++rep) {
            const int order = 3 + (rep * 4 + t) % 13, n = 1 << order;
            std::vector<float> x(static_cast<size_t>(n), 0.0f), y(static_cast<size_t>(n));
            x[1] = 1.0f;  // bin k of a unit impulse at 1 is exp(-j 2 pi k / n)
            fft_R_32f f(order, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast);
            fft_C_64fc c(order, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast);
            f.FwdFFT(x.data(), y.data());
            const int k = n / 8;
            if (std::fabs(y[2 * size_t(k)] - std::cos(2 * M_PI * k / n)) > 1e-6 ||
                std::fabs(y[2 * size_t(k) + 1] + std::sin(2 * M_PI * k / n)) > 1e-6)
                ++bad[size_t(t)];
        }
    };
    std::vector<std::thread> th;
    for (int t = 0; t < 4; ++t) th.emplace_back(run, t);
    for (auto& t : th) t.join();
    EXPECT_EQ(bad, std::vector<int>(4, 0));
}

TEST(IppFft, RefusedOrdersAndFlags) {
    int a, b, c;
    EXPECT_EQ(ippsFFTGetSize_R_32f(0, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast, &a, &b, &c), ippStsFftOrderErr);
    EXPECT_EQ(ippsFFTGetSize_C_32fc(-1, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast, &a, &b, &c), ippStsFftOrderErr);
    EXPECT_EQ(ippsFFTGetSize_C_64fc(31, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast, &a, &b, &c), ippStsFftOrderErr);
    EXPECT_EQ(ippsFFTGetSize_R_64f(4, 3, ippAlgHintFast, &a, &b, &c), ippStsFftFlagErr);
    EXPECT_EQ(ippsFFTGetSize_R_64f(4, 1, ippAlgHintFast, nullptr, &b, &c), ippStsNullPtrErr);
    EXPECT_THROW(fft_R_32f(0, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast), std::invalid_argument);
    EXPECT_THROW(fft_C_32fc(5, 0, ippAlgHintFast), std::invalid_argument);
}

}  // namespace
