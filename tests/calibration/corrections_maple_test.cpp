// The Maple's corrections against values worked out by hand from tables
// the test writes into an image: temperature interpolation, the gain and
// attenuation choice, rough gains, each correction term and the arrays.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "calibration/corrections_maple.h"
#include "image_writer.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

using namespace qs;
using caltest::MapleImage;

namespace {

class MapleCorr : public ::testing::Test {
protected:
    // Loads img and configures at temp with a fixed or automatic pair.
    void Load(int rev = 1) {
        c.reset(new CorrectionsMaple(rev));
        ASSERT_TRUE(c->Initialize(img.data()));
    }
    void Configure(double temp, int gain, double atten, double ref = 0.0) {
        set.m_gain = gain;
        set.m_atten = atten;
        set.m_reference = ref;
        c->Configure(temp, set, info);
    }
    static Patch MakePatch(int length, int band, int if_offset, double center) {
        return Patch{length, band, if_offset, center, 0.0, false};
    }

    MapleImage img;
    std::unique_ptr<CorrectionsMaple> c;
    SettingsMaple set;
    SweepInfo info;
};

TEST_F(MapleCorr, TemperatureIndexAndFraction) {
    Load();
    const struct {
        double temp;
        int t;
        float tp;
    } cases[] = {{-5.0, 0, 0.0f}, {0.0, 0, 0.0f}, {12.5, 1, 0.25f}, {99.0, 9, 0.9f},
                 {100.0, 9, 1.0f}, {109.0, 9, 1.0f}, {1e6, 9, 1.0f}};
    for (const auto& k : cases) {
        Configure(k.temp, 1, 0.0);
        EXPECT_EQ(c->TempIndex(), k.t) << k.temp;
        EXPECT_FLOAT_EQ(c->TempFraction(), k.tp) << k.temp;
    }
}

// The automatic choice reads the tables at the point FindMinCorrections
// keeps: here row 3 index 5 for the high gains and row 4 index 7 for the
// low ones.
class MapleAuto : public MapleCorr {
protected:
    void SetUp() override {
        img.RFAllTemps(3, 1, 3, 5, -50.0f);
        img.RFAllTemps(4, 1, 0, 7, -50.0f);
        img.RFAllTemps(4, 1, 0, 8, -50.0f);  // a later equal minimum is not taken
    }
    // Values of pairs at the fixed points, at the temperature index of 12.5.
    void High(int g, int a, float v) { img.RF(3, a, g, 1, 5, v); }
    void Low(int g, int a, float v) { img.RF(4, a, g, 1, 7, v); }
};

TEST_F(MapleAuto, MinimumsAreFoundPerTemperature) {
    img.RF(2, 1, 3, 4, 0, -60.0f);  // lower, but at temperature 4 only
    img.RF(9, 1, 3, 1, 0, -99.0f);  // row 9 takes no part
    Load();
    EXPECT_EQ(c->auto_high_bands[1], 3);
    EXPECT_EQ(c->auto_high_ix[1], 5);
    EXPECT_EQ(c->auto_low_bands[1], 4);
    EXPECT_EQ(c->auto_low_ix[1], 7);
    EXPECT_EQ(c->auto_high_bands[4], 2);
    EXPECT_EQ(c->auto_high_ix[4], 0);
}

TEST_F(MapleAuto, BothAutomaticWalksTheTable) {
    High(3, 0, 7.0f);   // a margin of exactly 7 does not qualify
    High(2, 0, 7.5f);
    Load();
    Configure(12.5, -1, -1.0);
    EXPECT_EQ(c->GainIndex(), 2);
    EXPECT_EQ(c->AttenIndex(), 0);

    // The reference level counts against the margin.
    Configure(12.5, -1, -1.0, 0.6);
    EXPECT_EQ(c->GainIndex(), 1);  // nothing qualifies: gain 1,
    EXPECT_EQ(c->AttenIndex(), 3);  // attenuation index 3
}

TEST_F(MapleAuto, LowGainsReadTheLowPoint) {
    Low(3, 0, 50.0f);  // would qualify if gain 3 read the low point
    Low(1, 0, 8.0f);   // qualifies only at the low point
    Load();
    Configure(12.5, -1, -1.0);
    EXPECT_EQ(c->GainIndex(), 1);
    EXPECT_EQ(c->AttenIndex(), 0);
    EXPECT_EQ(c->GetAtten(0), 0);
}

TEST_F(MapleAuto, WarmLowLevelsTakeTheLadder) {
    // The table walk would refuse (3, 0) and take (2, 0) at every level
    // here, so a (3, x) result can only come from the ladder.
    img.RFAllTemps(3, 0, 3, 5, -100.0f);
    Load();
    const struct {
        double temp, ref;
        int gain, atten;
    } cases[] = {
        {40.0, -49.5, 3, 0}, {40.0, -49.0, 2, 0}, {40.0, -44.0, 3, 1}, {40.0, -35.0, 2, 1},
        {40.0, -30.0, 3, 2}, {40.0, -24.5, 2, 2}, {40.0, -19.5, 3, 3},
        {31.5, -49.5, 3, 0}, {48.5, -49.5, 3, 0},
        // The window is open at both ends and needs a level below -19.
        {31.0, -49.5, 2, 0}, {49.0, -49.5, 2, 0}, {40.0, -19.0, 2, 0},
    };
    for (const auto& k : cases) {
        Configure(k.temp, -1, -1.0, k.ref);
        EXPECT_EQ(c->GainIndex(), k.gain) << k.temp << " " << k.ref;
        EXPECT_EQ(c->AttenIndex(), k.atten) << k.temp << " " << k.ref;
    }
}

TEST_F(MapleAuto, OneFixedTheOtherSolved) {
    High(2, 3, 10.0f);  // exactly 10 does not qualify
    High(2, 2, 10.5f);
    High(3, 2, 10.0f);  // (gain 3, atten 1) is the minimum curve itself
    Load();
    Configure(12.5, 2, -1.0);
    EXPECT_EQ(c->AttenIndex(), 2);
    Configure(12.5, -1, 25.0);  // 25 dB is index 2
    EXPECT_EQ(c->GainIndex(), 2);
    Configure(12.5, 3, -1.0);  // nothing qualifies for gain 3
    EXPECT_EQ(c->AttenIndex(), 3);

    // Both fixed: taken as they are.
    Configure(12.5, 0, 25.0);
    EXPECT_EQ(c->GainIndex(), 0);
    EXPECT_EQ(c->AttenIndex(), 2);
    Configure(12.5, 3, 0.0);
    EXPECT_EQ(c->AttenIndex(), 0);
}

TEST_F(MapleCorr, AttenuationCodes) {
    Load();
    const struct {
        int gain;
        double atten;
        int code;
    } cases[] = {{0, 0.0, 5}, {1, 0.0, 0}, {2, 10.0, 15}, {3, 10.0, 10},
                 {0, 20.0, 25}, {1, 29.9, 20}, {2, 30.0, 30}, {1, 30.0, 30}};
    for (const auto& k : cases) {
        Configure(20.0, k.gain, k.atten);
        EXPECT_EQ(c->GetAtten(0), k.code) << k.gain << " " << k.atten;
        EXPECT_EQ(c->GetGain(0), k.gain);
    }
}

TEST_F(MapleCorr, RoughGainRows) {
    Load();
    const struct {
        double freq;
        int row;
    } cases[] = {{0.0, 0},   {1e7, 0},     {1e7 + 1, 1},   {3e7, 1},     {3e7 + 1, 2},
                 {-5e6, 0},  {-3e7, 0},    {6.19e9, 309},  {7e9, 309}};
    for (const auto& k : cases) EXPECT_EQ(c->GetRoughGainIndex(k.freq), k.row) << k.freq;

    uint8_t low[310], high[310];
    for (int i = 0; i < 310; ++i) low[i] = uint8_t(i % 7), high[i] = uint8_t(100 + i % 7);
    c->SetRoughGains(low, nullptr);
    EXPECT_EQ(c->rg_high[3], 0) << "null leaves the table";  // image bytes are 0
    c->SetRoughGains(nullptr, high);
    Configure(20.0, 1, 0.0);
    EXPECT_EQ(c->GetRoughGain(6e7), 3);
    Configure(20.0, 2, 0.0);
    EXPECT_EQ(c->GetRoughGain(6e7), 103);
}

TEST_F(MapleCorr, RoughGainRunLengths) {
    Load();
    uint8_t low[310];
    for (int i = 0; i < 310; ++i) low[i] = uint8_t(i);
    c->SetRoughGains(low, nullptr);
    Configure(20.0, 0, 0.0);

    auto run = [&](const PatchInfo& pi, int& pairs) {
        std::vector<uint8_t> arr(300, 0xEE);
        pairs = c->GetRoughGainArray(arr.data(), pi);
        return arr;
    };
    int pairs = 0;
    {
        PatchInfo pi;  // exactly 255 equal patches
        for (int k = 0; k < 255; ++k) pi.Append(MakePatch(4, 3, 0, 2.6e9));
        auto arr = run(pi, pairs);
        EXPECT_EQ(pairs, 2);
        EXPECT_EQ(std::vector<uint8_t>(arr.begin(), arr.begin() + 4), (std::vector<uint8_t>{255, 130, 0, 130}));
        for (int k = 0; k < 345; ++k) pi.Append(MakePatch(4, 3, 0, 2.6e9));
        arr = run(pi, pairs);
        EXPECT_EQ(std::vector<uint8_t>(arr.begin(), arr.begin() + 6),
                  (std::vector<uint8_t>{255, 130, 255, 130, 90, 130}));
    }
    {
        PatchInfo pi;  // band changes open runs even at the same gain; the
                       // band compares by its low byte; row 0 reads 0 Hz
        pi.Append(MakePatch(4, 0, 0, 2e7));
        pi.Append(MakePatch(4, 1, 0, 2e7));
        pi.Append(MakePatch(4, 1, 0, 2e7));
        pi.Append(MakePatch(4, 257, 0, 2e7));
        pi.Append(MakePatch(4, 1, 0, 4e7));
        pi.Append(MakePatch(4, 2, 0, 4e7));
        auto arr = run(pi, pairs);
        EXPECT_EQ(pairs, 4);
        EXPECT_EQ(std::vector<uint8_t>(arr.begin(), arr.begin() + 9),
                  (std::vector<uint8_t>{1, 0, 3, 1, 1, 2, 1, 2, 0xEE}));
    }
    {
        PatchInfo pi;  // alternating gains need a pair per patch: stops at 128
        for (int k = 0; k < 200; ++k) pi.Append(MakePatch(4, 1, 0, k % 2 ? 4e7 : 6e7));
        auto arr = run(pi, pairs);
        EXPECT_EQ(pairs, 128);
        EXPECT_EQ(arr[254], 1);
        EXPECT_EQ(arr[255], 2);
        EXPECT_EQ(arr[256], 0xEE) << "nothing past 128 pairs";
    }
}

// Tables for the terms: gain 2, attenuation index 1, temperature 12.5 (m_t
// 1, m_tp 0.25).
class MapleTerms : public MapleCorr {
protected:
    void SetUp() override {
        for (int k = 0; k < 105; ++k) {  // low band: curve(t=1) = k + 1, curve(t=2) = 2(k + 1)
            img.RF(0, 1, 2, 1, k, float(k + 1));
            img.RF(0, 1, 2, 2, k, float(2 * (k + 1)));
        }
        img.RF(2, 1, 2, 1, 5, 4.0f);
        img.RF(2, 1, 2, 2, 5, 8.0f);
        img.RF(2, 1, 2, 1, 0, 1.0f);
        img.RF(2, 1, 2, 2, 0, 1.0f);
        img.RF(2, 1, 2, 1, 30, 2.0f);
        img.RF(2, 1, 2, 2, 30, 6.0f);
        img.RF(3, 1, 2, 1, 1, 3.0f);  // row 3, step 1 (2.54 GHz)
        img.IF(2, 1, 194, 2.0f);
        img.IF(2, 1, 195, 4.0f);
        img.IF(2, 2, 194, 6.0f);
        img.IF(2, 2, 195, 10.0f);
        img.IF(2, 1, 382, 1.0f);
        img.IF(2, 1, 0, 7.0f);
        img.Slope(1, 0, 0, 1.0f);
        img.Slope(1, 1, 0, 100.0f);
        img.Slope(1, 5, 0, 2.0f);
        img.Slope(1, 7, 0, 3.0f);
        img.Slope(1, 96, 0, 2.0f);
        img.Slope(1, 100, 0, 2.0f);
        img.Slope(2, 96, 0, 50.0f);  // the slope never reads the next temperature
        Load();
        Configure(12.5, 2, 10.0);
    }
    // The low band's tables give 1.25 (lo value (1 - p) + hi value p).
    static double LowBand(double lo, double p) { return 1.25 * ((lo + 1) * (1 - p) + (lo + 2) * p); }
};

TEST_F(MapleTerms, LowBandInterpolatesInLogFrequency) {
    const double x = 30.0 * std::log10(123456.0 / 9000.0);
    EXPECT_NEAR(c->GetRFCorrection(0, 123456.0), LowBand(std::floor(x), x - std::floor(x)), 1e-4);
    EXPECT_NEAR(c->GetRFCorrection(0, 9000.0), 1.25, 1e-5);
    EXPECT_FLOAT_EQ(c->GetRFCorrection(0, 0.0), 1.25f) << "0 Hz reads the first values";
    EXPECT_FLOAT_EQ(c->GetRFCorrection(0, -3.0), 1.25f) << "negative reads as 1 Hz";
    EXPECT_FLOAT_EQ(c->GetRFCorrection(0, 8999.0), 1.25f);
    // Above the table: the two last values, with the fraction of the step.
    const double y = 30.0 * std::log10(1e8 / 9000.0);
    EXPECT_NEAR(c->GetRFCorrection(0, 1e8), LowBand(103, y - std::floor(y)), 1e-4);
}

TEST_F(MapleTerms, OtherRowsReadTheStepBelow) {
    EXPECT_FLOAT_EQ(c->GetRFCorrection(2, 1.9e9 + 5 * 2e7 + 1.9e7), 5.0f);  // 4 x .75 + 8 x .25
    EXPECT_FLOAT_EQ(c->GetRFCorrection(2, 1.8e9), 1.0f);
    EXPECT_FLOAT_EQ(c->GetRFCorrection(2, 9e9), 3.0f);
}

TEST_F(MapleTerms, IFTermIsNegatedAndInterpolated) {
    // x = 3.5: index 194, p 0.5: (3 x .75 + 8 x .25).
    EXPECT_FLOAT_EQ(c->GetIFCorrection(2, 3.5 * 78125.0, 123.0), -4.25f);
    EXPECT_FLOAT_EQ(c->GetIFCorrection(2, 1e9, 0.0), -0.75f);   // clamped to 382, p 0
    EXPECT_FLOAT_EQ(c->GetIFCorrection(2, -1e9, 0.0), -5.25f);  // clamped to 0, p 0
    EXPECT_FLOAT_EQ(c->GetIFCorrection(1, 3.5 * 78125.0, 0.0), 0.0f) << "row 1 reads its own table";
}

TEST_F(MapleTerms, SlopeByRowAndGain) {
    SlopePoly_Maple p;
    const float coef[6] = {1.0f, 2.0f, 3.0f, 0.0f, 0.0f, 0.0f};
    p.SetCoefficients(coef);
    EXPECT_FLOAT_EQ(p.Solve(7.5e6), 1.375f);  // x = 0.5: 0.5 (1 + 0.5 (2 + 0.5 x 3))

    EXPECT_FLOAT_EQ(c->GetSlopeCorrection(1.93e9, 7.5e6), -1.0f);  // row 96 at gain 2
    Configure(12.5, 1, 10.0);
    EXPECT_DOUBLE_EQ(c->GetSlopeCorrection(0.0, 7.5e6), -0.5 * (1.0 - 7 * 0.1));
    EXPECT_DOUBLE_EQ(c->GetSlopeCorrection(2e7, 7.5e6), -0.5) << "row 1 reads row 0, unscaled";
    EXPECT_DOUBLE_EQ(c->GetSlopeCorrection(1e8, 7.5e6), -1.0 * (1.0 - 2 * 0.1));
    EXPECT_DOUBLE_EQ(c->GetSlopeCorrection(1.4e8, 7.5e6), -1.5);
}

TEST_F(MapleTerms, SingleCorrectionSumsTheTerms) {
    const double f = 3.5 * 78125.0;
    const double slope = -2.0 * float(f / 1.5e7);
    EXPECT_NEAR(c->GetSingleCorrection(2, 1.9e9 + 1e8, f, 0.0), 5.0 + slope - 4.25, 1e-6);
    EXPECT_FLOAT_EQ(c->GetSingleCorrection(0, 2e7, -2e7, 0.0), 1.25f) << "row 0: RF at the true frequency";
}

TEST_F(MapleTerms, CorrectionArrayWalksThePatches) {
    info.fftSize = 16;  // four bins of 5 MHz per patch
    info.dsRatio = 1;
    info.binSize = 5e6;
    info.patchInfo.Append(MakePatch(4, 0, -2, 2e7));
    info.patchInfo.Append(MakePatch(4, 2, 0, 2e9));
    set.m_logScale = true;
    c->BuildCorrectionArray(&set, &info, false);
    const VecDouble& a = c->GetCorrections();
    ASSERT_EQ(a.size(), 8u);
    EXPECT_FLOAT_EQ(a[0], 1.25f);  // 0 Hz
    EXPECT_DOUBLE_EQ(a[1], c->GetRFCorrection(0, 5e6));
    for (int k = 0; k < 4; ++k)
        EXPECT_DOUBLE_EQ(a[size_t(4 + k)], c->GetSingleCorrection(2, 2e9, -1e7 + 5e6 * k, 0.0)) << k;

    set.m_logScale = false;
    c->BuildCorrectionArray(&set, &info, false);
    EXPECT_DOUBLE_EQ(c->GetCorrections()[0], std::pow(10.0, 0.05 * 1.25f));

    set.m_fullScale = true;
    c->BuildCorrectionArray(&set, &info, false);
    EXPECT_EQ(c->GetCorrections(), VecDouble(8, 1.0));
}

TEST_F(MapleTerms, NarrowArrayUsesTheGridCentre) {
    info.fftSize = 256;  // quarter 64, patches of 4 bins at dsRatio 16
    info.dsRatio = 16;
    info.binSize = 1000.0;
    info.bandZeroNarrowCenter = 1e7;
    info.patchInfo.Append(MakePatch(4, 3, 0, 2.533e9));
    set.m_logScale = false;
    c->BuildCorrectionArray(&set, &info, false);
    const VecDouble& a = c->GetCorrections();
    ASSERT_EQ(a.size(), 64u);
    // The centre snaps to 2.54 GHz, where row 3 holds 3.0 at t = 1.
    EXPECT_DOUBLE_EQ(a[0], std::pow(10.0, 0.05 * c->GetSingleCorrection(3, 2.54e9, -32000.0, 0.0)));
    EXPECT_NEAR(c->GetRFCorrection(3, 2.54e9), 2.25, 1e-6);
    EXPECT_EQ(a[4], 1.0) << "the tail stays neutral";
    EXPECT_EQ(a[63], 1.0);

    info.patchInfo.Clear();
    info.patchInfo.Append(MakePatch(4, 0, 0, 2e7));
    set.m_logScale = true;
    c->BuildCorrectionArray(&set, &info, false);
    EXPECT_DOUBLE_EQ(c->GetCorrections()[1], c->GetRFCorrection(0, 1e7 - 1e7 / 16 + 1000.0));
}

TEST_F(MapleTerms, IFBandZeroAndGeneratorArrays) {
    info.fftSize = 16;
    info.binSize = 5e6;
    info.initialBand = 2;
    info.patchInfo.Append(MakePatch(4, 2, 0, 2e9));
    VecDouble arr;
    c->BuildIFCorrectionArray(&set, &info, arr);
    ASSERT_EQ(arr.size(), 8u);
    const double rf = c->GetRFCorrection(2, 2e9);
    EXPECT_DOUBLE_EQ(arr[3], c->GetSlopeCorrection(2e9, -5e6) + (rf + c->GetIFCorrection(2, -5e6, 0.0)));

    info.initialBand = 0;
    c->BuildIFCorrectionArray(&set, &info, arr);
    EXPECT_DOUBLE_EQ(arr[2], c->GetRFCorrection(0, 1e7));

    c->BuildBandZeroCorrectionArray(arr, 5e5);
    EXPECT_EQ(arr, VecDouble(2048, c->GetRFCorrection(0, 5e5)));

    // Generator sweep: 4 points per patch, the first patch from point 1.
    info.traceLen = 10;
    info.tgInitialCount = 1;
    info.patchInfo.Append(MakePatch(4, 3, 0, 2.54e9));
    c->BuildQSTGCorrectionArray(&set, &info, 4, 3, 0);
    const VecDouble& a = c->GetCorrections();
    ASSERT_EQ(a.size(), 18u);
    EXPECT_EQ(c->GetGain(0), 3);
    EXPECT_DOUBLE_EQ(a[0], c->GetSingleCorrection(2, 2e9, -2.5e6, 0.0));
    EXPECT_DOUBLE_EQ(a[3], c->GetSingleCorrection(3, 2.54e9, -7.5e6, 0.0));
    EXPECT_EQ(a[7], 0.0);
}

TEST_F(MapleCorr, TriggerDelayByRowAndRevision) {
    img.Trig(1, 4, 90.0f);
    img.Trig(2, 4, 94.0f);  // 90 x .75 + 94 x .25 = 91
    img.Trig(1, 5, 90.4f);
    img.Trig(2, 5, 90.4f);
    img.Trig(1, 9, 88.5f);
    img.Trig(2, 9, 88.5f);
    for (int rev : {1, 2}) {
        Load(rev);
        Configure(12.5, 1, 0.0);
        EXPECT_EQ(c->GetTriggerDelay(4.25e9), rev == 1 ? 91 : 90);  // row 4 or 5
        EXPECT_EQ(c->GetTriggerDelay(6.5e9), 89) << "halves go up";
        EXPECT_EQ(c->GetTriggerDelay(9e9), 89) << "beyond the table reads the last row";
    }
}

}  // namespace
