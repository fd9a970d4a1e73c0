// The fast FIR filters against plain references computed in double: direct
// convolution for the complex stage, and for the real stage the response of
// the taps to tones, mixed and decimated as the chain defines. Several
// consecutive calls are compared with one long reference run, so every seam
// (between blocks, between the two workers, between calls) is covered.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <stdexcept>
#include <vector>

#include "dsp/ipps_states.h"

namespace {

using cd = std::complex<double>;
constexpr double kTwoPi = 6.283185307179586;
constexpr int kIn = FastFIR_32f::kInputLen;

// Response of taps h at f cycles per sample: sum of h[k] e^(-j 2 pi f k).
cd response(const std::vector<float>& h, double f) {
    cd r = 0.0;
    for (size_t k = 0; k < h.size(); ++k) r += double(h[k]) * std::polar(1.0, -kTwoPi * f * double(k));
    return r;
}

// e^(j 2 pi x) with x reduced first, so that long runs keep their phase.
cd turn(long double x) { return std::polar(1.0, kTwoPi * double(x - std::floor(x))); }

// The tuner's frequency as it runs: folded into 0..1, then in float.
double tuner_freq(double f) { return double(float(f < 0.0 ? f + 1.0 : f)); }

struct Tone {
    double f, amp, phase;
};

std::vector<float> real_tones(const std::vector<Tone>& tones, int n) {
    std::vector<float> x(size_t(n), 0.0f);
    for (int t = 0; t < n; ++t) {
        double v = 0.0;
        for (const Tone& tn : tones) {
            const long double c = (long double)tn.f * t;
            v += tn.amp * std::cos(kTwoPi * double(c - std::floor(c)) + tn.phase);
        }
        x[size_t(t)] = float(v);
    }
    return x;
}

std::vector<Ipp32fc> run(FastFIR_32f& fir, std::vector<float>& x, int calls) {
    std::vector<Ipp32fc> out(size_t(fir.OutputLength()) * size_t(calls));
    for (int c = 0; c < calls; ++c) fir.Filter(x.data() + size_t(c) * kIn, out.data() + size_t(c) * size_t(fir.OutputLength()));
    return out;
}

struct RealCase {
    int s;
    double center, width;
    bool bandZero;
    std::vector<Tone> tones;
};

// Expected output of a settled chain for real tones: each tone's positive
// half, (A / 2) e^(j(2 pi f T + phase)), times the band filter's response,
// moved by the band-zero rotation, mixed down by a quarter of the input rate
// and by the tuner, and for s > 3 through the second stage's response.
class Reference {
public:
    explicit Reference(const RealCase& c) {
        double center = c.center, shift = 0.0;
        if (c.bandZero) {
            int r = int((0.25 - center) * 4096.0);
            r -= r % 4;
            shift = r / 4096.0;
            center += shift;
        }
        const bool two = c.s > 3;
        std::vector<float> h(1025), l(1025);
        const double half = two ? 0.0234375 : 0.5 * c.width;
        FIRGenBandpass_32f(center - half, center + half, h.data(), 1025, ippWinBlackman, ippTrue);
        if (two) FIRGenTaps_32f(0.5 * 16.0 * c.width, l.data(), 1025, ippWinBlackman, ippTrue, lowPassFilter);
        d1_ = 1 << (std::min(c.s, 3) + 1);
        d2_ = two ? 1 << (c.s - 3) : 1;
        ft_ = tuner_freq((0.25 - center) * d1_);
        settled_ = two ? (256 + 1024 + d2_ - 1) / d2_ : 4096 / d1_;
        for (const Tone& tn : c.tones) {
            const double f = tn.f + shift;
            cd g = 0.5 * tn.amp * response(h, f) * std::polar(1.0, tn.phase);
            if (two) g *= response(l, f * d1_ + ft_);
            parts_.push_back({f, g});
        }
    }
    // Output sample q; valid from settled() on, when both stages have a
    // full history.
    cd at(long q) const {
        const long u = q * d2_;                      // first-stage output index
        const long double T = (long double)u * d1_;  // input time
        cd z = 0.0;
        for (const auto& p : parts_) z += p.second * turn((long double)p.first * T - 0.25L * T + (long double)ft_ * u);
        return z;
    }
    long settled() const { return settled_; }

private:
    int d1_, d2_;
    double ft_;
    long settled_;
    std::vector<std::pair<double, cd>> parts_;
};

const std::vector<RealCase> kRealCases = {
    // A tone at exactly a quarter of the rate comes out as a constant phasor.
    {0, 0.25, 0.3, false, {{0.25, 1.0, 0.3}, {0.31, 0.5, 1.0}, {0.02, 0.7, 0.0}}},
    {1, 0.2, 0.1, false, {{0.21, 1.0, 0.0}, {0.17, 0.25, 2.0}}},
    {2, 0.25, 0.05, false, {{0.25, 1.0, 0.0}}},
    {2, 0.27, 0.04, false, {{0.275, 1.0, 0.5}, {0.262, 0.5, 0.0}, {0.4, 1.0, 0.0}}},
    // Tuner at -0.2, running at 0.8 cycles per sample.
    {3, 0.2625, 0.02, false, {{0.2655, 1.0, 0.0}, {0.258, 0.3, 1.0}}},
    {5, 0.2475, 0.01, false, {{0.2495, 1.0, 0.0}, {0.2575, 1.0, 0.0}}},
    {7, 0.2513, 0.003125, false, {{0.252, 1.0, 0.0}, {0.2613, 1.0, 0.0}}},
    // Band zero: the spectrum is turned up by 816 bins, and down by 204.
    {2, 0.05, 0.02, true, {{0.052, 1.0, 0.0}, {0.03, 1.0, 0.0}}},
    {2, 0.3, 0.02, true, {{0.301, 1.0, 0.2}}},
};

TEST(FastFIR32f, MatchesReferenceAcrossCalls) {
    const int calls = 3;
    for (const RealCase& c : kRealCases) {
        SCOPED_TRACE(testing::Message() << "s " << c.s << " center " << c.center << " band zero " << c.bandZero);
        std::vector<float> x = real_tones(c.tones, kIn * calls);
        FastFIR_32f fir(c.s, c.center, c.width, c.bandZero);
        const std::vector<Ipp32fc> out = run(fir, x, calls);
        const Reference ref(c);
        double worst = 0.0;
        for (long q = ref.settled(); q < long(out.size()); ++q) {
            const cd got(out[size_t(q)].re, out[size_t(q)].im);
            worst = std::max(worst, std::abs(got - ref.at(q)));
        }
        EXPECT_LT(worst, 2e-6);  // float transforms: about 4e-7 seen
    }
}

// Independent of the reference: level A / 2 and frequency (f - center) x
// decimation, measured on the output itself; and a stop-band tone is gone.
TEST(FastFIR32f, ToneLevelFrequencyAndStopBand) {
    struct Case {
        int s;
        double center, width, f, levelRatio;  // output amplitude / (A / 2)
    } cases[] = {
        {0, 0.25, 0.2, 0.27, 1.0},        {2, 0.24, 0.04, 0.23, 1.0}, {3, 0.3, 0.02, 0.303, 1.0},
        {7, 0.255, 0.003125, 0.2556, 1.0}, {2, 0.24, 0.04, 0.1, 0.0},  {7, 0.255, 0.003125, 0.26, 0.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "s " << c.s << " f " << c.f);
        const double A = 0.8;
        std::vector<float> x = real_tones({{c.f, A, 0.0}}, 2 * kIn);
        FastFIR_32f fir(c.s, c.center, c.width, false);
        const std::vector<Ipp32fc> out = run(fir, x, 2);
        const size_t from = out.size() / 2;  // the second call: settled
        double level = 0.0;
        cd step = 0.0;
        for (size_t q = from; q < out.size(); ++q) {
            const cd z(out[q].re, out[q].im);
            level += std::abs(z);
            if (q > from) step += z * std::conj(cd(out[q - 1].re, out[q - 1].im));
        }
        level /= double(out.size() - from);
        if (c.levelRatio > 0.0) {
            EXPECT_NEAR(level, 0.5 * A, 0.5 * A * 2e-4);
            const double want = std::remainder((c.f - c.center) * fir.DownsamplingFactor() * 2.0, 1.0);
            EXPECT_NEAR(std::arg(step) / kTwoPi, want, 1e-6);
        } else {
            EXPECT_LT(level, 0.5 * A * 1e-6);  // 120 dB down
        }
    }
}

TEST(FastFIR32f, Geometry) {
    FastFIR_32f s0(0, 0.25, 0.2, false);
    EXPECT_EQ(s0.OutputLength(), 196608);
    EXPECT_EQ(s0.FilterDelay(), 512);
    EXPECT_EQ(s0.DownsamplingFactor(), 1);
    EXPECT_EQ(s0.post_filter, nullptr);
    FastFIR_32f s7(7, 0.25, 0.003125, false);
    EXPECT_EQ(s7.OutputLength(), 1536);
    EXPECT_EQ(s7.FilterDelay(), 8704);
    EXPECT_EQ(s7.DownsamplingFactor(), 128);
    ASSERT_NE(s7.post_filter, nullptr);
    EXPECT_EQ(s7.post_filter->DownsamplingFactor(), 16);
    EXPECT_EQ(s7.post_filter->OutputLength(), 1536);
    EXPECT_NEAR(FastFIR_32f(3, 0.2625, 0.02, false).tuner->Frequency(), 0.8, 1e-12);
    EXPECT_EQ(FastFIR_32f(2, 0.25, 0.02, true).fftShiftAmount, 0);
    EXPECT_EQ(FastFIR_32f(2, 0.25 - 1501.9 / 4096.0, 0.02, true).fftShiftAmount, 1500);
    EXPECT_EQ(FastFIR_32f(2, 0.3, 0.02, false).fftShiftAmount, 0);
}

TEST(FastFIR32f, AddCorrections) {
    // Tones below and above the centre: bins 983 and 1064.
    std::vector<float> x = real_tones({{0.24, 1.0, 0.0}, {0.26, 1.0, 0.0}}, kIn);
    auto filtered = [&x](const std::vector<double>& adj) {
        FastFIR_32f fir(2, 0.25, 0.05, false);
        fir.AddCorrections(adj);
        return run(fir, x, 1);
    };
    const std::vector<Ipp32fc> plain = filtered({});
    std::vector<Ipp32fc> got = filtered(std::vector<double>(2047, 0.5));
    for (size_t q = 0; q < got.size(); ++q) ASSERT_TRUE(got[q].re == plain[q].re && got[q].im == plain[q].im) << q;

    std::vector<double> half(2049, 0.5);
    half[2048] = 9.0;  // beyond the 2048 bins: unused
    got = filtered(half);
    for (size_t q = 0; q < got.size(); ++q) {
        ASSERT_NEAR(got[q].re, 0.5f * plain[q].re, 1e-7) << q;
        ASSERT_NEAR(got[q].im, 0.5f * plain[q].im, 1e-7) << q;
    }

    // Bins below 1024 off: only the upper tone is left, at +0.01 x 8.
    std::vector<double> upper(2048, 1.0);
    for (int i = 0; i < 1024; ++i) upper[size_t(i)] = 0.0;
    got = filtered(upper);
    const size_t q0 = got.size() / 2;
    const cd step = cd(got[q0 + 1].re, got[q0 + 1].im) * std::conj(cd(got[q0].re, got[q0].im));
    EXPECT_NEAR(std::abs(cd(got[q0].re, got[q0].im)), 0.5, 1e-3);
    EXPECT_NEAR(std::arg(step) / kTwoPi, 0.08, 1e-4);
}

TEST(FastFIR32fc, MatchesDirectConvolutionAcrossCalls) {
    struct Case {
        int decimation;
        double bw;
        int len;
    } cases[] = {{1, 0.4, 4096}, {2, 0.3, 4096}, {16, 0.05, 8192}, {4, 0.2, 1024}, {1024, 0.0008, 2048}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "decimation " << c.decimation << " length " << c.len);
        const int calls = 3, n = c.len * calls;
        std::mt19937 g(7);
        std::normal_distribution<float> d(0.0f, 1.0f);
        std::vector<Ipp32fc> x(static_cast<size_t>(n)), out(static_cast<size_t>(n / c.decimation));
        for (auto& v : x) v = {d(g), d(g)};
        FastFIR_32fc fir(c.decimation, c.bw, c.len);
        EXPECT_EQ(fir.InputLength(), c.len);
        EXPECT_EQ(fir.OutputLength(), c.len / c.decimation);
        for (int k = 0; k < calls; ++k) fir.Filter(x.data() + k * c.len, out.data() + k * fir.OutputLength());
        std::vector<float> h(1025);
        FIRGenTaps_32f(0.5 * c.bw, h.data(), 1025, ippWinBlackman, ippTrue, lowPassFilter);
        double worst = 0.0;
        for (int q = 0; q < int(out.size()); ++q) {
            const int T = q * c.decimation;
            cd y = 0.0;
            for (int k = 0; k <= std::min(T, 1024); ++k) y += double(h[size_t(k)]) * cd(x[size_t(T - k)].re, x[size_t(T - k)].im);
            worst = std::max(worst, std::abs(cd(out[size_t(q)].re, out[size_t(q)].im) - y));
        }
        EXPECT_LT(worst, 5e-6);  // about 7e-7 seen
    }
}

TEST(FastFIR, RefusedSettings) {
    const struct {
        int decimation;
        double bw;
        int len;
    } cplx[] = {{3, 0.1, 4096}, {0, 0.1, 4096}, {2048, 0.1, 4096}, {2, 0.1, 1000}, {2, 0.1, 0}, {2, 0.0, 4096}, {2, 1.0, 4096}};
    for (const auto& c : cplx) EXPECT_THROW(FastFIR_32fc(c.decimation, c.bw, c.len), std::invalid_argument) << c.decimation << " " << c.len;
    const struct {
        int s;
        double center, width;
    } real[] = {{-1, 0.25, 0.1}, {14, 0.25, 0.001}, {2, 0.25, 0.0}, {2, 0.25, 0.6}, {2, 0.45, 0.2}, {7, 0.01, 0.003}, {7, 0.25, 0.07}, {7, 0.25, 0.0}};
    for (const auto& c : real) EXPECT_THROW(FastFIR_32f(c.s, c.center, c.width, false), std::invalid_argument) << c.s << " " << c.center;
    EXPECT_NO_THROW(FastFIR_32fc(1024, 0.001, 1024));
    EXPECT_NO_THROW(FastFIR_32f(13, 0.25, 0.0002, false));
}

}  // namespace
