// Sweep engine: blocks of 16-bit samples through Store on a feeding thread
// while the test's thread sits in GetSweep, against patches made by a
// VideoIIR run directly on each chunk; worker counts, stitching, flipped
// rows, the low band's halves, the rejection pass, destruction and the
// allocation-free data path; the Larch's residual repair, its rejection pass
// and the self-calibration's peak pass.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include "engines/engine_sweep.h"
#include "engines/video_iir.h"
#include "qs_api.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

#include "allocation_counter.inc"

namespace {

constexpr int kSweepPacket = 18688;
constexpr int kSweepBlock = 16 * kSweepPacket;

// Ends the process with a failure if a test's engine work does not finish
// in time, so a deadlock fails instead of hanging the suite.
class Watchdog {
public:
    explicit Watchdog(int seconds) : t([this, seconds] {
        std::unique_lock<std::mutex> lock(m);
        if (!cv.wait_for(lock, std::chrono::seconds(seconds), [this] { return done; })) {
            std::fprintf(stderr, "watchdog: engine did not finish within %d s\n", seconds);
            std::fflush(stderr);
            std::_Exit(EXIT_FAILURE);
        }
    }) {}
    ~Watchdog() {
        {
            std::lock_guard<std::mutex> lock(m);
            done = true;
        }
        cv.notify_all();
        t.join();
    }

private:
    std::mutex m;
    std::condition_variable cv;
    bool done = false;
    std::thread t;
};

struct SweepRig {
    qs::SettingsMaple settings;
    qs::SweepInfo info;
    SweepRig(int fft, int ppf, int steps, int ifOffset = 0) {
        info.fftSize = fft;
        info.zeroPadAmount = 0;
        info.ppf = ppf;
        info.chunkSize = ppf * kSweepPacket;
        info.stepCount = steps;
        info.dsRatio = 1;
        info.IFOffset = ifOffset;
        info.initialBand = 1;
        info.firstPatchSkipCnt = 0;
        info.traceLen = steps * fft / 4;
        for (int i = 0; i < steps; ++i) AddPatch(i + 1, ifOffset, false);
        settings.SetVBW(0.25 * 3.2e8 / fft);  // a0 = 0.25
        settings.SetVideoUnits(QS_VIDEO_POWER);
        settings.SetDetector(QS_DETECTOR_MIN_MAX);
        settings.SetLogScale(true);
        settings.SetImageReject(false);
    }
    void AddPatch(int band, int ifOffset, bool flip) {
        info.patchInfo.Append(qs::Patch{info.fftSize / 4, band, ifOffset, 0.0, 0.0, flip});
    }
    void SetPatch(int i, int band, int ifOffset, bool flip) {
        std::vector<qs::Patch> p = info.patchInfo.Patches();
        p[size_t(i)] = qs::Patch{info.fftSize / 4, band, ifOffset, 0.0, 0.0, flip};
        info.patchInfo.Clear();
        for (const qs::Patch& x : p) info.patchInfo.Append(x);
    }
    int f4() const { return info.fftSize / 4; }
    int f8() const { return info.fftSize / 8; }
};

// One sweep of samples: chunk c carries a tone at each of tones[c]'s bins
// (none for an empty list) over a little pseudo-random noise.
std::vector<Ipp16s> sweep_samples(const SweepRig& r, const std::vector<std::vector<int>>& tones, unsigned seed) {
    const int n = r.info.chunkSize;
    std::vector<Ipp16s> s(size_t(r.info.stepCount) * size_t(n));
    unsigned x = seed * 2654435761u + 1;
    for (int c = 0; c < r.info.stepCount; ++c)
        for (int i = 0; i < n; ++i) {
            x = x * 1664525u + 1013904223u;
            double v = double(int(x >> 20) % 101 - 50);
            if (size_t(c) < tones.size())
                for (int b : tones[size_t(c)]) v += 6000.0 * std::cos(2 * M_PI * b * double(i) / r.info.fftSize);
            s[size_t(c) * size_t(n) + size_t(i)] = Ipp16s(std::lround(v));
        }
    return s;
}

std::vector<double> test_corrections(const SweepRig& r, bool linear) {
    std::vector<double> c(size_t(r.info.stepCount * r.f4()));
    for (size_t i = 0; i < c.size(); ++i) c[i] = linear ? 1.0 + 0.01 * double(i % 13) : 0.25 * double(i % 7) - 0.5;
    return c;
}

// The patch of each chunk from a VideoIIR run directly, with the chunk's
// correction applied.
std::vector<std::vector<double>> reference_patches(const SweepRig& r, const std::vector<Ipp16s>& s,
                                                   const std::vector<double>& corr, bool wantMax) {
    qs::VideoIIR v(&r.settings, &r.info);
    const int n = r.info.chunkSize, f4 = r.f4();
    std::vector<double> chunk(static_cast<size_t>(n)), mn(static_cast<size_t>(f4)), mx(static_cast<size_t>(f4));
    std::vector<std::vector<double>> out;
    for (int c = 0; c < r.info.stepCount; ++c) {
        for (int i = 0; i < n; ++i) chunk[size_t(i)] = s[size_t(c) * size_t(n) + size_t(i)] / 32768.0;
        const qs::Patch& p = r.info.patchInfo[c];
        v.Process(chunk.data(), mn.data(), mx.data(), p.if_offset, r.settings.VideoUnits(), r.settings.Detector(),
                  r.settings.LogScale() ? QS_OUT_DBM : QS_OUT_MV, p.flip_spectrum);
        std::vector<double> patch = wantMax ? mx : mn;
        for (int k = 0; k < f4; ++k) {
            const double cv = corr[size_t(c * f4 + k)];
            patch[size_t(k)] = r.settings.LogScale() ? patch[size_t(k)] + cv : patch[size_t(k)] * cv;
        }
        out.push_back(patch);
    }
    return out;
}

// Stores blocks as the interface thread would and returns Store's results.
std::vector<int> feed(qs::SweepEngine& e, std::vector<Ipp16s>& s, int ppf) {
    std::vector<int> rets;
    int index = 0;
    for (size_t at = 0; at < s.size(); at += kSweepBlock) rets.push_back(index = e.Store(s.data() + at, ppf, index));
    return rets;
}

struct Trace {
    std::vector<double> min, max;
};

// One fetch: a feeding thread stores the sweep while this thread blocks in
// GetSweep, as on a device.
Trace fetch(qs::SweepEngine& e, const SweepRig& r, std::vector<Ipp16s>& s, const std::vector<double>& corr) {
    Trace t{std::vector<double>(size_t(r.info.traceLen)), std::vector<double>(size_t(r.info.traceLen))};
    std::thread feeder([&] { feed(e, s, r.info.ppf); });
    EXPECT_EQ(e.GetSweep(t.min.data(), t.max.data(), corr), qsNoError);
    feeder.join();
    return t;
}

// Concatenation of the patches from firstPatchSkipCnt, traceLen values.
std::vector<double> stitched(const SweepRig& r, const std::vector<std::vector<double>>& patches) {
    std::vector<double> all;
    for (const auto& p : patches) all.insert(all.end(), p.begin(), p.end());
    return std::vector<double>(all.begin() + r.info.firstPatchSkipCnt,
                               all.begin() + r.info.firstPatchSkipCnt + r.info.traceLen);
}

size_t argmax(const std::vector<double>& v) { return size_t(std::max_element(v.begin(), v.end()) - v.begin()); }

TEST(SweepEngine, StoreCountsPacketsAndCompletesChunks) {
    Watchdog wd(60);
    {
        // ppf 4: one block holds four whole chunks. The float fetch narrows.
        SweepRig r(256, 4, 4, 1);
        qs::SweepEngine_Maple e(&r.info, &r.settings);
        auto s = sweep_samples(r, {{50}, {}, {}, {70}}, 1);
        std::vector<double> corr = test_corrections(r, false);
        EXPECT_EQ(feed(e, s, 4), std::vector<int>({0}));
        std::vector<float> mn(static_cast<size_t>(r.info.traceLen)), mx(static_cast<size_t>(r.info.traceLen));
        EXPECT_EQ(e.GetSweep(mn.data(), mx.data(), corr), qsNoError);
        auto ref = stitched(r, reference_patches(r, s, corr, true));
        for (size_t k = 0; k < ref.size(); ++k) ASSERT_EQ(mx[k], float(ref[k])) << k;
    }
    {
        // ppf 48: a chunk spans three blocks and only the third completes it.
        SweepRig r(256, 48, 1);
        qs::SweepEngine_Maple e(&r.info, &r.settings);
        auto s = sweep_samples(r, {{40}}, 2);
        std::vector<double> corr = test_corrections(r, false);
        std::vector<double> mn(static_cast<size_t>(r.info.traceLen)), mx(static_cast<size_t>(r.info.traceLen));
        auto got = std::async(std::launch::async, [&] { return e.GetSweep(mn.data(), mx.data(), corr); });
        EXPECT_EQ(e.Store(s.data(), 48, 0), 16);
        EXPECT_EQ(e.Store(s.data() + kSweepBlock, 48, 16), 32);
        EXPECT_EQ(got.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        EXPECT_EQ(e.Store(s.data() + 2 * kSweepBlock, 48, 32), 0);
        EXPECT_EQ(got.get(), qsNoError);
        EXPECT_EQ(mx, stitched(r, reference_patches(r, s, corr, true)));
    }
}

TEST(SweepEngine, OneAndFourWorkersGiveTheSameTracesSweepAfterSweep) {
    Watchdog wd(120);
    SweepRig r(256, 2, 8, 3);
    std::vector<double> corr = test_corrections(r, false);
    std::vector<std::vector<Trace>> byWorkers;
    for (int workers : {1, 4}) {
        qs::SweepEngine_Maple e(&r.info, &r.settings, workers);
        ASSERT_EQ(e.ThreadCount(), workers);
        std::vector<Trace> traces;
        // Three sweeps of different data through the same engine: the ring
        // and the claims wrap, and nothing stale survives.
        for (unsigned sweep = 0; sweep < 3; ++sweep) {
            auto s = sweep_samples(r, {{20 + int(sweep)}, {}, {60}, {}, {}, {33, 90}, {}, {70 - int(sweep)}}, sweep);
            Trace t = fetch(e, r, s, corr);
            EXPECT_EQ(t.min, stitched(r, reference_patches(r, s, corr, false))) << workers << " workers";
            EXPECT_EQ(t.max, stitched(r, reference_patches(r, s, corr, true))) << workers << " workers";
            traces.push_back(t);
        }
        EXPECT_NE(traces[0].max, traces[1].max);
        byWorkers.push_back(traces);
    }
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(byWorkers[0][i].min, byWorkers[1][i].min);
        EXPECT_EQ(byWorkers[0][i].max, byWorkers[1][i].max);
    }
}

TEST(SweepEngine, StitchesPatchesWithOffsetsSkipAndFlippedRows) {
    Watchdog wd(60);
    SweepRig r(256, 4, 4, 5);  // f4 64, f8 32
    r.info.firstPatchSkipCnt = 7;
    r.info.traceLen = 4 * 64 - 7 - 10;
    r.SetPatch(2, 3, -6, false);
    std::vector<double> corr = test_corrections(r, false);
    qs::SweepEngine_Maple e(&r.info, &r.settings, 4);

    // Patch 1 keeps bins from 32 + 5: a tone 20 bins in stands at trace
    // index 64 + 20 - 7. Patch 2 has its own offset -6.
    auto s = sweep_samples(r, {{}, {32 + 5 + 20}, {32 - 6 + 30}, {}}, 3);
    Trace t = fetch(e, r, s, corr);
    EXPECT_EQ(t.max, stitched(r, reference_patches(r, s, corr, true)));
    std::vector<double> p1(t.max.begin() + 57, t.max.begin() + 121), p2(t.max.begin() + 121, t.max.begin() + 185);
    EXPECT_EQ(argmax(p1) + 57, size_t(77));
    EXPECT_EQ(argmax(p2) + 121, size_t(128 + 30 - 7));
    EXPECT_GT(t.max[77], t.max[70] + 40.0);

    // Flipped, patch 1 is mirrored about its IF centre, bin 64 - 5, which
    // stays at point 32: the tone 20 bins above 32 - 5 (12 below the
    // centre) lands 12 points above the patch's middle.
    r.SetPatch(1, 2, 5, true);
    qs::SweepEngine_Maple f(&r.info, &r.settings, 2);
    auto sf = sweep_samples(r, {{}, {32 - 5 + 20}, {}, {}}, 4);
    Trace tf = fetch(f, r, sf, corr);
    EXPECT_EQ(tf.max, stitched(r, reference_patches(r, sf, corr, true)));
    std::vector<double> q1(tf.max.begin() + 57, tf.max.begin() + 121);
    EXPECT_EQ(argmax(q1) + 57, size_t(64 + 32 + 12 - 7));
}

TEST(SweepEngine, CorrectionsAddInDecibelsAndMultiplyLinearly) {
    Watchdog wd(60);
    for (bool linear : {false, true}) {
        SweepRig r(256, 4, 4, 2);
        r.settings.SetLogScale(!linear);
        auto s = sweep_samples(r, {{50}, {}, {40}, {}}, 5);
        std::vector<double> corr = test_corrections(r, linear), none(corr.size(), linear ? 1.0 : 0.0);
        qs::SweepEngine_Maple e(&r.info, &r.settings);
        Trace raw = fetch(e, r, s, none), cor = fetch(e, r, s, corr);
        for (size_t k = 0; k < raw.max.size(); ++k) {
            const double want = linear ? raw.max[k] * corr[k] : raw.max[k] + corr[k];
            ASSERT_EQ(cor.max[k], want) << k;
            ASSERT_EQ(cor.min[k], linear ? raw.min[k] * corr[k] : raw.min[k] + corr[k]) << k;
        }
        // Linear scale delivers millivolts: all positive.
        if (linear) {
            EXPECT_GT(*std::min_element(raw.min.begin(), raw.min.end()), 0.0);
        }
    }
}

TEST(SweepEngine, LowBandPatchRepeatsItsFirstHalf) {
    Watchdog wd(60);
    SweepRig r(256, 4, 4);
    r.SetPatch(0, 0, 0, false);
    r.info.initialBand = 0;
    std::vector<double> corr = test_corrections(r, false);
    auto s = sweep_samples(r, {{32 + 10, 32 + 55}, {32 + 45}, {}, {}}, 6);
    qs::SweepEngine_Maple e(&r.info, &r.settings);
    Trace t = fetch(e, r, s, corr);
    auto mx = reference_patches(r, s, corr, true), mn = reference_patches(r, s, corr, false);
    for (auto* p : {&mx[0], &mn[0]}) std::copy(p->begin(), p->begin() + 32, p->begin() + 32);
    EXPECT_EQ(t.max, stitched(r, mx));
    EXPECT_EQ(t.min, stitched(r, mn));
    // The tone in the band-zero patch's lower half now shows in both halves,
    // the one in its upper half is gone; the next patch is left alone.
    EXPECT_EQ(t.max[10], t.max[42]);
    EXPECT_LT(t.max[55], t.max[10] - 40.0);
    EXPECT_GT(t.max[64 + 45], t.max[64 + 40] + 40.0);
}

TEST(SweepEngine, RejectionKeepsThePerBinMinimumOfNeighbouringChunks) {
    Watchdog wd(60);
    for (int initialBand : {1, 0}) {
        SCOPED_TRACE(initialBand);
        SweepRig r(256, 4, 4);  // f4 64, f8 32; pairs give 3 x 32 values
        r.settings.SetImageReject(true);
        r.info.initialBand = initialBand;
        if (initialBand == 0) r.SetPatch(0, 0, 0, false);
        r.info.traceLen = 3 * 32;
        std::vector<double> corr = test_corrections(r, false);
        // Chunk 1's upper half has a spur at 10 and a signal at 20; chunk 2
        // sees the signal in its lower half, the spur not. Chunk 1's lower
        // half has a tone at 8 that chunk 0 does not see.
        auto s = sweep_samples(r, {{}, {32 + 8, 32 + 32 + 10, 32 + 32 + 20}, {32 + 20}, {}}, 7);
        qs::SweepEngine_Maple e(&r.info, &r.settings, 4);
        Trace t = fetch(e, r, s, corr);

        for (bool wantMax : {false, true}) {
            auto p = reference_patches(r, s, corr, wantMax);
            std::vector<double> want(96);
            for (int i = 1; i < 4; ++i)
                for (int k = 0; k < 32; ++k)
                    want[size_t((i - 1) * 32 + k)] = (initialBand == 0 && i == 1)
                                                         ? p[1][size_t(k)]
                                                         : std::min(p[size_t(i - 1)][size_t(32 + k)], p[size_t(i)][size_t(k)]);
            EXPECT_EQ(wantMax ? t.max : t.min, want);
        }
        // Both traces lose the spur (the maximum trace too) and keep the
        // signal that both chunks saw.
        EXPECT_GT(t.max[32 + 20], t.max[32 + 15] + 40.0);
        EXPECT_LT(t.max[32 + 10], t.max[32 + 20] - 40.0);
        EXPECT_LT(t.min[32 + 10], t.min[32 + 20] - 40.0);
        // In band zero the first half-patch is chunk 1's lower half alone;
        // otherwise it is paired with chunk 0, which lacks the tone.
        if (initialBand == 0) {
            EXPECT_GT(t.max[8], t.max[15] + 40.0);
        } else {
            EXPECT_LT(t.max[8], t.max[32 + 20] - 40.0);
        }
    }
    // One step: nothing to pair, the corrected chunk is delivered.
    SweepRig r(256, 16, 1);
    r.settings.SetImageReject(true);
    std::vector<double> corr = test_corrections(r, false);
    auto s = sweep_samples(r, {{44}}, 8);
    qs::SweepEngine_Maple e(&r.info, &r.settings);
    Trace t = fetch(e, r, s, corr);
    EXPECT_EQ(t.max, stitched(r, reference_patches(r, s, corr, true)));
}

TEST(SweepEngine, BandZeroCalDeliversHalfTheTransformUncorrected) {
    Watchdog wd(60);
    SweepRig r(256, 16, 1);
    r.SetPatch(0, 0, 0, false);
    r.info.traceLen = 128;
    auto s = sweep_samples(r, {{3, 100}}, 10);
    qs::BandZeroCalEngine_Maple e(&r.info, &r.settings);
    std::vector<double> corr(64, 100.0), mn(128), mx(128);
    std::thread feeder([&] { feed(e, s, 16); });
    EXPECT_EQ(e.GetSweep(mn.data(), mx.data(), corr), qsNoError);
    feeder.join();
    // Bins 0 to 127 in order, in dBm, with no correction added.
    EXPECT_EQ(argmax(std::vector<double>(mx.begin(), mx.begin() + 50)), size_t(3));
    EXPECT_EQ(argmax(std::vector<double>(mx.begin() + 50, mx.end())) + 50, size_t(100));
    EXPECT_LT(mx[100], 0.0);
    EXPECT_GT(mx[100], mx[90] + 40.0);
}

TEST(SweepEngine, DestructionNeverHangs) {
    Watchdog wd(60);
    // Workers waiting for a first chunk; one per step, up to four.
    for (int steps : {1, 3, 4, 5, 8}) {
        SweepRig r(256, 16, steps);
        for (int workers : {1, 4}) {
            qs::SweepEngine_Maple e(&r.info, &r.settings, workers);
            EXPECT_EQ(e.ThreadCount(), std::min(steps, workers));
        }
    }
    // Part of a sweep stored: workers busy or waiting on later chunks.
    {
        SweepRig r(256, 2, 16);
        auto s = sweep_samples(r, {}, 11);
        qs::SweepEngine_Maple e(&r.info, &r.settings);
        e.Store(s.data(), 2, 0);
    }
    // As many workers as chunks, between sweeps and in the middle of one.
    {
        SweepRig r(256, 4, 4);
        std::vector<double> corr = test_corrections(r, false);
        auto s = sweep_samples(r, {{40}}, 12);
        qs::SweepEngine_Maple e(&r.info, &r.settings);
        fetch(e, r, s, corr);
        fetch(e, r, s, corr);
    }
    {
        SweepRig r(256, 8, 4);
        auto s = sweep_samples(r, {{40}}, 13);
        qs::SweepEngine_Maple e(&r.info, &r.settings);
        e.Store(s.data(), 8, 0);
    }
}

TEST(SweepEngine, DataPathDoesNotAllocate) {
    Watchdog wd(60);
    SweepRig r(256, 2, 8, 2);
    std::vector<double> corr = test_corrections(r, false);
    auto s = sweep_samples(r, {{40}, {}, {50}}, 14);
    std::vector<double> mn(static_cast<size_t>(r.info.traceLen)), mx(static_cast<size_t>(r.info.traceLen));
    qs::SweepEngine_Maple e(&r.info, &r.settings, 4);
    fetch(e, r, s, corr);  // a first sweep settles anything lazy

    std::atomic<long> inStore{-1};
    std::thread feeder([&] {
        int index = 0;
        const long before = qs_test::Allocations();
        for (size_t at = 0; at < s.size(); at += kSweepBlock) index = e.Store(s.data() + at, r.info.ppf, index);
        inStore = qs_test::Allocations() - before;
    });
    const long before = qs_test::Allocations();
    e.GetSweep(mn.data(), mx.data(), corr);
    const long during = qs_test::Allocations() - before;
    feeder.join();
    // Counts every thread: Store, the workers and the fetch.
    EXPECT_EQ(inStore.load(), 0);
    EXPECT_EQ(during, 0);
    EXPECT_EQ(mx, stitched(r, reference_patches(r, s, corr, true)));
}

// ---- Larch ------------------------------------------------------------------

// Residual chunks come first. A residual of row 0 moves only bins e..4e-1
// of its patch to bins 3e..6e-1 of the regular patch it repairs (e = f4/8);
// any other row replaces the whole patch. The trace starts at the first
// regular chunk, in both arrays.
TEST(SweepEngineLarch, ResidualPatchesRepairTheRegularOnes) {
    Watchdog wd(60);
    SweepRig r(256, 4, 4);  // f4 64; chunks 0, 1 residual, 2, 3 regular
    r.info.traceLen = 2 * 64 - 5;
    r.info.firstPatchSkipCnt = 5;
    qs::ResidualInfo rps;
    rps.m_residualCount = 2;
    rps.m_residualID[0] = 0;
    rps.m_residualLocation[0] = 2;
    rps.m_residualID[1] = 3;
    rps.m_residualLocation[1] = 3;
    std::vector<double> corr = test_corrections(r, false);
    auto s = sweep_samples(r, {{32 + 12}, {32 + 30}, {32 + 40}, {32 + 50}}, 21);
    qs::SweepEngine_Larch e(&r.info, &r.settings, &rps);
    Trace t = fetch(e, r, s, corr);
    for (bool wantMax : {false, true}) {
        auto p = reference_patches(r, s, corr, wantMax);
        std::vector<double> want = p[2];
        std::copy(p[0].begin() + 8, p[0].begin() + 32, want.begin() + 24);
        want.insert(want.end(), p[1].begin(), p[1].end());
        EXPECT_EQ(wantMax ? t.max : t.min, std::vector<double>(want.begin() + 5, want.end())) << wantMax;
    }
}

// Rejection: the regular chunks pair by minimum from the first regular
// position; then a residual can only lower the 2q bins about its place
// (q = f8/4), taking them from its patch's middle (row 0: from its lower
// quarter).
TEST(SweepEngineLarch, RejectionPairsTheRegularChunksAndResidualsOnlyLower) {
    Watchdog wd(60);
    for (int id : {0, 4}) {
        SCOPED_TRACE(id);
        SweepRig r(256, 4, 4);  // f4 64, f8 32, q 8; chunk 0 residual, 1..3 regular
        r.settings.SetImageReject(true);
        r.info.traceLen = 2 * 32;
        qs::ResidualInfo rps;
        rps.m_residualCount = 1;
        rps.m_residualID[0] = id;
        rps.m_residualLocation[0] = 2;
        std::vector<double> corr = test_corrections(r, false);
        // Chunks 1 and 2 both see a tone at pair position 28, which only
        // the residual lacks; the residual's own tones (patch bins 20 and
        // 36) land at position 36, where the regular chunks are quiet. A
        // patch starts at transform bin 32.
        auto s = sweep_samples(r, {{32 + 20, 32 + 36}, {32 + 60}, {32 + 28}, {}}, 9);
        qs::SweepEngine_Larch e(&r.info, &r.settings, &rps);
        Trace t = fetch(e, r, s, corr);
        for (bool wantMax : {false, true}) {
            auto p = reference_patches(r, s, corr, wantMax);
            std::vector<double> want(64);
            for (int i = 1; i < 3; ++i)
                for (int k = 0; k < 32; ++k)
                    want[size_t((i - 1) * 32 + k)] = std::min(p[size_t(i)][size_t(32 + k)], p[size_t(i + 1)][size_t(k)]);
            const std::vector<double> paired = want;
            const int from = id != 0 ? 32 - 8 : 8;
            for (int k = 0; k < 16; ++k)
                want[size_t(32 - 8 + k)] = std::min(p[0][size_t(from + k)], want[size_t(32 - 8 + k)]);
            EXPECT_EQ(wantMax ? t.max : t.min, want) << wantMax;
            EXPECT_LT(want[28], paired[28] - 30.0);
            EXPECT_EQ(want[36], paired[36]);
        }
    }
}

// The self-calibration's pass: 288 one-packet chunks, the largest value of
// each maximum patch, no correction; pass after pass on one engine.
TEST(SweepEngineLarch, CalSweepTakesThePeakOfEachOfTheChunks) {
    Watchdog wd(60);
    SweepRig r(1024, 1, 288, -128);
    r.settings.SetDetector(QS_DETECTOR_AVERAGE);
    std::vector<std::vector<int>> tones;
    for (int c = 0; c < 288; ++c) tones.push_back(c % 5 == 0 ? std::vector<int>{} : std::vector<int>{100 + c % 50});
    auto s = sweep_samples(r, tones, 3);
    qs::ResidualInfo none;
    qs::SweepEngine_Larch e(&r.info, &r.settings, &none);
    const std::vector<double> zero(size_t(288 * 256), 0.0);
    auto p = reference_patches(r, s, zero, true);
    for (int pass = 0; pass < 2; ++pass) {
        std::vector<double> peaks(288, 0.0);
        std::thread feeder([&] { feed(e, s, 1); });
        EXPECT_EQ(e.GetCalSweep(peaks.data()), 0);
        feeder.join();
        for (int c = 0; c < 288; ++c)
            ASSERT_EQ(peaks[size_t(c)], *std::max_element(p[size_t(c)].begin(), p[size_t(c)].end())) << c;
        EXPECT_GT(peaks[1], peaks[0] + 30.0);  // a tone against noise
    }
}

}  // namespace
