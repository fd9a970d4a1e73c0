// Window builders: mean 1 and symmetry, zero padding, and the
// Dolph-Chebyshev side lobes measured from the window's own spectrum.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numeric>
#include <vector>

#include "dsp/windows.h"
#include "qs_api.h"

namespace {

double mean(const std::vector<double>& w) { return std::accumulate(w.begin(), w.end(), 0.0) / double(w.size()); }

TEST(Window, NativeShapesHaveMeanOneAndAreSymmetric) {
    const int n = 1000;
    for (int type : {QS_WINDOW_NUTTALL, QS_WINDOW_BLACKMAN, QS_WINDOW_HAMMING, QS_WINDOW_FLAT_TOP, 7}) {
        SCOPED_TRACE(type);
        std::vector<double> w(n);
        qs::build_window(QS_RBW_SHAPE_NATIVE, w.data(), type, n, 0.0, 0);
        EXPECT_NEAR(mean(w), 1.0, 1e-12);
        for (int i = 0; i < n; ++i) ASSERT_NEAR(w[size_t(i)], w[size_t(n - 1 - i)], 1e-12);
    }
    // A Hamming window ends at 0.08 of its middle.
    std::vector<double> w(n);
    qs::build_window(QS_RBW_SHAPE_NATIVE, w.data(), QS_WINDOW_HAMMING, n, 0.0, 0);
    EXPECT_NEAR(w[0] / w[n / 2], 0.08, 1e-5);
    std::vector<double> nut(n), other(n);
    qs::build_window(QS_RBW_SHAPE_NATIVE, nut.data(), QS_WINDOW_NUTTALL, n, 0.0, 0);
    qs::build_window(QS_RBW_SHAPE_NATIVE, other.data(), 9, n, 0.0, 0);  // unknown types are Nuttall
    EXPECT_EQ(nut, other);
}

TEST(Window, ZeroPaddingLeavesZerosAndMeanOne) {
    const int n = 4096, pad = 1000;
    for (int shape : {QS_RBW_SHAPE_NATIVE, QS_RBW_SHAPE_GAUSSIAN}) {
        std::vector<double> w(n, 5.0);
        qs::build_window(shape, w.data(), QS_WINDOW_FLAT_TOP, n, 0.0, pad);
        for (int i = n - pad; i < n; ++i) ASSERT_EQ(w[size_t(i)], 0.0);
        EXPECT_NEAR(mean(w), 1.0, 1e-12);
        for (int i = 0; i < n - pad; ++i) ASSERT_NEAR(w[size_t(i)], w[size_t(n - pad - 1 - i)], 1e-9);
    }
    // The low-pass shape ignores the padding.
    std::vector<double> a(n), b(n);
    qs::build_window(QS_RBW_SHAPE_LOWPASS, a.data(), 0, n, 3.2, 0);
    qs::build_window(QS_RBW_SHAPE_LOWPASS, b.data(), 0, n, 3.2, pad);
    EXPECT_EQ(a, b);
    EXPECT_NEAR(mean(a), 1.0, 1e-12);
    EXPECT_GT(std::fabs(a[n - 1]), 0.0);
}

TEST(Window, FloatAndComplexForms) {
    const int n = 512, pad = 12;
    std::vector<float> rt(n);
    std::vector<double> ref(n);
    qs::build_rt_window(rt.data(), n, pad);
    qs::build_window(QS_RBW_SHAPE_NATIVE, ref.data(), QS_WINDOW_NUTTALL, n, 0.0, pad);
    double sum = 0;
    for (int i = 0; i < n; ++i) {
        ASSERT_NEAR(rt[size_t(i)], ref[size_t(i)], 1e-6);
        sum += rt[size_t(i)];
    }
    EXPECT_NEAR(sum / n, 1.0, 1e-6);

    std::vector<double> c(2 * n);
    std::vector<Ipp64fc> cc(n);
    qs::build_cplx_window_f(c.data(), QS_RBW_SHAPE_GAUSSIAN, 0, n, 0.0, pad);
    qs::build_cplx_window_fc(cc.data(), QS_RBW_SHAPE_GAUSSIAN, 0, n, 0.0, pad);
    qs::build_window(QS_RBW_SHAPE_GAUSSIAN, ref.data(), 0, n, 0.0, pad);
    for (int i = 0; i < n; ++i) {
        ASSERT_EQ(c[2 * size_t(i)], ref[size_t(i)]);
        ASSERT_EQ(c[2 * size_t(i) + 1], ref[size_t(i)]);
        ASSERT_EQ(cc[size_t(i)].re, ref[size_t(i)]);
        ASSERT_EQ(cc[size_t(i)].im, ref[size_t(i)]);
    }

    float f[3] = {1, 2, 3};
    qs::normalizeWindow(f, 3);
    EXPECT_FLOAT_EQ(f[2], 1.5f);
    qs::normalizeWindow(f, 0);
    EXPECT_FLOAT_EQ(f[2], 1.5f);
}

// The defining property of the Dolph-Chebyshev window: every side lobe of
// its spectrum sits atten dB below the main lobe.
TEST(Window, ChebyshevSideLobesAtTheRequestedLevel) {
    for (int N : {31, 64}) {
        const float atten = 60.0f;
        std::vector<float> w(static_cast<size_t>(N));
        qs::cheby_win(w.data(), N, atten);
        float peak = 0;
        for (int i = 0; i < N; ++i) {
            peak = std::max(peak, w[size_t(i)]);
            ASSERT_NEAR(w[size_t(i)], w[size_t(N - 1 - i)], 1e-6);
        }
        EXPECT_FLOAT_EQ(peak, 1.0f);
        auto mag = [&](double f) {
            std::complex<double> acc = 0;
            for (int i = 0; i < N; ++i) acc += double(w[size_t(i)]) * std::polar(1.0, -2 * M_PI * f * i);
            return std::abs(acc);
        };
        const double main = mag(0.0);
        // Main lobe edge: x0 cos(pi f) = 1 in the Chebyshev variable.
        const double x0 = std::cosh(std::acosh(std::pow(10.0, atten / 20.0)) / (N - 1));
        const double edge = std::acos(1.0 / x0) / M_PI;
        double worst = 0;
        for (double f = edge * 1.05; f <= 0.5; f += 1e-4) worst = std::max(worst, mag(f));
        EXPECT_NEAR(20 * std::log10(worst / main), -atten, 0.5) << "N " << N;
    }

    std::vector<float> cw(256);
    qs::build_cheby_window(cw.data(), 256);
    for (int k = 1; k < 256; ++k) {
        ASSERT_TRUE(std::isfinite(cw[size_t(k)]));
        ASSERT_NEAR(cw[size_t(k)], cw[size_t(256 - k)], 1e-5);
    }
}

}  // namespace
