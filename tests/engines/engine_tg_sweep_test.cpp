// The tracking-generator sweep engine fed with synthetic points: each
// point's chunk is a tone of its own level, so the reduction to one level per
// point, the search for the tone, the through reference and the blend of the
// two passes can be checked against levels the test chose.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <vector>

#include "planning/sizing.h"
#include "engines/engine_tg_sweep.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"
#include "tg/tg_interface.h"

namespace {

using qs::TGSweepEngine;

constexpr int kPoints = 16;  // two blocks of eight points
constexpr int kPpf = 2;
constexpr int kPointSamples = kPpf * 18688;

class TgEngine : public ::testing::Test {
protected:
    void SetUp() override {
        set.m_start = 1e9;
        set.m_span = 1.5e5;
        set.m_rbw = 16000.0;
        set.m_vbw = 8000.0;
        set.m_rbwShape = QS_RBW_SHAPE_LOWPASS;
        int fft = 0;
        double fc = 0.0;
        qs::non_native_fft_from_rbw(set.m_rbw, &fft, &fc);
        set.SetWindowFC(fc);
        set.m_tgPassiveDevice = false;
        set.m_tgHighDynamicRange = true;
        qs::get_fft_size(set.m_rbw, set.m_rbwShape, info.fftSize, info.zeroPadAmount);
        info.chunkSize = kPointSamples;
        info.ppf = kPpf;
        info.stepCount = 1;
        info.binSize = 10000.0;
        info.traceLen = kPoints - 2;
        info.lastPatchSkipCnt = 2;
        info.tgInitialCount = 2000 - kPoints;
        info.patchInfo.Append(qs::Patch{info.fftSize / 4, 1, 0, 1e9, 0.0, false});
        engine.reset(new TGSweepEngine(&info, &set, &tg, &state, &passes, qs::TgPeakRules{}));
        engine->LoadPriCorrData(qs::VecDouble(kPoints, 0.0));
        engine->LoadSecCorrData(qs::VecDouble(kPoints, 0.0));
        engine->Start();
    }

    // One pass: point i carries a tone of amplitude amp[i] (full scale 1)
    // at transform bin `bin`, stored eight points to a block.
    void Feed(const std::vector<double>& amp, double bin) {
        std::vector<Ipp16s> block(size_t(8 * kPointSamples));
        int index = 0;
        for (int first = 0; first < kPoints; first += 8) {
            for (int p = 0; p < 8; ++p)
                for (int n = 0; n < kPointSamples; ++n) {
                    const double x = amp[size_t(first + p)] * std::sin(2 * M_PI * bin * n / info.fftSize);
                    block[size_t(p * kPointSamples + n)] = Ipp16s(std::lround(x * 32767.0));
                }
            index = engine->Store(qs::Block{block.data(), kPpf, index});
        }
        EXPECT_EQ(index, 0);
    }

    std::vector<double> Sweep(const std::vector<double>& pri, const std::vector<double>& sec, double bin = 4000.0) {
        // Each pass's data arrive once the engine has sent the pass.
        passes.send = [&](int pass) { Feed(pass == 0 ? pri : sec, bin); };
        std::vector<double> out(size_t(info.traceLen)), other(out.size());
        EXPECT_EQ(engine->GetSweep(out.data(), other.data(), {}), qsNoError);
        EXPECT_EQ(out, other);
        return out;
    }

    static double Amp(double db) { return std::pow(10.0, db / 20.0); }

    qs::SettingsMaple set;
    qs::SweepInfo info;
    qs::TGInterface tg;
    std::atomic<qs::TGCalState> state{qs::tg0dBStored};
    std::unique_ptr<TGSweepEngine> engine;

    // A generator that stays; a sent pass comes back as the test's data.
    struct Passes : qs::PassControl {
        std::function<void(int)> send;
        bool SendPass(int pass) override {
            send(pass);
            return true;
        }
        bool GeneratorThere() override { return true; }
        bool GeneratorLost() const override { return false; }
    } passes;
};

TEST_F(TgEngine, EachPointReadsItsOwnToneAgainstTheNominalReference) {
    EXPECT_EQ(state.load(), qs::tgNoThruStored);
    EXPECT_EQ(engine->SweepSize(), kPoints);
    set.m_tgHighDynamicRange = false;
    std::vector<double> amp(kPoints);
    for (int i = 0; i < kPoints; ++i) amp[size_t(i)] = Amp(-2.0 * i);
    const std::vector<double> a = Sweep(amp, {});
    // Levels step by 2 dB from point to point, as the tones do.
    for (int i = 1; i < info.traceLen; ++i) EXPECT_NEAR(a[size_t(i - 1)] - a[size_t(i)], 2.0, 0.05) << i;
    // A second pass with 6 dB less reads 6 dB lower everywhere.
    for (double& x : amp) x *= Amp(-6.0);
    const std::vector<double> b = Sweep(amp, {});
    for (int i = 0; i < info.traceLen; ++i) EXPECT_NEAR(a[size_t(i)] - b[size_t(i)], 6.0, 0.05) << i;
}

TEST_F(TgEngine, TheSecondaryPassTakesOverBelowTheCrossover) {
    // Find the reading of a constant tone, then place the primary readings
    // around the crossover t = -55 - (-30) = -25 dB.
    set.m_tgHighDynamicRange = false;
    const double r0 = Sweep(std::vector<double>(kPoints, Amp(-20.0)), {})[0];
    set.m_tgHighDynamicRange = true;
    std::vector<double> pri(kPoints), target(kPoints);
    for (int i = 0; i < kPoints; ++i) {
        target[size_t(i)] = -30.0 + 1.5 * i;  // from -30 to -9 dB
        pri[size_t(i)] = Amp(-20.0 + target[size_t(i)] - r0);
    }
    // The secondary pass reads against -10 dBm: the same tone reads 20 dB
    // lower than in the primary pass.
    const double secTone = -40.0;
    const std::vector<double> out = Sweep(pri, std::vector<double>(kPoints, Amp(-20.0 + secTone - r0 + 20.0)));
    const double s = secTone;
    for (int i = 0; i < info.traceLen; ++i) {
        const double p = target[size_t(i)];
        const double t = -25.0, w = (p - t) * 0.1;
        double want;
        if (p < t - 0.05)
            want = s;
        else if (p > t + 0.05 && p < t + 9.95)
            want = p * w + (1 - w) * s;
        else if (p > t + 10.05)
            want = p;
        else
            continue;  // on an edge of the blend, closer than the readings' precision
        EXPECT_NEAR(out[size_t(i)], want, 0.3) << "point " << i << " primary " << p;
    }
}

TEST_F(TgEngine, APassiveDeviceMovesTheCrossoverTwentyDecibelsDown) {
    set.m_tgPassiveDevice = true;
    set.m_tgHighDynamicRange = false;
    const double r0 = Sweep(std::vector<double>(kPoints, Amp(-20.0)), {})[0];
    set.m_tgHighDynamicRange = true;
    // -35 dB lies below the active crossover (-25) and above the passive
    // one's blend (-45 to -35): the primary stands.
    const std::vector<double> out =
        Sweep(std::vector<double>(kPoints, Amp(-20.0 - 35.0 - r0)), std::vector<double>(kPoints, Amp(-60.0)));
    for (int i = 0; i < info.traceLen; ++i) EXPECT_NEAR(out[size_t(i)], -35.0, 0.2);
}

TEST_F(TgEngine, AThroughLocatesTheToneAndLaterSweepsLookOnlyThere) {
    set.m_tgHighDynamicRange = false;
    const std::vector<double> flat(kPoints, Amp(-20.0));
    state = qs::tg0dBRequested;
    const std::vector<double> first = Sweep(flat, {});
    EXPECT_EQ(state.load(), qs::tg0dBStored);
    for (int i = 0; i < info.traceLen; ++i) {
        EXPECT_GE(engine->PeakIndex(i), 6);
        // The new reference is the level that the through read, and the
        // secondary one 20 dB above it.
        EXPECT_NEAR(engine->ThruPri(i), -30.0 + first[size_t(i)], 1e-9);
        EXPECT_DOUBLE_EQ(engine->ThruSec(i), engine->ThruPri(i) + 20.0);
    }
    // The same tone now reads 0 dB; moved by ten bins either way it lies
    // outside the one-bin search and is no longer seen.
    for (double v : Sweep(flat, {})) EXPECT_NEAR(v, 0.0, 0.01);
    for (double bin : {4010.0, 3990.0})
        for (double v : Sweep(flat, {}, bin)) EXPECT_LT(v, -40.0) << bin;
}

TEST_F(TgEngine, TheTwentyDecibelStepRecomputesTheSecondaryReference) {
    const std::vector<double> flat(kPoints, Amp(-20.0));
    state = qs::tg0dBRequested;
    Sweep(flat, flat);
    ASSERT_EQ(state.load(), qs::tg0dBStored);
    std::vector<double> thruPri(kPoints);
    for (int i = 0; i < kPoints; ++i) thruPri[size_t(i)] = engine->ThruPri(i);
    state = qs::tg20dBRequested;
    Sweep(std::vector<double>(kPoints, Amp(-26.0)), std::vector<double>(kPoints, Amp(-32.0)));
    EXPECT_EQ(state.load(), qs::tg20dBStored);
    // Against the stored through (T = thruPri) the passes read pri = -6 and
    // sec = -12 - 20 = -32; the pad is the through fetch's primary result,
    // T + 30. (pri + T) + (sec + T + 20) - (T + pad) - pad = -T - 78.
    for (int i = 0; i < kPoints; ++i) {
        EXPECT_DOUBLE_EQ(engine->ThruPri(i), thruPri[size_t(i)]);
        EXPECT_NEAR(engine->ThruSec(i), -thruPri[size_t(i)] - 78.0, 0.05) << i;
    }
}

}  // namespace
