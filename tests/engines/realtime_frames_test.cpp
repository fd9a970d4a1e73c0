// Real-time mode through the public calls: a tone in the
// simulator's scene must show in the min/max sweep at its trace point and
// level, and in the persistence frame at its column and level row; frame
// sizes, refusals, the probability-of-intercept figure, and restarts and
// aborts while frames flow.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"
#include "sim_fixture.h"

namespace {

constexpr float kGuard = -7777.0f;  // marks the room past what a fetch may write
constexpr int kGuardLen = 64;

struct RealTimeRequest {
    double center = 1e9;
    double span = 20e6;
    double rbw = 100e3;
    double refDbm = 0.0;
    double advance = 4.0;  // light on the transform thread, so no input is lost
    unsigned scale = QS_SCALE_LOG;
    unsigned detector = QS_DETECTOR_MIN_MAX;
    double frameScale = 100.0;
};

struct Frame {
    std::vector<float> min, max, color, alpha;
    unsigned traceLen = 0;
    double start = 0.0, bin = 0.0;
    int width = 0, height = 0;

    float Color(int row, int col) const { return color[size_t(row) * size_t(width) + size_t(col)]; }
    float Alpha(int row, int col) const { return alpha[size_t(row) * size_t(width) + size_t(col)]; }
    int Peak() const { return int(std::max_element(max.begin(), max.begin() + traceLen) - max.begin()); }
    // The highest level any cell of a column reached; -1 for none.
    int TopRow(int col) const {
        for (int r = height - 1; r >= 0; --r)
            if (Color(r, col) > 0.0f) return r;
        return -1;
    }
};

class RealTimeFrames : public SharedSimulatedDevice {
protected:
    qsStatus Start(const RealTimeRequest& r) {
        EXPECT_EQ(qsConfigureCenterSpan(h, r.center, r.span), qsNoError);
        EXPECT_EQ(qsConfigureLevel(h, r.refDbm, QS_ATTEN_AUTO), qsNoError);
        EXPECT_EQ(qsConfigureAcquisition(h, r.detector, r.scale), qsNoError);
        EXPECT_EQ(qsConfigureSweepCoupling(h, r.rbw, r.rbw, 0.001, QS_RBW_SHAPE_NATIVE, QS_REJECTION_NONE), qsNoError);
        EXPECT_EQ(qsConfigureRealTime(h, r.frameScale, 30), qsNoError);
        EXPECT_EQ(qsConfigureRealTimeOverlap(h, r.advance), qsNoError);
        return qsInitiate(h, QS_MODE_REAL_TIME, 0);
    }

    // Buffers sized by the query calls, with a guard behind each.
    Frame Prepare() {
        Frame f;
        EXPECT_EQ(qsQueryTraceInfo(h, &f.traceLen, &f.bin, &f.start), qsNoError);
        EXPECT_EQ(qsQueryRealTimeInfo(h, &f.width, &f.height), qsNoError);
        f.min.assign(f.traceLen + kGuardLen, kGuard);
        f.max.assign(f.traceLen + kGuardLen, kGuard);
        f.color.assign(size_t(f.width) * size_t(f.height) + kGuardLen, kGuard);
        f.alpha.assign(f.color.size(), kGuard);
        return f;
    }

    qsStatus Fetch(Frame& f) {
        return qsFetchRealTimeFrame(h, f.min.data(), f.max.data(), f.color.data(), f.alpha.data());
    }
    // n frames in a row without a device overrun: a loaded host may lose
    // blocks, which the frame reports, and the test then looks again.
    qsStatus FetchClean(Frame& f, int n = 3) {
        int clean = 0;
        for (int i = 0; i < 40 && clean < n; ++i) {
            const qsStatus s = Fetch(f);
            if (s == qsUncalSweep) {
                clean = 0;
                continue;
            }
            if (s != qsNoError) return s;
            ++clean;
        }
        return clean == n ? qsNoError : qsUncalSweep;
    }

    // Every entry up to the size the queries gave was written, none after.
    static void ExpectFilledExactly(const std::vector<float>& v, size_t n, const char* what) {
        ASSERT_EQ(v.size(), n + kGuardLen);
        size_t untouched = 0;
        for (size_t i = 0; i < n; ++i) untouched += v[i] == kGuard;
        EXPECT_EQ(untouched, 0u) << what;
        for (size_t i = n; i < v.size(); ++i) ASSERT_EQ(v[i], kGuard) << what << " written at " << i;
    }
};
using MapleRealTimeFrames = RealTimeFrames;
using LarchRealTimeFrames = RealTimeFrames;

// Frame k of a fresh measurement holds min(k, 39) updates: every column of
// the colour frame sums to that share of 40. The stream does not wait for
// the fetcher, and one that falls a ring of 32 slots behind (a loaded host)
// reads a later frame: the sum then holds more updates, never fewer, and
// is the same whole number of fortieths in every column.
void ExpectColumnSums(const Frame& f, int k) {
    double first = 0.0;
    for (int c = 0; c < f.width; ++c) {
        double sum = 0.0;
        for (int r = 0; r < f.height; ++r) sum += f.Color(r, c);
        if (c == 0) first = sum;
        ASSERT_NEAR(sum, first, 1e-4) << "column " << c;
    }
    const double updates = first * 40.0;
    EXPECT_NEAR(updates, std::round(updates), 1e-3);
    EXPECT_GE(std::lround(updates), std::min(k, 39));
    EXPECT_LE(std::lround(updates), 39);
}

TEST_P(RealTimeFrames, ToneInSweepAndFrame) {
    constexpr int MAPLE = 1, LARCH = 2;
    const struct {
        int model;
        double center, rbw, span, toneOffsetBins, levelDbm;
        unsigned detector;
        unsigned traceLen;  // what the plan must come to, where it is pinned
        int width;
    } cases[] = {
        {MAPLE, 1e9, 100e3, 20e6, 37, -30.0, QS_DETECTOR_MIN_MAX, 516, 516},
        {MAPLE, 1e9, 100e3, 20e6, -61, -40.0, QS_DETECTOR_AVERAGE, 516, 516},
        // 2047 bins asked for: the best size is 2048, shown in 512 columns.
        {MAPLE, 1e9, 30e3, 2045 * 9765.625, 301, -20.0, QS_DETECTOR_MIN_MAX, 2048, 512},
        // The low band samples the antenna directly.
        {MAPLE, 10e6, 100e3, 10e6, 41, -30.0, QS_DETECTOR_MIN_MAX, 260, 260},
        // The Larch: the LO on a 400 kHz grid, no points added to the span,
        // its first oscillator in 200 kHz in bands 2 and 3.
        {LARCH, 1e9 + 130e3, 100e3, 20e6, 37, -30.0, QS_DETECTOR_MIN_MAX, 0, 0},  // off the grid
        {LARCH, 4.0e9, 30e3, 10e6, -101, -40.0, QS_DETECTOR_AVERAGE, 0, 0},       // band 2
        {LARCH, 2.0e9, 3e3, 200e3, 3, -20.0, QS_DETECTOR_MIN_MAX, 0, 0},          // the narrowest span
        // Beside a residual spot: the oscillators moved.
        {LARCH, 2244e6, 100e3, 20e6, -57, -30.0, QS_DETECTOR_MIN_MAX, 0, 0},
    };
    for (const auto& tc : cases) {
        if (tc.model != (Larch() ? LARCH : MAPLE)) continue;
        SCOPED_TRACE(tc.center);
        RealTimeRequest r;
        r.center = tc.center;
        r.rbw = tc.rbw;
        r.span = tc.span;
        r.detector = tc.detector;
        ASSERT_EQ(Start(r), qsNoError);
        Frame f = Prepare();
        if (tc.traceLen) {
            ASSERT_EQ(f.traceLen, tc.traceLen);
            ASSERT_EQ(f.width, tc.width);
        }
        ASSERT_EQ(f.height, 256);
        // The trace is centred on the centre asked for.
        EXPECT_NEAR(f.start + (f.traceLen / 2) * f.bin, tc.center, 1.01 * f.bin);
        const int binsPerCol = int(f.traceLen) / f.width;

        // The plan is known now: the same measurement again with the tone
        // in the scene from its first sample on.
        const int k = int(f.traceLen / 2 + std::lround(tc.toneOffsetBins));
        const double toneHz = f.start + k * f.bin;
        qssim_clear_signals(sim);
        qssim_set_tone(sim, toneHz, tc.levelDbm);
        ASSERT_EQ(Start(r), qsNoError);
        ASSERT_EQ(FetchClean(f), qsNoError);
        ExpectFilledExactly(f.min, f.traceLen, "min");
        ExpectFilledExactly(f.max, f.traceLen, "max");
        ExpectFilledExactly(f.color, size_t(f.width) * 256, "colour");
        ExpectFilledExactly(f.alpha, size_t(f.width) * 256, "alpha");
        ExpectColumnSums(f, 3);

        const int p = f.Peak();
        EXPECT_EQ(p, k) << "tone at " << toneHz;
        EXPECT_NEAR(f.max[size_t(p)], tc.levelDbm, 1.0);
        if (tc.detector == QS_DETECTOR_AVERAGE) {
            for (unsigned i = 0; i < f.traceLen; ++i) ASSERT_EQ(f.min[i], f.max[i]) << i;
        } else {
            // A steady tone: every transform saw it alike.
            EXPECT_NEAR(f.min[size_t(p)], tc.levelDbm, 1.0);
            for (unsigned i = 0; i < f.traceLen; ++i) ASSERT_LE(f.min[i], f.max[i]) << i;
        }

        // Reference 0 dBm with 100 dB shown: 2.56 rows a dB from -100 dBm.
        const int col = p / binsPerCol;
        const double row = (tc.levelDbm + 100.0) * 2.56;
        EXPECT_NEAR(f.TopRow(col), row, 3.0) << "column " << col;
        EXPECT_EQ(f.Alpha(f.TopRow(col), col), 1.0f);
        // Away from the tone nothing comes near its level.
        const int farCol = (col + f.width / 2) % f.width;
        EXPECT_LT(f.TopRow(farCol), row - 40.0);
        ASSERT_EQ(qsAbort(h), qsNoError);
    }
}

INSTANTIATE_TEST_SUITE_P(BothModels, RealTimeFrames, ::testing::Values(QSSIM_PID_MAPLE_REV2, QSSIM_PID_LARCH),
                         ModelName);

// Frames take their plan from the RBW alone: a sweep before them, whose
// transform was zero-padded, leaves nothing behind.
TEST_P(LarchRealTimeFrames, AFrameAfterAZeroPaddedSweepHoldsTheTone) {
    qssim_set_tone(sim, 1e9, -30.0);
    ASSERT_EQ(qsConfigureCenterSpan(h, 1e9, 10e6), qsNoError);
    ASSERT_EQ(qsConfigureSweepCoupling(h, 30e3, 30e3, 0.001, QS_RBW_SHAPE_NATIVE, QS_REJECTION_NONE), qsNoError);
    ASSERT_GE(Sweep(h).status, qsNoError);
    RealTimeRequest r;
    ASSERT_EQ(Start(r), qsNoError);
    Frame f = Prepare();
    ASSERT_EQ(FetchClean(f), qsNoError);
    EXPECT_NEAR(f.start + f.Peak() * f.bin, 1e9, f.bin);
    EXPECT_NEAR(f.max[size_t(f.Peak())], -30.0, 1.0);
}

// Centred near one of its residual spurs, the Larch moves both oscillators
// as a sweep's residual step does: the spur leaves the band and the floor
// is flat.
TEST_P(LarchRealTimeFrames, NoResidualSpurNearItsSpot) {
    for (double center : {2240e6 + 4e6, 2240e6 - 4e6, 3080e6 + 2e6}) {
        SCOPED_TRACE(center);
        RealTimeRequest r;
        r.center = center;
        r.rbw = 30e3;
        r.span = 20e6;
        r.refDbm = -50.0;
        r.detector = QS_DETECTOR_AVERAGE;
        qssim_clear_signals(sim);
        ASSERT_EQ(Start(r), qsNoError);
        Frame f = Prepare();
        ASSERT_EQ(FetchClean(f), qsNoError);
        std::vector<float> trace(f.max.begin(), f.max.begin() + f.traceLen);
        std::vector<float> sorted = trace;
        std::nth_element(sorted.begin(), sorted.begin() + sorted.size() / 2, sorted.end());
        const float floor = sorted[sorted.size() / 2];
        EXPECT_LT(*std::max_element(trace.begin(), trace.end()), floor + 6.0f)
            << "peak at " << f.start + (std::max_element(trace.begin(), trace.end()) - trace.begin()) * f.bin;
        ASSERT_EQ(qsAbort(h), qsNoError);
    }
}

TEST_P(MapleRealTimeFrames, NullOutputsAreSkipped) {
    ASSERT_EQ(Start(RealTimeRequest{}), qsNoError);
    Frame f = Prepare();
    EXPECT_EQ(qsFetchRealTimeFrame(h, nullptr, nullptr, nullptr, nullptr), qsNoError);
    EXPECT_EQ(qsFetchRealTimeFrame(h, nullptr, f.max.data(), nullptr, nullptr), qsNoError);
    ExpectFilledExactly(f.max, f.traceLen, "max alone");
    EXPECT_EQ(qsFetchRealTimeFrame(h, nullptr, nullptr, nullptr, f.alpha.data()), qsNoError);
    ExpectFilledExactly(f.alpha, size_t(f.width) * 256, "alpha alone");
    EXPECT_EQ(qsFetchRealTimeFrame(h, f.min.data(), nullptr, f.color.data(), nullptr), qsNoError);
    ExpectFilledExactly(f.min, f.traceLen, "min with colour");
    ExpectFilledExactly(f.color, size_t(f.width) * 256, "colour with min");
    // The fourth frame of the measurement, whichever arrays were asked for.
    ExpectColumnSums(f, 4);
}

TEST_P(MapleRealTimeFrames, SpanAndBandwidthLimits) {
    struct Limit {
        double span, rbw;
        qsStatus want;
    };
    const Limit limits[] = {
        {199000.0, 100e3, qsNoError},
        {27001000.0, 100e3, qsNoError},
        {198999.9, 100e3, qsInvalidParameterErr},
        {27001000.1, 100e3, qsInvalidParameterErr},
        {20e6, 631450.0, qsNoError},
        {20e6, 631450.1, qsInvalidParameterErr},
        // The lowest RBW takes a 131072-point transform.
        {1e6, 2265.820313, qsNoError},
        {1e6, 2265.8203, qsInvalidParameterErr},
    };
    for (const Limit& l : limits) {
        SCOPED_TRACE(testing::Message() << "span " << l.span << " rbw " << l.rbw);
        RealTimeRequest r;
        r.span = l.span;
        r.rbw = l.rbw;
        r.advance = 10.0;
        ASSERT_EQ(Start(r), l.want);
        int w = 0, ht = 0;
        if (l.want == qsNoError) {
            Frame f = Prepare();
            ASSERT_EQ(Fetch(f), qsNoError);
            ExpectColumnSums(f, 1);
        } else {
            // Refused: nothing runs.
            EXPECT_EQ(qsQueryRealTimeInfo(h, &w, &ht), qsDeviceNotConfiguredErr);
            EXPECT_EQ(qsFetchRealTimeFrame(h, nullptr, nullptr, nullptr, nullptr), qsDeviceNotConfiguredErr);
        }
        qsAbort(h);
    }
}

TEST_P(MapleRealTimeFrames, PoiFollowsTransformAndStep) {
    double poi = 0.0;
    EXPECT_EQ(qsQueryRealTimePoi(h, &poi), qsDeviceNotConfiguredErr);
    EXPECT_EQ(qsQueryRealTimePoi(h, nullptr), qsNullPtrErr);
    struct Case {
        double rbw, advance, poi;
    };
    // 100 kHz takes a 2048-point transform, 30 kHz 8192 points.
    const Case cases[] = {{100e3, 0.5, (2048 + 1024) / 8e7}, {100e3, 4.0, (2048 + 8192) / 8e7},
                          {30e3, 1.0, (8192 + 8192) / 8e7}};
    for (const Case& c : cases) {
        RealTimeRequest r;
        r.rbw = c.rbw;
        r.advance = c.advance;
        ASSERT_EQ(Start(r), qsNoError);
        ASSERT_EQ(qsQueryRealTimePoi(h, &poi), qsNoError);
        EXPECT_DOUBLE_EQ(poi, c.poi) << c.rbw << " " << c.advance;
    }
    ASSERT_EQ(qsAbort(h), qsNoError);
    EXPECT_EQ(qsQueryRealTimePoi(h, &poi), qsDeviceNotConfiguredErr);
}

// A new qsInitiate over a running stream and qsAbort between fetches end
// the stream and its engine cleanly; the device sweeps afterwards.
TEST_P(MapleRealTimeFrames, RestartAndAbortWhileFramesFlow) {
    qssim_set_tone(sim, 1.0025e9, -30.0);
    RealTimeRequest r;
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        r.span = round == 1 ? 10e6 : 20e6;
        ASSERT_EQ(Start(r), qsNoError);
        Frame f = Prepare();
        ASSERT_EQ(Fetch(f), qsNoError);
        ASSERT_EQ(Fetch(f), qsNoError);
        // Over the running stream: the old engine goes, the new starts afresh.
        ASSERT_EQ(Start(r), qsNoError);
        ASSERT_EQ(Fetch(f), qsNoError);
        ExpectColumnSums(f, 1);
        ASSERT_EQ(qsAbort(h), qsNoError);
        EXPECT_EQ(Fetch(f), qsDeviceNotConfiguredErr);
    }
    EXPECT_EQ(qsAbort(h), qsDeviceNotConfiguredErr);

    ASSERT_EQ(qsConfigureCenterSpan(h, 1e9, 20e6), qsNoError);
    EXPECT_EQ(Sweep(h).status, qsNoError);
}

INSTANTIATE_TEST_SUITE_P(Larch, LarchRealTimeFrames, ::testing::Values(QSSIM_PID_LARCH), ModelName);
INSTANTIATE_TEST_SUITE_P(Maple, MapleRealTimeFrames, ::testing::Values(QSSIM_PID_MAPLE_REV2), ModelName);

}  // namespace
