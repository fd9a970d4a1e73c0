// The fast-convolution FIR against the direct sum over one long signal,
// cut into blocks that fall below, on and across the segment length, in
// place and off the 64-byte grid.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "dsp/fft_fir.h"
#include "ipp_test_util.h"

namespace {

struct FftFirCase {
    int taps;
    bool everyOtherZero;  // the Hilbert filter's shape
    std::vector<int> blocks;
    bool inPlace;
};

TEST(FftFir, EqualsTheDirectSumAcrossBlocks) {
    const FftFirCase cases[] = {
        {1, false, {5, 3, 1}, false},
        {7, false, {1, 2, 3, 100, 64}, true},
        {64, false, {255, 256, 257, 1000}, false},
        // 2047 taps plan 8192 points: a segment takes 6146 new samples.
        {2047, true, {40000, 6146, 6147, 1, 12345, 40000}, true},
    };
    for (const FftFirCase& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.taps << " taps, in place " << c.inPlace);
        std::vector<double> h = ipptest::randd(c.taps, 5);
        if (c.everyOtherZero)
            for (size_t i = 1; i < h.size(); i += 2) h[i] = 0.0;
        int total = 0;
        for (int b : c.blocks) total += b;
        const std::vector<double> x = ipptest::randd(total, 6);
        double scale = 0.0;
        for (double t : h) scale += std::fabs(t);

        qs::FftFIR_64f fir;
        fir.SetTaps(h.data(), c.taps);
        int at = 0;
        for (int b : c.blocks) {
            ipptest::Buf<double> src(b, 1), dst(b, 3);
            for (int i = 0; i < b; ++i) src[i] = x[size_t(at + i)];
            double* out = c.inPlace ? src.get() : dst.get();
            ASSERT_EQ(fir.Filter(src.get(), out, b), ippStsNoErr);
            for (int i = 0; i < b; ++i) {
                const int n = at + i;
                long double want = 0.0L;
                for (int k = 0; k < c.taps && k <= n; ++k) want += (long double)h[size_t(k)] * x[size_t(n - k)];
                ASSERT_NEAR(out[i], double(want), 1e-13 * scale) << "sample " << n;
            }
            at += b;
        }
    }
}

TEST(FftFir, RefusesWhatItCannotFilter) {
    qs::FftFIR_64f fir;
    double v = 1.0;
    EXPECT_EQ(fir.Filter(&v, &v, 1), ippStsNullPtrErr);  // no taps yet
    EXPECT_THROW(fir.SetTaps(&v, 0), std::invalid_argument);
    fir.SetTaps(&v, 1);
    EXPECT_EQ(fir.Filter(&v, &v, 0), ippStsSizeErr);
    EXPECT_EQ(fir.Filter(nullptr, &v, 1), ippStsNullPtrErr);
}

}  // namespace
