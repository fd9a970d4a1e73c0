// Swept traces against the simulator's scene, through the public calls
// only: a tone of known level and frequency must come back where and as
// strong as it was injected, on every model and in every kind of LO row.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"
#include "sim_fixture.h"

namespace {

class SweepTruth : public SharedSimulatedDevice {
protected:
    SweepTrace Sweep(double start, double stop, double rbw, double refDbm, unsigned scale = QS_SCALE_LOG,
                     unsigned detector = QS_DETECTOR_MIN_MAX, unsigned rejection = QS_REJECTION_NONE) {
        EXPECT_EQ(qsConfigureCenterSpan(h, (start + stop) / 2, stop - start), qsNoError);
        EXPECT_EQ(qsConfigureLevel(h, refDbm, QS_ATTEN_AUTO), qsNoError);
        EXPECT_EQ(qsConfigureAcquisition(h, detector, scale), qsNoError);
        EXPECT_GE(qsConfigureSweepCoupling(h, rbw, rbw, 0.001, QS_RBW_SHAPE_NATIVE, rejection), 0);
        return ::Sweep(h);
    }

    // The peak on the point nearest the tone (within half a point), and its
    // level within the measured accuracy (0.65 dB, see bin_exact_test) and
    // the window's scalloping half a point off centre (0.2 dB).
    void ExpectTone(const SweepTrace& t, double freqHz, double levelDbm) {
        ASSERT_EQ(t.status, qsNoError);
        const int k = t.Peak();
        EXPECT_LE(std::fabs(t.FreqAt(k) - freqHz), 0.501 * t.bin) << "tone at " << freqHz;
        EXPECT_NEAR(t.max[k], levelDbm, 0.85) << "tone at " << freqHz;
        for (size_t i = 0; i < t.max.size(); ++i) ASSERT_LE(t.min[i], t.max[i]) << i;
    }
};

constexpr int MAPLE = 1, LARCH = 2, BOTH = MAPLE | LARCH;

TEST_P(SweepTruth, TonesComeBackInEveryKindOfRow) {
    const struct {
        int models;
        double freq, level, start, stop, rbw;
        unsigned rejection;
    } cases[] = {
        {BOTH, 1.5e9, -40.0, 1.48e9, 1.53e9, 100e3, 0},     // row 1 (mirrored on the Maple rev 2)
        {MAPLE, 3.0e6, -30.0, 1.0e6, 6.0e6, 30e3, 0},       // directly sampled low band
        {MAPLE, 2.2e9, -50.0, 2.19e9, 2.21e9, 30e3, 0},     // row 2, mirrored, a span on patch edges
        {MAPLE, 1.8895e9, -35.0, 1.87e9, 1.91e9, 100e3, 0}, // just below a row edge
        {MAPLE, 3.151e9, -35.0, 3.13e9, 3.17e9, 100e3, 0},  // just above one
        {MAPLE, 5.6e9, -20.0, 5.55e9, 5.65e9, 300e3, 0},    // the narrow rows near 5.6 GHz
        {LARCH, 5.0e6, -30.0, 1.0e6, 11.0e6, 30e3, 0},      // row 0, far below its tilt
        {LARCH, 100.0e6, -40.0, 80.0e6, 130.0e6, 100e3, 0}, // row 0
        {LARCH, 2.5e9, -50.0, 2.49e9, 2.51e9, 30e3, 0},     // row 2
        {LARCH, 4.0e9, -35.0, 3.98e9, 4.03e9, 100e3, 0},    // row 3, LO words in 200 kHz
        {LARCH, 6.0e9, -20.0, 5.95e9, 6.05e9, 300e3, 0},    // row 4, LO words in 200 kHz
        {LARCH, 1.989e9, -35.0, 1.95e9, 2.03e9, 100e3, 0},  // across the edge of rows 1 and 2
        {LARCH, 4.811e9, -35.0, 4.79e9, 4.83e9, 100e3, 0},  // across the edge of rows 3 and 4
        // A residual step reads its spot with other oscillator settings and
        // its patch replaces the sweep's there: a tone on the spot reads true.
        {LARCH, 40.0e6, -30.0, 20.0e6, 60.0e6, 100e3, 0},   // row 0, read 5 MHz off its spot
        {LARCH, 40.5e6, -30.0, 20.0e6, 60.0e6, 100e3, 0},
        {LARCH, 2.24e9, -40.0, 2.2e9, 2.3e9, 100e3, 0},     // band 1
        {LARCH, 2.2431e9, -40.0, 2.2e9, 2.3e9, 100e3, 0},
        {LARCH, 4.6e9, -40.0, 4.55e9, 4.65e9, 100e3, 0},    // band 2, LO1 in 200 kHz
        {LARCH, 5.6e9, -30.0, 5.3e9, 5.7e9, 300e3, 0},      // two spots in one sweep
        {LARCH, 5.32e9, -30.0, 5.3e9, 5.7e9, 300e3, 0},
        // Narrow spans at fine resolution take the tuned and decimated path.
        {BOTH, 1.5e9, -40.0, 1.5e9 - 100e3, 1.5e9 + 100e3, 1e3, 0},  // ratio 16
        {MAPLE, 2.2e9, -50.0, 2.2e9 - 10e3, 2.2e9 + 10e3, 100.0, 0}, // ratio 256, a mirrored row
        {MAPLE, 1.0e6, -30.0, 0.9e6, 1.1e6, 1e3, 0},                 // low band
        {LARCH, 4.0e9, -50.0, 4.0e9 - 10e3, 4.0e9 + 10e3, 100.0, 0}, // ratio 256, LO words in 200 kHz
        {LARCH, 100.1e6, -30.0, 100.0e6, 100.2e6, 1e3, 0},           // row 0, off the 400 kHz grid
        // Image rejection keeps the tone.
        {LARCH, 1.05e9, -40.0, 1.0e9, 1.1e9, 100e3, QS_REJECTION_IMAGE},  // wide, two looks 10 MHz apart
        {LARCH, 2.24e9, -40.0, 2.2e9, 2.3e9, 100e3, QS_REJECTION_IMAGE},  // with a residual step
        {LARCH, 1.1e9, -40.0, 1.09995e9, 1.10005e9, 1e3, QS_REJECTION_IMAGE},  // narrow, looks 400 kHz apart
    };
    const int model = Larch() ? LARCH : MAPLE;
    for (const auto& c : cases) {
        if (!(c.models & model)) continue;
        qssim_clear_signals(sim);
        qssim_set_tone(sim, c.freq, c.level);
        ExpectTone(Sweep(c.start, c.stop, c.rbw, c.level + 10.0, QS_SCALE_LOG, QS_DETECTOR_MIN_MAX, c.rejection),
                   c.freq, c.level);
    }
}

TEST_P(SweepTruth, LinearScaleGivesTheToneInMillivolts) {
    qssim_set_tone(sim, 1.2e9, -40.0);
    const SweepTrace t = Sweep(1.19e9, 1.21e9, 30e3, -30.0, QS_SCALE_LINEAR);
    ASSERT_EQ(t.status, qsNoError);
    // -40 dBm into 50 ohm, in millivolts.
    const double expectedMv = std::sqrt(1e-3 * std::pow(10.0, -40.0 / 10.0) * 50.0) * 1000.0;
    const int k = t.Peak();
    EXPECT_NEAR(t.FreqAt(k), 1.2e9, t.bin * 0.501);
    EXPECT_NEAR(20.0 * std::log10(t.max[k] / expectedMv), 0.0, 1.0);
}

TEST_P(SweepTruth, AverageDetectorGivesOneTrace) {
    qssim_set_tone(sim, 1.2e9, -40.0);
    const SweepTrace t = Sweep(1.19e9, 1.21e9, 30e3, -30.0, QS_SCALE_LOG, QS_DETECTOR_AVERAGE);
    ASSERT_EQ(t.status, qsNoError);
    EXPECT_EQ(t.min, t.max);
    EXPECT_NEAR(t.max[t.Peak()], -40.0, 1.0);
}

TEST_P(SweepTruth, NoiseFloorFallsAsTheRbwNarrows) {
    // 10 dB per decade of RBW for noise; allow for window and detector.
    const double wide = Sweep(1.0e9, 1.02e9, 300e3, -20.0).Median();
    const double narrow = Sweep(1.0e9, 1.02e9, 3e3, -20.0).Median();
    EXPECT_LT(narrow, wide - 15.0) << "wide " << wide << " narrow " << narrow;
}

TEST_P(SweepTruth, TwoTonesFiveRbwApartAreBothResolved) {
    const double rbw = 10e3;
    qssim_set_tone(sim, 1.3e9, -40.0);
    qssim_set_tone(sim, 1.3e9 + 5 * rbw, -40.0);
    const SweepTrace t = Sweep(1.2995e9, 1.3010e9, rbw, -30.0);
    ASSERT_EQ(t.status, qsNoError);
    auto levelNear = [&](double f) {
        const int i = static_cast<int>(std::lround((f - t.start) / t.bin));
        return *std::max_element(t.max.begin() + i - 1, t.max.begin() + i + 2);
    };
    auto levelAt = [&](double f) { return t.max[static_cast<size_t>(std::lround((f - t.start) / t.bin))]; };
    EXPECT_NEAR(levelNear(1.3e9), -40.0, 1.0);
    EXPECT_NEAR(levelNear(1.3e9 + 5 * rbw), -40.0, 1.0);
    // A clear dip between them.
    EXPECT_LT(levelAt(1.3e9 + 2.5 * rbw), -40.0 - 20.0);
}

// A narrow span with image rejection (two looks apart), fetched twice: the
// second sweep runs on the filters and oscillator the first left running.
TEST_P(SweepTruth, ARejectingNarrowSweepReadsTheToneAgain) {
    qssim_clear_signals(sim);
    qssim_set_tone(sim, 1.1e9, -40.0);
    ASSERT_EQ(qsConfigureCenterSpan(h, 1.1e9, 100e3), qsNoError);
    ASSERT_EQ(qsConfigureSweepCoupling(h, 1e3, 1e3, 0.001, QS_RBW_SHAPE_NATIVE, QS_REJECTION_IMAGE), qsNoError);
    SweepTrace t = ::Sweep(h);
    ExpectTone(t, 1.1e9, -40.0);
    t.status = qsFetchTrace(h, static_cast<int>(t.max.size()), t.min.data(), t.max.data());
    ExpectTone(t, 1.1e9, -40.0);
}

// The noise is random: successive sweeps differ, and averages of sweeps
// differ less from each other than single sweeps do (a fixed ripple of the
// floor cancels in the differences).
TEST_P(SweepTruth, NoiseDiffersFromSweepToSweepAndAveragesDown) {
    SweepTrace t = Sweep(1.0e9, 1.02e9, 30e3, -40.0, QS_SCALE_LOG, QS_DETECTOR_AVERAGE);
    ASSERT_EQ(t.status, qsNoError);
    const size_t n = t.max.size();
    const int sweeps = 16;
    std::vector<std::vector<double>> mw(sweeps, std::vector<double>(n));
    for (auto& sweep : mw) {
        ASSERT_EQ(qsFetchTrace(h, int(n), t.min.data(), t.max.data()), qsNoError);
        for (size_t k = 0; k < n; ++k) sweep[k] = std::pow(10.0, t.max[k] / 10.0);
    }
    // The rms difference in dB of two traces of linear power.
    auto rmsDiffDb = [n](const std::vector<double>& a, const std::vector<double>& b) {
        double sq = 0;
        for (size_t k = 0; k < n; ++k) sq += std::pow(10.0 * std::log10(a[k] / b[k]), 2);
        return std::sqrt(sq / double(n));
    };
    auto average = [&](int from) {
        std::vector<double> avg(n, 0.0);
        for (int i = from; i < from + sweeps / 2; ++i)
            for (size_t k = 0; k < n; ++k) avg[k] += mw[size_t(i)][k] / (sweeps / 2);
        return avg;
    };
    const double single = rmsDiffDb(mw[0], mw[1]);
    EXPECT_GT(single, 0.01);
    // Eight sweeps each: about the square root of eight less.
    EXPECT_LT(rmsDiffDb(average(0), average(sweeps / 2)), single / 2.0);
}

INSTANTIATE_TEST_SUITE_P(EveryModel, SweepTruth,
                         ::testing::Values(QSSIM_PID_MAPLE_REV1, QSSIM_PID_MAPLE_REV2, QSSIM_PID_LARCH),
                         ModelName);

using LarchSweepTruth = SweepTruth;

// The receiver's own spurs sit on the residual spots: the steps read
// there with other oscillator settings must take them out of the trace,
// wide and with rejection.
TEST_P(LarchSweepTruth, ResidualSpursAreRepairedOutOfTheTrace) {
    const struct {
        double spur, start, stop;
        unsigned rejection;
    } cases[] = {
        {40e6, 20e6, 60e6, QS_REJECTION_NONE},
        {2.24e9, 2.2e9, 2.3e9, QS_REJECTION_NONE},
        {3.08e9, 3.0e9, 3.1e9, QS_REJECTION_NONE},
        {4.6e9, 4.55e9, 4.65e9, QS_REJECTION_NONE},
        {5.32e9, 5.3e9, 5.7e9, QS_REJECTION_NONE},
        {5.6e9, 5.3e9, 5.7e9, QS_REJECTION_NONE},
        {2.24e9, 2.2e9, 2.3e9, QS_REJECTION_IMAGE},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.spur);
        const SweepTrace t = Sweep(c.start, c.stop, 100e3, -40.0, QS_SCALE_LOG, QS_DETECTOR_MIN_MAX, c.rejection);
        ASSERT_EQ(t.status, qsNoError);
        const int at = static_cast<int>(std::lround((c.spur - t.start) / t.bin));
        const double near = *std::max_element(t.max.begin() + at - 5, t.max.begin() + at + 6);
        EXPECT_LT(near, t.Median() + 15.0) << "median " << t.Median();
    }
}

INSTANTIATE_TEST_SUITE_P(Larch, LarchSweepTruth, ::testing::Values(QSSIM_PID_LARCH));

}  // namespace
