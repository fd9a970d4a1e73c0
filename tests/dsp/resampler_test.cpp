// The polyphase resampler against the plain chain it replaces, written
// here in long double: zero-stuff by U, convolve, keep every D-th output.
// Blocks run on as one long signal, from unaligned sources, and lengths
// it can't take are refused with nothing written.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "dsp/resampler.h"
#include "ipp_test_util.h"

namespace {

std::vector<float> stuffed_chain(const std::vector<float>& h, const std::vector<float>& x, int up, int down) {
    std::vector<long double> u(x.size() * size_t(up), 0.0L);
    for (size_t j = 0; j < x.size(); ++j) u[j * size_t(up)] = x[j];
    std::vector<float> y;
    for (size_t n = 0; n < u.size(); n += size_t(down)) {
        long double acc = 0.0L;
        for (size_t k = 0; k < h.size() && k <= n; ++k) acc += (long double)(h[k]) * u[n - k];
        y.push_back(float(acc));
    }
    return y;
}

TEST(Resampler, PolyphaseEqualsStuffFilterDecimateAcrossBlocks) {
    struct Case {
        int taps, up, down, block, blocks;
    };
    const Case cases[] = {
        {256, 1, 5, 40, 5},  // the first stage: decimation only
        {256, 4, 5, 15, 9},  // odd block, history longer than a block
        {255, 4, 5, 80, 3},  // taps not a multiple of U: phases of two lengths
        {7, 3, 2, 6, 4},     // fewer taps than a phase's stride
        {1, 2, 1, 1, 6},     // one tap: pure zero-stuffing
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.taps << " taps, up " << c.up << " down " << c.down);
        const auto hd = ipptest::randd(c.taps, 7u + unsigned(c.taps));
        const auto xd = ipptest::randd(c.block * c.blocks, 11u + unsigned(c.up));
        std::vector<float> h(hd.begin(), hd.end()), x(xd.begin(), xd.end());
        x[0] = 1e-40f;  // a denormal passes through as a product like any other
        const std::vector<float> want = stuffed_chain(h, x, c.up, c.down);

        qs::Resampler_32f r;
        r.SetTaps(h.data(), c.taps, c.up, c.down, c.block);
        std::vector<float> src(size_t(c.block) + 1), got;
        const int outLen = c.block * c.up / c.down;
        std::vector<float> out(size_t(outLen) + 1, -7.0f);
        for (int b = 0; b < c.blocks; ++b) {
            std::copy(x.begin() + b * c.block, x.begin() + (b + 1) * c.block, src.begin() + 1);
            ASSERT_EQ(r.Process(src.data() + 1, c.block, out.data()), outLen);
            EXPECT_EQ(out[size_t(outLen)], -7.0f) << "wrote past its output";
            got.insert(got.end(), out.begin(), out.begin() + outLen);
        }
        ASSERT_EQ(got.size(), want.size());
        for (size_t m = 0; m < want.size(); ++m) EXPECT_NEAR(got[m], want[m], 2e-6f * c.taps) << "output " << m;

        // Reset starts the signal afresh: the first block again.
        r.Reset();
        std::copy(x.begin(), x.begin() + c.block, src.begin() + 1);
        ASSERT_EQ(r.Process(src.data() + 1, c.block, out.data()), outLen);
        for (int m = 0; m < outLen; ++m) EXPECT_NEAR(out[size_t(m)], want[size_t(m)], 2e-6f * c.taps);
    }
}

TEST(Resampler, RefusesLengthsItCannotTake) {
    const float h[4] = {1, 2, 3, 4};
    qs::Resampler_32f r;
    r.SetTaps(h, 4, 4, 5, 10);
    float src[11] = {}, out[16];
    std::fill(out, out + 16, 3.0f);
    for (int len : {3, 11, -5}) {  // 12 not a multiple of 5; past the block; negative
        EXPECT_EQ(r.Process(src, len, out), -1) << len;
        EXPECT_EQ(out[0], 3.0f) << len;
    }
    EXPECT_EQ(r.Process(src, 0, out), 0);
    EXPECT_THROW(r.SetTaps(h, 0, 4, 5, 10), qs_exception);
}

}  // namespace
