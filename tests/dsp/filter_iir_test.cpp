// IIR design (Butterworth, Chebyshev I by the bilinear transform) and
// filtering, checked by the response of the taps and by a plain
// difference equation.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "dsp/ipps_states.h"
#include "ipp_test_util.h"

using namespace ipptest;

namespace {

// |H(exp(j 2 pi f))| of taps B(0..N), A(0..N).
template <typename T>
double response(const T* taps, int order, double f) {
    std::complex<long double> num = 0, den = 0;
    for (int k = 0; k <= order; ++k) {
        const auto z = std::polar(1.0L, -2.0L * M_PIl * (long double)f * k);
        num += (long double)taps[k] * z;
        den += (long double)taps[order + 1 + k] * z;
    }
    return double(std::abs(num / den));
}

// Taps held as polynomials in double limit the accuracy where many poles
// crowd together (high orders near 0 or half the rate): the cases below are
// held to 1e-9, and a crowded one to its conditioning.
TEST(IirDesign, ButterworthIsThreeDbDownAtTheCutOff) {
    const struct {
        int order;
        double f, tol;
    } cases[] = {{1, 0.01, 1e-9}, {2, 0.1, 1e-9}, {3, 0.3, 1e-9}, {4, 0.45, 1e-9}, {6, 0.1, 1e-9},
                 {8, 0.25, 1e-9}, {12, 0.2, 1e-9}, {6, 0.01, 1e-6}};
    for (const auto& c : cases) {
        const int order = c.order;
        const double f = c.f, tol = c.tol;
        {
            SCOPED_TRACE(::testing::Message() << "order " << order << " f " << f);
            std::vector<double> lp(static_cast<size_t>(2 * order + 2)), hp(static_cast<size_t>(2 * order + 2));
            ASSERT_EQ(ippsIIRGenLowpass_64f(f, 0.0, order, lp.data(), ippButterworth, nullptr), ippStsNoErr);
            ASSERT_EQ(ippsIIRGenHighpass_64f(f, 0.0, order, hp.data(), ippButterworth, nullptr), ippStsNoErr);
            EXPECT_EQ(lp[size_t(order + 1)], 1.0);  // A(0)
            EXPECT_NEAR(response(lp.data(), order, f), M_SQRT1_2, tol);
            EXPECT_NEAR(response(hp.data(), order, f), M_SQRT1_2, tol);
            EXPECT_NEAR(response(lp.data(), order, 0.0), 1.0, 1e-12);
            EXPECT_NEAR(response(hp.data(), order, 0.5), 1.0, 1e-12);
            EXPECT_LT(response(lp.data(), order, 0.5), 1e-6);
            EXPECT_LT(response(hp.data(), order, 0.0), 1e-6);
        }
    }
}

TEST(IirDesign, ChebyshevRipplesDownToTheCutOff) {
    for (int order : {1, 2, 4, 5}) {
        for (double ripple : {0.2, 1.0, 3.0}) {
            SCOPED_TRACE(::testing::Message() << "order " << order << " ripple " << ripple);
            const double f = 0.125, floor = std::pow(10.0, -ripple / 20.0);
            std::vector<double> lp(static_cast<size_t>(2 * order + 2)), hp(static_cast<size_t>(2 * order + 2));
            ASSERT_EQ(ippsIIRGenLowpass_64f(f, ripple, order, lp.data(), ippChebyshev1, nullptr), ippStsNoErr);
            ASSERT_EQ(ippsIIRGenHighpass_64f(f, ripple, order, hp.data(), ippChebyshev1, nullptr), ippStsNoErr);
            EXPECT_NEAR(response(lp.data(), order, f), floor, 1e-9);
            EXPECT_NEAR(response(hp.data(), order, f), floor, 1e-9);
            EXPECT_NEAR(response(lp.data(), order, 0.0), order % 2 ? 1.0 : floor, 1e-9);
            for (double p = 0.0; p < f; p += f / 50) {
                const double g = response(lp.data(), order, p);
                ASSERT_GE(g, floor - 1e-9);
                ASSERT_LE(g, 1.0 + 1e-9);
            }
            EXPECT_LT(response(lp.data(), order, 0.3), floor);
        }
    }
}

TEST(IirDesign, RefusedSettings) {
    std::vector<double> t(30);
    EXPECT_EQ(ippsIIRGenLowpass_64f(0.1, 1.0, 0, t.data(), ippButterworth, nullptr), ippStsIIROrderErr);
    EXPECT_EQ(ippsIIRGenLowpass_64f(0.1, 1.0, 13, t.data(), ippButterworth, nullptr), ippStsIIROrderErr);
    EXPECT_EQ(ippsIIRGenLowpass_64f(0.5, 1.0, 2, t.data(), ippButterworth, nullptr), ippStsRelFreqErr);
    EXPECT_EQ(ippsIIRGenHighpass_64f(0.0, 1.0, 2, t.data(), ippButterworth, nullptr), ippStsRelFreqErr);
    EXPECT_EQ(ippsIIRGenLowpass_64f(0.1, 0.0, 2, t.data(), ippChebyshev1, nullptr), ippStsRangeErr);
    EXPECT_EQ(ippsIIRGenLowpass_64f(0.1, 29.5, 2, t.data(), ippChebyshev1, nullptr), ippStsRangeErr);
    EXPECT_EQ(ippsIIRGenLowpass_64f(0.1, 29.0, 2, t.data(), ippChebyshev1, nullptr), ippStsNoErr);
    int sz;
    EXPECT_EQ(ippsIIRGetStateSize_32f(13, &sz), ippStsIIROrderErr);
}

// y[n] = (sum B x - sum A y) / A(0), in long double.
std::vector<double> difference_equation(const std::vector<double>& taps, int order, const std::vector<double>& x) {
    std::vector<double> y(x.size());
    for (size_t n = 0; n < x.size(); ++n) {
        long double acc = 0;
        for (int k = 0; k <= order; ++k) {
            if (n >= size_t(k)) acc += (long double)taps[size_t(k)] * x[n - size_t(k)];
            if (k > 0 && n >= size_t(k)) acc -= (long double)taps[size_t(order + 1 + k)] * y[n - size_t(k)];
        }
        y[n] = double(acc / taps[size_t(order + 1)]);
    }
    return y;
}

TEST(IirFilter, MatchesTheDifferenceEquationAcrossBlocks) {
    const int order = 4, n = 3000;
    std::vector<double> taps(2 * order + 2);
    ippsIIRGenLowpass_64f(0.05, 0.5, order, taps.data(), ippChebyshev1, nullptr);
    for (auto& t : taps) t *= 2.0;  // A(0) = 2: the filter must divide it out
    const auto x = randd(n, 17);
    const auto want = difference_equation(taps, order, x);

    iir_64f f(order, taps.data());
    std::vector<double> y(x);
    f.IIR_I(y.data(), 1000);
    f.IIR(y.data() + 1000, y.data() + 1000, 1);
    f.IIR(y.data() + 1001, y.data() + 1001, n - 1001);
    for (int i = 0; i < n; ++i) ASSERT_NEAR(y[size_t(i)], want[size_t(i)], 1e-12) << i;

    std::vector<float> tf(taps.begin(), taps.end()), xf(x.begin(), x.end()), yf(static_cast<size_t>(n));
    iir_32f g(order, tf.data());
    g.IIR(xf.data(), yf.data(), n);
    const auto wantf = difference_equation(std::vector<double>(tf.begin(), tf.end()), order,
                                           std::vector<double>(xf.begin(), xf.end()));
    for (int i = 0; i < n; ++i) ASSERT_NEAR(yf[size_t(i)], wantf[size_t(i)], 1e-6) << i;
}

TEST(IirFilter, DesigningConstructorsAndRedesign) {
    // The audio chain's shapes: a first-order Chebyshev high-pass and a
    // first-order Butterworth low-pass.
    iir_32f hp(1000.0 / 32000.0, 0.2, 1, ippChebyshev1, highPassFilter);
    std::vector<double> want(4);
    ippsIIRGenHighpass_64f(1000.0 / 32000.0, 0.2, 1, want.data(), ippChebyshev1, nullptr);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(hp.taps[i], float(want[size_t(i)]));
    std::vector<float> dc(2000, 1.0f);
    hp.IIR_I(dc.data(), 2000);
    EXPECT_LT(std::fabs(dc[1999]), 1e-4f);

    hp.SetTaps(0.2, 0.0, ippButterworth, lowPassFilter);
    std::vector<float> ones(2000, 1.0f);
    hp.IIR_I(ones.data(), 2000);
    EXPECT_NEAR(ones[1999], 1.0f, 1e-5f);

    iir_64f lp(0.1, 0.0, 3, ippButterworth, lowPassFilter);
    std::vector<double> d(500, 1.0);
    lp.IIR_I(d.data(), 500);
    EXPECT_NEAR(d[499], 1.0, 1e-9);
    EXPECT_EQ(lp.f_order, 3);
}

// A design the primitive refuses (a de-emphasis corner above half the rate)
// yields zero taps, and the filter then leaves the signal as it is.
TEST(IirFilter, RefusedDesignPassesTheSignalThrough) {
    iir_32f f(0.50928, 0.2, 1, ippButterworth, lowPassFilter);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(f.taps[i], 0.0f);
    std::vector<float> x = {1.0f, -2.0f, 3.0f}, y(3, 0.0f), z(x);
    f.IIR(x.data(), y.data(), 3);
    f.IIR_I(z.data(), 3);
    EXPECT_EQ(y, x);
    EXPECT_EQ(z, x);
}

}  // namespace
