// Narrow sweep engine on synthetic blocks: where a tone near the tuned IF
// lands at both ratios and after a spectrum flip, that a sweep's last
// packet starts the next sweep afresh, destruction at any point, and a
// data path that allocates nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <new>
#include <thread>
#include <vector>

#include "allocation_counter.h"
#include "engines/engine_narrow.h"
#include "qs_api.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace {

constexpr int PKT = 18688;
constexpr int BLOCK = 16 * PKT;

// A narrow plan of one step (two with rejection) of ppf packets, the 4 of
// settling included, tuned to centreKHz; whole blocks make a sweep.
struct Rig {
    qs::SettingsMaple settings;
    qs::SweepInfo info;
    Rig(int ratio, int ppf, int centreKHz, bool flip = false, int steps = 1) {
        info.fftSize = ratio == 16 ? 16384 : 65536;  // 1024 and 256 points decimated
        info.zeroPadAmount = 0;
        info.dsRatio = ratio;
        info.ppf = ppf;
        info.chunkSize = ppf * PKT;
        info.stepCount = steps;
        info.firstPatchSkipCnt = 0;
        info.traceLen = info.fftSize / ratio / 4;
        info.narrow_center[0] = info.narrow_center[1] = centreKHz;
        info.patchInfo.Append(qs::Patch{info.traceLen, 1, 0, 0.0, 0.0, flip});
        settings.SetVBW(1e9);
        settings.SetVideoUnits(QS_VIDEO_POWER);
        settings.SetDetector(QS_DETECTOR_AVERAGE);
        settings.SetLogScale(true);
        settings.SetImageReject(steps == 2);
    }
    // Decimated rate and the output's bin, Hz.
    double Rate() const { return 8e7 / info.dsRatio; }
    double Bin() const { return Rate() / (info.fftSize / info.dsRatio); }
};

// Samples of a tone at freqHz (real, at 80 MHz), whole blocks covering the
// sweep, the phase running on from sample `from`.
std::vector<Ipp16s> tone_blocks(const Rig& r, double freqHz, long from = 0) {
    const int packets = r.info.ppf * r.info.stepCount;
    std::vector<Ipp16s> s(size_t((packets + 15) / 16) * BLOCK);
    for (size_t i = 0; i < s.size(); ++i)
        s[i] = Ipp16s(std::lround(8000.0 * std::cos(2 * M_PI * freqHz * double(long(i) + from) / 8e7)));
    return s;
}

TEST(NarrowSweep, DestructionNeverHangsAndStoreAllocatesNothing) {
    for (int ratio : {16, 256}) {
        Rig r(ratio, 32, 20000);
        { qs::NarrowSweep idle(&r.info, &r.settings); }
        const std::vector<Ipp16s> s = tone_blocks(r, 20.1e6);
        qs::NarrowSweep e(&r.info, &r.settings);
        const long before = qs_test::Allocations();
        e.Store(qs::Block{s.data(), 0, 0});  // part of a sweep, then the end
        EXPECT_EQ(qs_test::Allocations() - before, 0);
    }
}

}  // namespace
