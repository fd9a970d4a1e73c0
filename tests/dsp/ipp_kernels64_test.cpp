// The double element-wise kernels of the variant table, and the min/max
// ones of both widths, every variant this processor runs, against the
// scalar operations, at lengths around the vector widths, off the 64-byte
// grid and in place.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "ipp_test_util.h"
#include "ipps.h"

namespace {

class IppKernels64 : public ::testing::TestWithParam<IppKernelVariant> {
protected:
    ipptest::VariantScope scope{GetParam()};
};

constexpr int kLengths[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 1000, 4099};

TEST_P(IppKernels64, AddMulAndMulCAreTheRoundedOperations) {
    for (int n : kLengths) {
        const std::vector<double> x = ipptest::randd(n, 11), y = ipptest::randd(n, 12);
        ipptest::Buf<double> a(n, 1), b(n, 3), d(n, 1);
        for (int i = 0; i < n; ++i) a[i] = x[size_t(i)] * 1e3, b[i] = y[size_t(i)];
        const double c = -0.115129254649702;

        ASSERT_EQ(ippsAdd_64f(a.get(), b.get(), d.get(), n), ippStsNoErr);
        for (int i = 0; i < n; ++i) ASSERT_EQ(d[i], a[i] + b[i]) << "add n " << n << " i " << i;
        ASSERT_EQ(ippsMul_64f(a.get(), b.get(), d.get(), n), ippStsNoErr);
        for (int i = 0; i < n; ++i) ASSERT_EQ(d[i], a[i] * b[i]) << "mul n " << n << " i " << i;
        ASSERT_EQ(ippsMulC_64f(a.get(), c, d.get(), n), ippStsNoErr);
        for (int i = 0; i < n; ++i) ASSERT_EQ(d[i], a[i] * c) << "mulc n " << n << " i " << i;

        // In place on either source.
        ipptest::Buf<double> e(n, 2);
        for (int i = 0; i < n; ++i) e[i] = a[i];
        // Each step is checked against the stored result of the one before,
        // so no fused multiply-add in this file can blur the comparison.
        std::vector<double> prev(static_cast<size_t>(n));
        ASSERT_EQ(ippsMul_64f(b.get(), e.get(), e.get(), n), ippStsNoErr);
        for (int i = 0; i < n; ++i) ASSERT_EQ(e[i], a[i] * b[i]) << "mul in place n " << n;
        for (int i = 0; i < n; ++i) prev[size_t(i)] = e[i];
        ASSERT_EQ(ippsAdd_64f(e.get(), b.get(), e.get(), n), ippStsNoErr);
        for (int i = 0; i < n; ++i) ASSERT_EQ(e[i], prev[size_t(i)] + b[i]) << "add in place n " << n;
        for (int i = 0; i < n; ++i) prev[size_t(i)] = e[i];
        ASSERT_EQ(ippsMulC_64f(e.get(), 2.0, e.get(), n), ippStsNoErr);
        for (int i = 0; i < n; ++i) ASSERT_EQ(e[i], prev[size_t(i)] * 2.0) << "mulc in place n " << n;
    }
}

TEST_P(IppKernels64, PowerIsTheSquaredModulusWithinOneRounding) {
    for (int n : kLengths) {
        const std::vector<double> x = ipptest::randd(2 * n, 13);
        ipptest::Buf<Ipp64fc> a(n, 1);
        std::vector<double> d(size_t(n) + 1, -1.0);
        for (int i = 0; i < n; ++i) a[i] = {x[size_t(2 * i)] * std::ldexp(1.0, i % 30), x[size_t(2 * i + 1)]};
        ASSERT_EQ(ippsPowerSpectr_64fc(a.get(), d.data(), n), ippStsNoErr);
        for (int i = 0; i < n; ++i) {
            const long double re = a[i].re, im = a[i].im;
            const double exact = double(re * re + im * im);
            // Two roundings without a fused multiply-add, one with: never
            // more than a unit in the last place apart.
            ASSERT_LE(std::fabs(d[size_t(i)] - exact), std::ldexp(std::fabs(exact), -52)) << "n " << n << " i " << i;
        }
        ASSERT_EQ(d[size_t(n)], -1.0) << "wrote past the end";
    }
}

// Same bits as the scalar rule d = b < a ? b : a (max: b > a): a NaN in the
// first operand stays, one in the second gives the first, and of two zeros
// the first is kept.
template <typename T, typename Fn>
void ExpectMinMaxRule(Fn fn, bool isMin) {
    const T nan = std::numeric_limits<T>::quiet_NaN(), inf = std::numeric_limits<T>::infinity();
    const T pool[] = {T(0), -T(0), T(1), T(-1), T(2.5), inf, -inf, nan, std::numeric_limits<T>::denorm_min(), T(1e-3)};
    const int k = int(sizeof pool / sizeof pool[0]);
    // Every ordered pair, repeated to run through the vector body and tail.
    const int n = k * k * 3 + 5;
    ipptest::Buf<T> a(n, 1), b(n, 0), d(n, 1);
    for (int i = 0; i < n; ++i) a[i] = pool[(i / k) % k], b[i] = pool[i % k];
    ASSERT_EQ(fn(a.get(), b.get(), d.get(), n), ippStsNoErr);
    for (int i = 0; i < n; ++i) {
        const T want = isMin ? (b[i] < a[i] ? b[i] : a[i]) : (b[i] > a[i] ? b[i] : a[i]);
        ASSERT_EQ(std::memcmp(&d[i], &want, sizeof(T)), 0) << "a " << a[i] << " b " << b[i] << " gave " << d[i];
    }
}

TEST_P(IppKernels64, MinAndMaxEveryFollowTheCompareRule) {
    ExpectMinMaxRule<float>(ippsMinEvery_32f, true);
    ExpectMinMaxRule<float>(ippsMaxEvery_32f, false);
    ExpectMinMaxRule<double>(ippsMinEvery_64f, true);
    ExpectMinMaxRule<double>(ippsMaxEvery_64f, false);
}

// The fused detection step against the five operations it stands for:
// the filtered value within two roundings of the exact one, and min/max by
// the compare rule on the value it stored, over lengths about the vector
// widths, pointers off the grid, edge values and both modes (the ramp's
// filter alone, and with detection).
TEST_P(IppKernels64, PowerVideoFilterIsTheFilterThenMinMaxInOnePass) {
    const double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
    const double edge[] = {0.0, -0.0, inf, nan, std::numeric_limits<double>::denorm_min(), 1e300};
    for (int n : kLengths)
        for (bool detect : {false, true}) {
            SCOPED_TRACE(::testing::Message() << "n " << n << " detect " << detect);
            const std::vector<double> r = ipptest::randd(5 * n, 17);
            ipptest::Buf<Ipp64fc> x(n, 1);
            ipptest::Buf<double> f(n, 3), mn(n, 1), mx(n, 2);
            for (int i = 0; i < n; ++i) {
                x[i] = {r[size_t(5 * i)] * std::ldexp(1.0, i % 40 - 20), r[size_t(5 * i + 1)]};
                if (i % 7 == 3) x[i].re = edge[(i / 7) % 6];
                f[i] = std::fabs(r[size_t(5 * i + 2)]);
                mn[i] = r[size_t(5 * i + 3)], mx[i] = r[size_t(5 * i + 4)] + 0.5;
            }
            const std::vector<double> f0(f.get(), f.get() + n), mn0(mn.get(), mn.get() + n), mx0(mx.get(), mx.get() + n);
            const double a0 = 0.3125, b1 = 1.0 - a0;
            ASSERT_EQ(ippsPowerVideoFilter_64fc(x.get(), a0, b1, f.get(), detect ? mn.get() : nullptr,
                                                detect ? mx.get() : nullptr, n),
                      ippStsNoErr);
            for (int i = 0; i < n; ++i) {
                const long double re = x[i].re, im = x[i].im;
                const double exact = double(a0 * (re * re + im * im) + b1 * (long double)f0[size_t(i)]);
                if (std::isnan(exact) || std::isinf(exact))
                    ASSERT_EQ(std::memcmp(&f[i], &exact, sizeof exact), 0) << i << " gave " << f[i];
                else
                    ASSERT_LE(std::fabs(f[i] - exact), std::ldexp(std::fabs(exact), -51)) << i;
                const double v = f[i];
                const double lo = detect ? (mn0[size_t(i)] < v ? mn0[size_t(i)] : v) : mn0[size_t(i)];
                const double hi = detect ? (mx0[size_t(i)] > v ? mx0[size_t(i)] : v) : mx0[size_t(i)];
                ASSERT_EQ(std::memcmp(&mn[i], &lo, sizeof lo), 0) << i << " min " << mn[i];
                ASSERT_EQ(std::memcmp(&mx[i], &hi, sizeof hi), 0) << i << " max " << mx[i];
            }
        }
    double one = 1.0;
    const Ipp64fc z{0.0, 0.0};
    EXPECT_EQ(ippsPowerVideoFilter_64fc(&z, 1.0, 0.0, &one, &one, nullptr, 1), ippStsNullPtrErr);
    EXPECT_EQ(ippsPowerVideoFilter_64fc(&z, 1.0, 0.0, &one, nullptr, nullptr, 0), ippStsSizeErr);
}

// Two real frames through one complex transform, both halves: the
// interleaved windowed frames and the separated bins, bit for bit the
// scalar rule (no operation there can fuse), off the grid, with edge values,
// at every start bin a sweep can ask for including 0 and the Nyquist bin.
TEST_P(IppKernels64, WindowPairAndSplitPairFollowTheScalarRule) {
    const double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
    const double edge[] = {0.0, -0.0, inf, -inf, nan, std::numeric_limits<double>::denorm_min()};
    auto same = [](double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; };
    for (int n : {2, 4, 16, 64, 1024}) {
        const std::vector<double> r = ipptest::randd(5 * n, 23);
        ipptest::Buf<double> a(n, 1), b(n, 2), w(n, 3);
        ipptest::Buf<Ipp64fc> z(n, 1);
        for (int i = 0; i < n; ++i) {
            a[i] = r[size_t(i)], b[i] = r[size_t(n + i)], w[i] = r[size_t(2 * n + i)];
            if (i % 5 == 2) a[i] = edge[(i / 5) % 6];
        }
        ASSERT_EQ(ippsWindowPair_64f(a.get(), b.get(), w.get(), z.get(), n), ippStsNoErr);
        for (int i = 0; i < n; ++i) {
            ASSERT_TRUE(same(z[i].re, a[i] * w[i])) << "n " << n << " i " << i;
            ASSERT_TRUE(same(z[i].im, b[i] * w[i])) << "n " << n << " i " << i;
        }
        for (int i = 0; i < n; ++i) z[i] = {r[size_t(3 * n + i)], r[size_t(4 * n + i)]};
        z[n / 2].im = inf;
        for (int first : {0, 1, n / 4, n / 2}) {
            const int len = n / 2 - first + 1;
            ipptest::Buf<Ipp64fc> x(len + 1, 1), y(len + 1, 0);
            x[len] = y[len] = {-7.0, -7.0};
            ASSERT_EQ(ippsSplitPair_64fc(z.get(), n, first, x.get(), y.get(), len), ippStsNoErr);
            for (int j = 0; j < len; ++j) {
                const int k = first + j;
                const Ipp64fc p = z[k % n], q = z[(n - k) % n];
                const Ipp64fc wx = k == 0 ? Ipp64fc{p.re, 0.0} : Ipp64fc{0.5 * (p.re + q.re), 0.5 * (p.im - q.im)};
                const Ipp64fc wy = k == 0 ? Ipp64fc{p.im, 0.0} : Ipp64fc{0.5 * (p.im + q.im), 0.5 * (q.re - p.re)};
                ASSERT_TRUE(same(x[j].re, wx.re) && same(x[j].im, wx.im)) << "n " << n << " k " << k;
                ASSERT_TRUE(same(y[j].re, wy.re) && same(y[j].im, wy.im)) << "n " << n << " k " << k;
            }
            ASSERT_EQ(x[len].re, -7.0) << "wrote past the end";
            ASSERT_EQ(y[len].re, -7.0) << "wrote past the end";
        }
        Ipp64fc o[2];
        EXPECT_EQ(ippsSplitPair_64fc(z.get(), n, n / 2, o, o + 1, 2), ippStsSizeErr);  // past the Nyquist bin
    }
}

TEST_P(IppKernels64, Convert16sTo64fIsExactForEveryValue) {
    std::vector<Ipp16s> v(65536 + 3);
    for (size_t i = 0; i < v.size(); ++i) v[i] = Ipp16s(int(i % 65536) - 32768);
    std::vector<double> d(v.size());
    for (int sf : {0, 15, -3}) {
        ASSERT_EQ(ippsConvert_16s64f_Sfs(v.data(), d.data(), int(v.size()), sf), ippStsNoErr);
        for (size_t i = 0; i < v.size(); ++i) ASSERT_EQ(d[i], std::ldexp(double(v[i]), -sf)) << i << " sf " << sf;
    }
}

INSTANTIATE_TEST_SUITE_P(Variants, IppKernels64, ::testing::ValuesIn(ipptest::variants()),
                         [](const auto& info) { return info.param == ippKernelAVX2 ? "avx2" : "generic"; });

}  // namespace
