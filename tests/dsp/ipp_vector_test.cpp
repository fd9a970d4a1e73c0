// Element-wise primitives against plain references, on every kernel
// variant of this processor, over odd lengths and unaligned pointers.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

#include "dsp/dsp_vector.h"
#include "ipp_test_util.h"

using namespace ipptest;

namespace {

const int kLengths[] = {1, 3, 17, 63, 1001};
const int kOffsets[] = {0, 1};

class HotKernels : public ::testing::TestWithParam<IppKernelVariant> {};

// Exact kernels (one rounding per element, the same in every variant):
// tolerance 0. Complex products and power sums may fuse a multiply-add:
// tolerance 2^-21 of |a||b|, about 4 ulp.
TEST_P(HotKernels, MatchPlainReferenceOnOddLengthsAndUnalignedPointers) {
    VariantScope scope(GetParam());
    for (int n : kLengths) {
        for (int off : kOffsets) {
            SCOPED_TRACE(::testing::Message() << "n=" << n << " offset=" << off);
            auto a = randf(2 * n, 1u + unsigned(n)), b = randf(2 * n, 7u + unsigned(n));
            Buf<float> pa(2 * n, off), pb(2 * n, off), pd(2 * n, off);
            std::memcpy(pa.get(), a.data(), a.size() * 4);
            std::memcpy(pb.get(), b.data(), b.size() * 4);

            ASSERT_EQ(ippsAdd_32f(pa.get(), pb.get(), pd.get(), n), ippStsNoErr);
            for (int i = 0; i < n; ++i) ASSERT_EQ(pd[i], a[size_t(i)] + b[size_t(i)]);
            ippsMul_32f(pa.get(), pb.get(), pd.get(), n);
            for (int i = 0; i < n; ++i) ASSERT_EQ(pd[i], a[size_t(i)] * b[size_t(i)]);
            ippsMulC_32f(pa.get(), 0.3f, pd.get(), n);
            for (int i = 0; i < n; ++i) ASSERT_EQ(pd[i], a[size_t(i)] * 0.3f);

            auto* ca = reinterpret_cast<Ipp32fc*>(pa.get());
            auto* cb = reinterpret_cast<Ipp32fc*>(pb.get());
            auto* cd = reinterpret_cast<Ipp32fc*>(pd.get());
            ippsAdd_32fc(ca, cb, cd, n);
            for (int i = 0; i < 2 * n; ++i) ASSERT_EQ(pd[i], a[size_t(i)] + b[size_t(i)]);
            ippsMul_32fc(ca, cb, cd, n);
            for (int i = 0; i < n; ++i) {
                const double ar = a[2 * size_t(i)], ai = a[2 * size_t(i) + 1];
                const double br = b[2 * size_t(i)], bi = b[2 * size_t(i) + 1];
                const double tol = std::ldexp(std::hypot(ar, ai) * std::hypot(br, bi), -21);
                ASSERT_NEAR(cd[i].re, ar * br - ai * bi, tol);
                ASSERT_NEAR(cd[i].im, ar * bi + ai * br, tol);
            }
            Buf<float> pw(n, off);
            ippsPowerSpectr_32fc(ca, pw.get(), n);
            for (int i = 0; i < n; ++i) {
                const double re = a[2 * size_t(i)], im = a[2 * size_t(i) + 1];
                ASSERT_NEAR(pw[i], re * re + im * im, std::ldexp(re * re + im * im, -21));
            }

            Buf<Ipp16s> s16(n, off);
            for (int i = 0; i < n; ++i) s16[i] = Ipp16s(i * 2654435761u);
            ippsConvert_16s32f_Sfs(s16.get(), pd.get(), n, 15);
            for (int i = 0; i < n; ++i) ASSERT_EQ(pd[i], float(s16[i]) / 32768.0f);
        }
    }
}

// In place, dst is the first source: the result must be the same as out
// of place.
TEST_P(HotKernels, DestinationMayBeASource) {
    VariantScope scope(GetParam());
    const int n = 257;
    auto a = randf(2 * n, 11), b = randf(2 * n, 12);
    std::vector<float> d1(a.size()), d2 = a;
    auto C = [](std::vector<float>& v) { return reinterpret_cast<Ipp32fc*>(v.data()); };
    ippsMul_32fc(C(a), C(b), C(d1), n);
    ippsMul_32fc(C(d2), C(b), C(d2), n);
    EXPECT_EQ(d1, d2);
    d2 = a;
    ippsAdd_32fc(C(a), C(b), C(d1), n);
    ippsAdd_32fc(C(d2), C(b), C(d2), n);
    EXPECT_EQ(d1, d2);
    d2 = a;
    ippsMul_32f(a.data(), b.data(), d1.data(), n);
    ippsMul_32f_I(b.data(), d2.data(), n);
    EXPECT_TRUE(std::equal(d1.begin(), d1.begin() + n, d2.begin()));
}

INSTANTIATE_TEST_SUITE_P(Variants, HotKernels, ::testing::ValuesIn(variants()),
                         [](const ::testing::TestParamInfo<IppKernelVariant>& i) {
                             return std::string(i.param == ippKernelAVX2 ? "avx2" : "generic");
                         });

TEST(IppConvert, FloatTo16BitRoundsToEvenAndSaturates) {
    const float in[] = {1.0f, -1.0f, 1.5f, -3.0f, 0.5f / 32768, 1.5f / 32768, -2.5f / 32768, std::nanf("")};
    Ipp16s out[8];
    ASSERT_EQ(ippsConvert_32f16s_Sfs(in, out, 8, ippRndNear, -15), ippStsNoErr);
    const Ipp16s want[] = {32767, -32768, 32767, -32768, 0, 2, -2, 0};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], want[i]) << i;

    const float big[] = {2.7f, -2.7f, 1e10f, -1e10f};
    ippsConvert_32f16s_Sfs(big, out, 4, ippRndZero, 0);
    EXPECT_EQ(out[0], 2);
    EXPECT_EQ(out[1], -2);
    EXPECT_EQ(out[2], 32767);
    EXPECT_EQ(out[3], -32768);
}

// The branch-free rounding against nearbyint/trunc in double, over an odd
// length with exact ties, unaligned: tolerance 0.
TEST(IppConvert, FloatTo16BitMatchesPlainReference) {
    const int n = 1001;
    auto v = randf(n, 99, -1.2f, 1.2f);
    for (int i = 0; i < n; i += 7) v[size_t(i)] = float(i - 500 + 0.5) / 32768.0f;
    Buf<float> src(n, 1);
    Buf<Ipp16s> dst(n, 1);
    std::copy(v.begin(), v.end(), src.get());
    for (IppRoundMode mode : {ippRndNear, ippRndZero}) {
        ASSERT_EQ(ippsConvert_32f16s_Sfs(src.get(), dst.get(), n, mode, -15), ippStsNoErr);
        for (int i = 0; i < n; ++i) {
            const double x = double(v[size_t(i)]) * 32768.0;
            const double r = std::clamp(mode == ippRndNear ? std::nearbyint(x) : std::trunc(x), -32768.0, 32767.0);
            ASSERT_EQ(dst[i], Ipp16s(r)) << "mode " << mode << " i " << i;
        }
    }
}

TEST(IppConvert, SixteenBitToFloatAndDoubleByScale) {
    const Ipp16s in[] = {-32768, 32767, 1, 0};
    float f[4];
    double d[4];
    ippsConvert_16s32f_Sfs(in, f, 4, 15);
    ippsConvert_16s64f_Sfs(in, d, 4, 15);
    EXPECT_EQ(f[0], -1.0f);
    EXPECT_EQ(d[1], 32767.0 / 32768.0);
    EXPECT_EQ(d[2], std::ldexp(1.0, -15));
    ippsConvert_16s32f_Sfs(in, f, 4, -2);
    EXPECT_EQ(f[2], 4.0f);
    const Ipp32s big[] = {16777217, -3};
    ippsConvert_32s32f(big, f, 2);
    EXPECT_EQ(f[0], 16777216.0f);
    EXPECT_EQ(f[1], -3.0f);
}

TEST(IppArithmetic, SubAndDivTakeTheSecondOperandFirst) {
    const double a[] = {1.0, 0.0, 4.0}, b[] = {3.0, 5.0, -2.0};
    double d[3];
    ippsSub_64f(a, b, d, 3);
    EXPECT_EQ(d[0], 2.0);
    EXPECT_EQ(d[2], -6.0);
    ippsDiv_64f(a, b, d, 3);
    EXPECT_EQ(d[0], 3.0);
    EXPECT_TRUE(std::isinf(d[1]) && d[1] > 0);
    EXPECT_EQ(d[2], -0.5);

    const Ipp32s s1[] = {-1, 1, 5}, s2[] = {INT32_MAX, INT32_MIN, 2};
    Ipp32s sd[3];
    ippsSub_32s_Sfs(s1, s2, sd, 3, 0);
    EXPECT_EQ(sd[0], INT32_MAX);
    EXPECT_EQ(sd[1], INT32_MIN);
    EXPECT_EQ(sd[2], -3);
    ippsSub_32s_Sfs(s1, s2, sd, 3, 1);  // -3 / 2 = -1.5, to even: -2
    EXPECT_EQ(sd[2], -2);
}

TEST(IppOrder, FlipAndMoveHandleOverlap) {
    for (int n : {1, 4, 7}) {
        std::vector<float> v(static_cast<size_t>(n)), w(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) v[size_t(i)] = float(i);
        ippsFlip_32f(v.data(), w.data(), n);
        ippsFlip_32f(v.data(), v.data(), n);
        for (int i = 0; i < n; ++i) {
            EXPECT_EQ(w[size_t(i)], float(n - 1 - i));
            EXPECT_EQ(v[size_t(i)], float(n - 1 - i));
        }
        std::vector<double> dv(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) dv[size_t(i)] = i;
        ippsFlip_64f_I(dv.data(), n);
        EXPECT_EQ(dv[0], n - 1);
    }
    Ipp32fc c[10];
    for (int i = 0; i < 10; ++i) c[i] = {float(i), -float(i)};
    ippsMove_32fc(c, c + 3, 6);  // upward over itself
    EXPECT_EQ(c[8].re, 5.0f);
    EXPECT_EQ(c[3].re, 0.0f);
    ippsMove_32fc(c + 3, c + 1, 6);  // and back down
    EXPECT_EQ(c[1].re, 0.0f);
    EXPECT_EQ(c[6].im, -5.0f);
}

// The edges the callers rely on: ln(0) is minus infinity without a trap,
// the _A11 class holds 11 bits, the phase spans -pi to pi, and the minimum's
// index is its first occurrence.
TEST(IppMath, OneValueFunctionEdges) {
    const float x[] = {0.0f, 1.0f, 2.0f, 1e-30f};
    float y[4];
    ippsLn_32f_A11(x, y, 4);
    EXPECT_TRUE(std::isinf(y[0]) && y[0] < 0);
    for (int i = 1; i < 4; ++i) EXPECT_NEAR(y[i], std::log(double(x[i])), std::fabs(std::log(double(x[i]))) * 0x1p-11 + 1e-7);

    const Ipp32fc c[] = {{-1, 0}, {0, -2}};
    float ph[2];
    ippsPhase_32fc(c, ph, 2);
    EXPECT_NEAR(ph[0], M_PI, 1e-6);
    EXPECT_NEAR(ph[1], -M_PI / 2, 1e-6);

    const float v[] = {3, -1, 2, -1};
    float mn;
    int idx;
    ippsMinIndx_32f(v, 4, &mn, &idx);
    EXPECT_EQ(mn, -1.0f);
    EXPECT_EQ(idx, 1);
}

TEST(IppArguments, BadLengthsAndNullPointersAreRefused) {
    float a[4] = {1, 2, 3, 4}, d[4] = {9, 9, 9, 9};
    EXPECT_EQ(ippsAdd_32f(a, a, d, 0), ippStsSizeErr);
    EXPECT_EQ(ippsMul_32f(a, nullptr, d, 4), ippStsNullPtrErr);
    EXPECT_EQ(ippsCopy_32f(a, d, -1), ippStsSizeErr);
    EXPECT_EQ(d[0], 9.0f);
    Ipp16s s[1];
    EXPECT_EQ(ippsConvert_32f16s_Sfs(a, s, 1, IppRoundMode(7), 0), ippStsRoundModeNotSupportedErr);
}

TEST(IppMemory, BlocksAreAlignedTo64Bytes) {
    for (int n : {1, 63, 4096, 1 << 20}) {
        void* p = ippMalloc(n);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u);
        ippsFree(p);
    }
    EXPECT_EQ(ippMalloc(0), nullptr);
    Ipp16s* s = ippsMalloc_16s(33);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(s) % 64, 0u);
    ippFree(s);
}

TEST(DspVector, SmartPtrKeepsItsBlockOnZeroAndThrowsOnFailure) {
    smart_ptr<double> p(10);
    ASSERT_NE(p.ptr, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p.ptr) % 64, 0u);
    double* before = p.ptr;
    p[3] = 2.5;
    p.malloc(0);
    EXPECT_EQ(p.ptr, before);
    EXPECT_EQ(p[3], 2.5);
    p.free();
    EXPECT_EQ(p.ptr, nullptr);
    try {
        p.malloc(-5);
        FAIL() << "no exception";
    } catch (const qs_exception& e) {
        EXPECT_STREQ(e.what(), "Smart Pointer Malloc Error");
    }
    const qs_exception copy(qs_exception(std::string("x")));
    EXPECT_STREQ(copy.what(), "x");
}

TEST(DspVector, SimpleVectorResizesCopiesAndReleases) {
    DSP::Vector<float>::Type v(5);
    for (size_t i = 0; i < 5; ++i) v[i] = float(i);
    const float* old = v.data();
    v.resize(5);
    EXPECT_NE(v.data(), old);  // a new array even at the same size
    v.resize(8);
    EXPECT_EQ(v.size(), 8u);
    EXPECT_EQ(v[4], 4.0f);
    v.resize(3);
    EXPECT_EQ(v[2], 2.0f);
    DSP::Vector<float>::Type c(v);
    c[0] = 42.0f;
    EXPECT_EQ(v[0], 0.0f);
    v = c;
    EXPECT_EQ(v[0], 42.0f);
    v.resize_and_zero(4);
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(v[i], 0.0f);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(v.data()) % 64, 0u);
    v.resize(0);
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_EQ(v.size(), 0u);
    EXPECT_THROW(v.resize(size_t(1) << 40), std::bad_alloc);
}

}  // namespace
