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
    for (size_t at = 0; at < s.size(); at += kSweepBlock) rets.push_back(index = e.Store(qs::Block{s.data() + at, ppf, index}));
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

TEST(SweepEngine, StoreCountsPacketsAndCompletesChunks) {
    Watchdog wd(60);
    {
        // ppf 4: one block holds four whole chunks. The float fetch narrows.
        SweepRig r(256, 4, 4, 1);
        qs::SweepEngine e(&r.info, &r.settings);
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
        qs::SweepEngine e(&r.info, &r.settings);
        auto s = sweep_samples(r, {{40}}, 2);
        std::vector<double> corr = test_corrections(r, false);
        std::vector<double> mn(static_cast<size_t>(r.info.traceLen)), mx(static_cast<size_t>(r.info.traceLen));
        auto got = std::async(std::launch::async, [&] { return e.GetSweep(mn.data(), mx.data(), corr); });
        EXPECT_EQ(e.Store(qs::Block{s.data(), 48, 0}), 16);
        EXPECT_EQ(e.Store(qs::Block{s.data() + kSweepBlock, 48, 16}), 32);
        EXPECT_EQ(got.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        EXPECT_EQ(e.Store(qs::Block{s.data() + 2 * kSweepBlock, 48, 32}), 0);
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
        qs::SweepEngine e(&r.info, &r.settings, nullptr, workers);
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

TEST(SweepEngine, DestructionNeverHangs) {
    Watchdog wd(60);
    // Workers waiting for a first chunk; one per step, up to four.
    for (int steps : {1, 3, 4, 5, 8}) {
        SweepRig r(256, 16, steps);
        for (int workers : {1, 4}) {
            qs::SweepEngine e(&r.info, &r.settings, nullptr, workers);
            EXPECT_EQ(e.ThreadCount(), std::min(steps, workers));
        }
    }
    // Part of a sweep stored: workers busy or waiting on later chunks.
    {
        SweepRig r(256, 2, 16);
        auto s = sweep_samples(r, {}, 11);
        qs::SweepEngine e(&r.info, &r.settings);
        e.Store(qs::Block{s.data(), 2, 0});
    }
    // As many workers as chunks, between sweeps and in the middle of one.
    {
        SweepRig r(256, 4, 4);
        std::vector<double> corr = test_corrections(r, false);
        auto s = sweep_samples(r, {{40}}, 12);
        qs::SweepEngine e(&r.info, &r.settings);
        fetch(e, r, s, corr);
        fetch(e, r, s, corr);
    }
    {
        SweepRig r(256, 8, 4);
        auto s = sweep_samples(r, {{40}}, 13);
        qs::SweepEngine e(&r.info, &r.settings);
        e.Store(qs::Block{s.data(), 8, 0});
    }
}

TEST(SweepEngine, DataPathDoesNotAllocate) {
    Watchdog wd(60);
    SweepRig r(256, 2, 8, 2);
    std::vector<double> corr = test_corrections(r, false);
    auto s = sweep_samples(r, {{40}, {}, {50}}, 14);
    std::vector<double> mn(static_cast<size_t>(r.info.traceLen)), mx(static_cast<size_t>(r.info.traceLen));
    qs::SweepEngine e(&r.info, &r.settings, nullptr, 4);
    fetch(e, r, s, corr);  // a first sweep settles anything lazy

    std::atomic<long> inStore{-1};
    std::thread feeder([&] {
        int index = 0;
        const long before = qs_test::Allocations();
        for (size_t at = 0; at < s.size(); at += kSweepBlock) index = e.Store(qs::Block{s.data() + at, r.info.ppf, index});
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
}  // namespace
