// Magnitude and natural logarithm kernels, every variant this processor
// runs, against scalar references: the exact magnitude worked in double,
// and std::log.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "ipp_test_util.h"
#include "ipps.h"

namespace {

// Distance in representable values; both finite, or both the same
// infinity (0), else the largest distance.
int64_t UlpsF(float a, float b) {
    if (a == b) return 0;
    if (!std::isfinite(a) || !std::isfinite(b)) return INT64_MAX;
    int32_t ia, ib;
    std::memcpy(&ia, &a, 4);
    std::memcpy(&ib, &b, 4);
    const int64_t oa = ia < 0 ? int64_t(INT32_MIN) - ia : ia;
    const int64_t ob = ib < 0 ? int64_t(INT32_MIN) - ib : ib;
    return oa > ob ? oa - ob : ob - oa;
}

int64_t UlpsD(double a, double b) {
    if (a == b) return 0;
    if (!std::isfinite(a) || !std::isfinite(b)) return INT64_MAX;
    int64_t ia, ib;
    std::memcpy(&ia, &a, 8);
    std::memcpy(&ib, &b, 8);
    // Both signs of finite logs differ by far less than 2^62 steps here.
    const __int128 oa = ia < 0 ? __int128(INT64_MIN) - ia : ia;
    const __int128 ob = ib < 0 ? __int128(INT64_MIN) - ib : ib;
    const __int128 d = oa > ob ? oa - ob : ob - oa;
    return d > INT64_MAX ? INT64_MAX : int64_t(d);
}

float BitsF(uint32_t u) {
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}

double BitsD(uint64_t u) {
    double d;
    std::memcpy(&d, &u, 8);
    return d;
}

// Inputs a logarithm must handle: zeros, denormals, the normal range,
// infinities, NaNs and negatives, plus every 251st float bit pattern.
std::vector<float> LnInputsF() {
    const float inf = std::numeric_limits<float>::infinity();
    std::vector<float> v = {0.0f, -0.0f, 1.0f, inf, -inf, std::nanf(""), -1.0f, -1e-30f,
                            std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::min(),
                            std::numeric_limits<float>::max(), 0.5f, 2.0f, std::nextafter(1.0f, 2.0f),
                            std::nextafter(1.0f, 0.0f)};
    for (uint64_t u = 0; u <= 0xFFFFFFFFu; u += 251) v.push_back(BitsF(uint32_t(u)));
    return v;
}

std::vector<double> LnInputsD() {
    const double inf = std::numeric_limits<double>::infinity();
    std::vector<double> v = {0.0, -0.0, 1.0, inf, -inf, std::nan(""), -1.0, -1e-300,
                             std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::min(),
                             std::numeric_limits<double>::max(), 0.5, 2.0, std::nextafter(1.0, 2.0),
                             std::nextafter(1.0, 0.0)};
    std::mt19937_64 g(19);
    for (int i = 0; i < 2000000; ++i) v.push_back(BitsD(g()));
    // Denormals and values near 1, where a logarithm loses accuracy first.
    for (int i = 0; i < 20000; ++i) v.push_back(BitsD(g() & 0x000FFFFFFFFFFFFFull));
    std::uniform_real_distribution<double> near1(0.99, 1.01);
    for (int i = 0; i < 20000; ++i) v.push_back(near1(g));
    return v;
}

// Special values as std::log gives them; finite results within maxUlps.
template <typename T, typename Ulps>
void ExpectLikeStdLog(const std::vector<T>& in, const std::vector<T>& out, int64_t maxUlps, Ulps ulps,
                      const char* variant) {
    int64_t worst = 0;
    size_t bad = 0;
    for (size_t i = 0; i < in.size(); ++i) {
        const T ref = std::log(in[i]);
        const T got = out[i];
        bool ok;
        if (std::isnan(ref))
            ok = std::isnan(got);
        else if (std::isinf(ref))
            ok = got == ref;
        else {
            const int64_t u = ulps(got, ref);
            worst = std::max(worst, u);
            ok = u <= maxUlps;
        }
        if (!ok && bad++ < 5)
            ADD_FAILURE() << variant << ": log(" << in[i] << ") gave " << got << ", std::log " << ref;
    }
    EXPECT_EQ(bad, 0u) << variant;
    EXPECT_LE(worst, maxUlps) << variant;
}

class IppMath : public ::testing::TestWithParam<IppKernelVariant> {
protected:
    ipptest::VariantScope scope{GetParam()};
};

TEST_P(IppMath, Ln32fFollowsStdLogOverTheWholeRange) {
    const std::vector<float> in = LnInputsF();
    std::vector<float> out(in.size());
    ASSERT_EQ(ippsLn_32f_A11(in.data(), out.data(), int(in.size())), ippStsNoErr);
    // glibc's vector logf is within 4 ulp, far inside the 11 bits of _A11.
    ExpectLikeStdLog(in, out, 4, UlpsF, GetParam() == ippKernelAVX2 ? "avx2" : "generic");
}

TEST_P(IppMath, Ln64fFollowsStdLogOverTheWholeRange) {
    const std::vector<double> in = LnInputsD();
    std::vector<double> out(in.size());
    ASSERT_EQ(ippsLn_64f(in.data(), out.data(), int(in.size())), ippStsNoErr);
    ExpectLikeStdLog(in, out, 4, UlpsD, GetParam() == ippKernelAVX2 ? "avx2" : "generic");
}

// An element's logarithm does not depend on its place: the vector body
// and the padded tail give the same value, at any length and alignment,
// and in place.
TEST_P(IppMath, LnOfAnElementDoesNotHangOnLengthOrPlace) {
    const std::vector<float> xf = ipptest::randf(40, 3, 1e-6f, 1e6f);
    std::vector<double> xd(xf.begin(), xf.end());
    std::vector<float> wholeF(xf.size());
    std::vector<double> wholeD(xd.size());
    ippsLn_32f_A11(xf.data(), wholeF.data(), int(xf.size()));
    ippsLn_64f(xd.data(), wholeD.data(), int(xd.size()));
    for (int off = 0; off < 3; ++off)
        for (int len = 1; len + off <= 37; ++len) {
            ipptest::Buf<float> f(len, off);
            ipptest::Buf<double> d(len, off);
            std::memcpy(f.get(), xf.data() + off, size_t(len) * sizeof(float));
            std::memcpy(d.get(), xd.data() + off, size_t(len) * sizeof(double));
            ASSERT_EQ(ippsLn_32f_A11(f.get(), f.get(), len), ippStsNoErr);
            ASSERT_EQ(ippsLn_64f(d.get(), d.get(), len), ippStsNoErr);
            for (int i = 0; i < len; ++i) {
                ASSERT_EQ(f[i], wholeF[size_t(off + i)]) << "len " << len << " offset " << off << " i " << i;
                ASSERT_EQ(d[i], wholeD[size_t(off + i)]) << "len " << len << " offset " << off << " i " << i;
            }
        }
}

TEST_P(IppMath, MagnitudeIsTheRoundedExactModulus) {
    const int n = 1003;  // a tail after any vector width
    const std::vector<float> r = ipptest::randf(2 * n, 5, -1e3f, 1e3f);
    ipptest::Buf<Ipp32fc> a(n, 1);
    ipptest::Buf<Ipp64fc> b(n, 1);
    for (int i = 0; i < n; ++i) {
        // Spread over decades, and a few exact zeros of either part.
        const float s = std::ldexp(1.0f, (i % 41) - 20);
        a[i] = {i % 97 == 0 ? 0.0f : r[size_t(2 * i)] * s, i % 89 == 0 ? 0.0f : r[size_t(2 * i + 1)] * s};
        b[i] = {double(a[i].re) * 1.000000123, double(a[i].im) * 0.999999877};
    }
    std::vector<float> mf(size_t(n) + 1, -1.0f);
    std::vector<double> md(size_t(n) + 1, -1.0);
    ASSERT_EQ(ippsMagnitude_32fc(a.get(), mf.data(), n), ippStsNoErr);
    ASSERT_EQ(ippsMagnitude_64fc(b.get(), md.data(), n), ippStsNoErr);
    for (int i = 0; i < n; ++i) {
        const double re = a[i].re, im = a[i].im;
        // Squares and sum in float round twice before the root: within 1 ulp
        // of the exact modulus (FMA variants round once less).
        EXPECT_LE(UlpsF(mf[size_t(i)], float(std::hypot(re, im))), 1) << i;
        const long double lre = b[i].re, lim = b[i].im;
        EXPECT_LE(UlpsD(md[size_t(i)], double(std::sqrt(lre * lre + lim * lim))), 1) << i;
    }
    EXPECT_EQ(mf[size_t(n)], -1.0f) << "wrote past the end";
    EXPECT_EQ(md[size_t(n)], -1.0) << "wrote past the end";
}

TEST_P(IppMath, MagnitudeOfNonFiniteParts) {
    const float inf = std::numeric_limits<float>::infinity(), nan = std::nanf("");
    const Ipp32fc a[] = {{0.0f, -0.0f}, {inf, 1.0f}, {1.0f, -inf}, {nan, 1.0f}, {3e38f, 3e38f}, {-3.0f, 4.0f}};
    float m[6];
    ASSERT_EQ(ippsMagnitude_32fc(a, m, 6), ippStsNoErr);
    EXPECT_EQ(m[0], 0.0f);
    EXPECT_EQ(m[1], inf);
    EXPECT_EQ(m[2], inf);
    EXPECT_TRUE(std::isnan(m[3]));
    EXPECT_EQ(m[4], inf);  // the square overflows, as it always did
    EXPECT_EQ(m[5], 5.0f);
    const double dinf = std::numeric_limits<double>::infinity();
    const Ipp64fc b[] = {{0.0, 0.0}, {-dinf, 2.0}, {std::nan(""), 0.0}, {-6.0, 8.0}};
    double md[4];
    ASSERT_EQ(ippsMagnitude_64fc(b, md, 4), ippStsNoErr);
    EXPECT_EQ(md[0], 0.0);
    EXPECT_EQ(md[1], dinf);
    EXPECT_TRUE(std::isnan(md[2]));
    EXPECT_EQ(md[3], 10.0);
}

TEST(IppMathArgs, RefusesNullAndEmpty) {
    float f = 1.0f;
    double d = 1.0;
    Ipp32fc c{};
    Ipp64fc cd{};
    EXPECT_EQ(ippsLn_32f_A11(nullptr, &f, 1), ippStsNullPtrErr);
    EXPECT_EQ(ippsLn_64f(&d, &d, 0), ippStsSizeErr);
    EXPECT_EQ(ippsMagnitude_32fc(&c, nullptr, 1), ippStsNullPtrErr);
    EXPECT_EQ(ippsMagnitude_64fc(&cd, &d, -1), ippStsSizeErr);
}

INSTANTIATE_TEST_SUITE_P(Variants, IppMath, ::testing::ValuesIn(ipptest::variants()),
                         [](const auto& info) { return info.param == ippKernelAVX2 ? "avx2" : "generic"; });

}  // namespace
