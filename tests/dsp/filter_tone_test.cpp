// The tone and the tone mixer, sample-rate steps and the transpose.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "dsp/ipps_states.h"
#include "ippi.h"
#include "ipp_test_util.h"

namespace {

TEST(Tone, MatchesTheFormulaAndCarriesThePhase) {
    const int n = 1000;
    const float f = 0.123f, magn = 2.0f;
    float phase = 1.0f;
    std::vector<Ipp32fc> t(n);
    ASSERT_EQ(ippsTone_32fc(t.data(), n, magn, f, &phase, ippAlgHintAccurate), ippStsNoErr);
    for (int i = 0; i < n; ++i) {
        const long double ph = 2.0L * M_PIl * (long double)f * i + 1.0L;
        ASSERT_NEAR(t[size_t(i)].re, double(magn * std::cos(ph)), 2e-6) << i;
        ASSERT_NEAR(t[size_t(i)].im, double(magn * std::sin(ph)), 2e-6) << i;
    }
    const long double next = std::fmod(2.0L * M_PIl * (long double)f * n + 1.0L, 2.0L * M_PIl);
    EXPECT_NEAR(phase, double(next), 1e-5);
    EXPECT_GE(phase, 0.0f);
    EXPECT_LT(phase, float(2 * M_PI));
}

TEST(Tone, TwoCallsEqualOne) {
    for (float f : {0.0f, 0.25f, 0.3337f, 0.999f}) {
        const int n = 24576;
        float p1 = 0.5f, p2 = 0.5f;
        std::vector<Ipp32fc> one(2 * n), two(2 * n);
        ippsTone_32fc(one.data(), 2 * n, 1.0f, f, &p1, ippAlgHintAccurate);
        ippsTone_32fc(two.data(), n, 1.0f, f, &p2, ippAlgHintAccurate);
        ippsTone_32fc(two.data() + n, n, 1.0f, f, &p2, ippAlgHintAccurate);
        for (int i = 0; i < 2 * n; ++i) {
            ASSERT_NEAR(one[size_t(i)].re, two[size_t(i)].re, 2e-6) << "f " << f << " i " << i;
            ASSERT_NEAR(one[size_t(i)].im, two[size_t(i)].im, 2e-6) << "f " << f << " i " << i;
        }
        EXPECT_NEAR(p1, p2, 2e-6);
    }
}

TEST(Tone, RefusedArguments) {
    Ipp32fc t[4];
    float p = 0.0f;
    EXPECT_EQ(ippsTone_32fc(t, 4, 1.0f, 1.0f, &p, ippAlgHintAccurate), ippStsRelFreqErr);
    EXPECT_EQ(ippsTone_32fc(t, 4, 1.0f, -0.1f, &p, ippAlgHintAccurate), ippStsRelFreqErr);
    EXPECT_EQ(ippsTone_32fc(t, 0, 1.0f, 0.1f, &p, ippAlgHintAccurate), ippStsSizeErr);
    EXPECT_EQ(ippsTone_32fc(t, 4, 0.0f, 0.1f, &p, ippAlgHintAccurate), ippStsBadArgErr);
    p = 7.0f;
    EXPECT_EQ(ippsTone_32fc(t, 4, 1.0f, 0.1f, &p, ippAlgHintAccurate), ippStsRangeErr);
}

TEST(Tuner, FoldsFrequencies) {
    EXPECT_NEAR(Tuner_32fc(-0.2, 8).Frequency(), 0.8, 1e-15);
    EXPECT_EQ(Tuner_32fc(-1.5, 8).Frequency(), 0.0);
    EXPECT_EQ(Tuner_32fc(1.7, 8).Frequency(), 1.0);
    Tuner_32fc whole(1.0, 16);
    std::vector<Ipp32fc> x(16);
    for (int i = 0; i < 16; ++i) x[size_t(i)] = {float(i), -float(i) / 2};
    std::vector<Ipp32fc> y(16);
    whole.Tune(x.data(), y.data());
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(y[size_t(i)].re, x[size_t(i)].re);
        EXPECT_EQ(y[size_t(i)].im, x[size_t(i)].im);
    }
}

TEST(Tuner, BlocksJoinIntoOneTone) {
    const int n = 1536;
    Tuner_32fc tuner(-0.2, n);
    std::vector<Ipp32fc> ones(n, Ipp32fc{1.0f, 0.0f}), a(n), b(n);
    tuner.Tune(ones.data(), a.data());
    tuner.GenTone();  // made ahead, as a worker-side caller does
    tuner.GenTone();  // and not advanced twice
    tuner.Tune(ones.data(), b.data());
    for (int i = 0; i < 2 * n; ++i) {
        const Ipp32fc v = i < n ? a[size_t(i)] : b[size_t(i - n)];
        const long double ph = 2.0L * M_PIl * (long double)0.8f * i;  // the tone runs at float(f)
        ASSERT_NEAR(v.re, double(std::cos(ph)), 3e-6) << i;
        ASSERT_NEAR(v.im, double(std::sin(ph)), 3e-6) << i;
    }
    EXPECT_EQ(tuner.Length(), n);
}

TEST(Resample, DownKeepsEveryFactorthSampleAndContinuesThePhase) {
    std::vector<float> x(10);
    for (int i = 0; i < 10; ++i) x[size_t(i)] = float(i);
    std::vector<float> y(10);
    int len = 0, phase = 0;
    ASSERT_EQ(ippsSampleDown_32f(x.data(), 10, y.data(), &len, 5, &phase), ippStsNoErr);
    EXPECT_EQ(len, 2);
    EXPECT_EQ(y[1], 5.0f);
    EXPECT_EQ(phase, 0);
    phase = 2;
    ippsSampleDown_32f(x.data(), 10, y.data(), &len, 3, &phase);
    EXPECT_EQ(len, 3);  // samples 2, 5, 8
    EXPECT_EQ(y[2], 8.0f);
    EXPECT_EQ(phase, 1);  // the next block starts at its sample 1

    std::vector<Ipp32fc> c(8);
    for (int i = 0; i < 8; ++i) c[size_t(i)] = {float(i), float(-i)};
    std::vector<Ipp32fc> cd(8);
    phase = 0;
    ippsSampleDown_32fc(c.data(), 8, cd.data(), &len, 4, &phase);
    EXPECT_EQ(len, 2);
    EXPECT_EQ(cd[1].im, -4.0f);
    EXPECT_EQ(ippsSampleDown_32f(x.data(), 10, y.data(), &len, 3, &(phase = 3)), ippStsBadArgErr);
}

TEST(Resample, UpInsertsZeros) {
    const float x[] = {1, 2, 3};
    float y[12];
    int len = 0, phase = 1;
    ASSERT_EQ(ippsSampleUp_32f(x, 3, y, &len, 4, &phase), ippStsNoErr);
    EXPECT_EQ(len, 12);
    const float want[] = {0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(y[i], want[i]) << i;
    EXPECT_EQ(phase, 1);
}

TEST(Transpose, RowsBecomeColumnsWithPaddedSteps) {
    const int w = 37, h = 5, srcStride = 40, dstStride = 8;
    std::vector<float> src(size_t(h * srcStride), -1.0f), dst(size_t(w * dstStride), -2.0f);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) src[size_t(y * srcStride + x)] = float(100 * y + x);
    ASSERT_EQ(ippiTranspose_32f_C1R(src.data(), srcStride * 4, dst.data(), dstStride * 4, IppiSize{w, h}), ippStsNoErr);
    for (int x = 0; x < w; ++x) {
        for (int y = 0; y < h; ++y) ASSERT_EQ(dst[size_t(x * dstStride + y)], float(100 * y + x));
        ASSERT_EQ(dst[size_t(x * dstStride + h)], -2.0f);  // padding untouched
    }
}

}  // namespace
