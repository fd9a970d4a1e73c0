// The Larch's corrections: where a temperature falls among the tables, the
// gain and attenuation solved per band, a single correction across its
// tables, the two IF terms and the arrays. Tables are
// filled by hand so that each rule decides the result.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <utility>

#include "calibration/corrections_larch.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace qs {
namespace {

// Every point of the (atten, gain) curve at temperature index 0 of a table.
void Fill(RFCorrLarch& r, int atten, int gain, float v) {
    for (int i = 0; i < r.m_steps; ++i) r.b[atten][gain][0][i] = v;
}

SettingsLarch Sweep(double start, double stop, double ref, double atten, int gain) {
    SettingsLarch s;
    s.SetStart(start);
    s.SetStop(stop);
    s.SetRef(ref);
    s.SetAtten(atten);
    s.SetGain(gain);
    return s;
}

TEST(CorrectionsLarch, TemperatureFallsBetweenTheTablesUpToIndexSix) {
    const struct {
        double temp;
        int t;
        float tp;
    } cases[] = {
        {10.0, 0, 0.0f}, {15.0, 0, 0.0f}, {20.0, 0, 0.5f}, {74.0, 5, 0.9f},
        {75.0, 6, 1.0f}, {80.0, 6, 1.0f},  // between index 6 and 7: no fraction
        {95.0, 6, 1.0f},
    };
    CorrectionsLarch c;
    SweepInfo info;
    for (const auto& k : cases) {
        c.Configure(k.temp, Sweep(1e9, 2e9, 0.0, 10.0, 1), info);
        EXPECT_EQ(c.TempIndex(), k.t) << k.temp;
        EXPECT_NEAR(c.TempFraction(), k.tp, 1e-6) << k.temp;
    }
}

TEST(CorrectionsLarch, FixedSettingsAreClampedAndANegativeAttenuationIsAutomatic) {
    CorrectionsLarch c;
    SweepInfo info;
    c.Configure(25.0, Sweep(1e9, 2e9, -50.0, 35.0, 2), info);
    for (int band = 0; band < LARCH_BANDS; ++band) {
        EXPECT_EQ(c.GetGain(band), 2);
        EXPECT_EQ(c.GetAtten(band), 30);
    }
    // Uncalibrated tables and a reference 50 dB down: the first automatic
    // row, (3, 0), has room everywhere.
    c.Configure(25.0, Sweep(1e9, 2e9, -50.0, -5.0, 2), info);
    for (int band = 0; band < LARCH_BANDS; ++band) {
        EXPECT_EQ(c.GetGain(band), 3);
        EXPECT_EQ(c.GetAtten(band), 0);
    }
}

// Automatic rows on prepared tables. Band 4 reads B3 and judges every row
// as it is; band 0 reads B0C for a sweep from 100 MHz and holds its gain-2
// rows 10 dB lower. The value of a curve less the reference is its margin.
TEST(CorrectionsLarch, AutomaticRowsFollowTheirRules) {
    using Curves = std::map<std::pair<int, int>, float>;  // (atten, gain) -> dB
    const struct {
        const char* what;
        int band;
        double ref, atten;
        int gain;
        Curves curves;
        int wantGain, wantAtten;
    } cases[] = {
        {"nothing qualifies", 4, 5.0, -1.0, -1, {}, 0, 0},
        {"a reference above 1 dBm skips row 6", 4, 5.0, -1.0, -1, {{{1, 1}, 17.0f}, {{2, 1}, 17.0f}}, 1, 2},
        {"a reference of 1 dBm takes row 6", 4, 1.0, -1.0, -1, {{{1, 1}, 17.0f}, {{2, 1}, 17.0f}}, 1, 1},
        {"gain 1 atten 0 near the top falls back to 2, 3", 0, -5.0, -1.0, -1, {{{0, 1}, 7.0f}}, 2, 3},
        {"a later row replaces the fallback", 0, -5.0, -1.0, -1, {{{0, 1}, 7.0f}, {{2, 1}, 7.0f}}, 1, 2},
        {"with 16 dB of margin the fallback stands at once", 0, -5.0, -1.0, -1,
         {{{0, 1}, 11.0f}, {{2, 1}, 7.0f}}, 2, 3},
        {"gain 2 is held 10 dB lower in band 0", 0, -30.0, -1.0, -1, {{{0, 2}, -15.0f}, {{1, 2}, -5.0f}}, 2, 1},
        {"fixed attenuation: the first gain with room", 4, 0.0, 10.0, -1, {{{1, 3}, 5.0f}, {{1, 2}, 15.0f}}, 2, 1},
        {"fixed attenuation: gain 2 held lower in band 0", 0, 0.0, 10.0, -1, {{{1, 3}, 5.0f}, {{1, 2}, 15.0f}}, 0, 1},
    };
    SweepInfo info;
    for (const auto& k : cases) {
        SCOPED_TRACE(k.what);
        CorrectionsLarch c;
        RFCorrLarch& table = *c.GetBandStruct(k.band, k.band == 0 ? 1e8 : 5e9);
        for (int a = 0; a < 4; ++a)
            for (int g = 0; g < 4; ++g) Fill(table, a, g, -100.0f);
        for (const auto& curve : k.curves) Fill(table, curve.first.first, curve.first.second, curve.second);
        c.Configure(10.0, Sweep(1e8, 6e9, k.ref, k.atten, k.gain), info);
        EXPECT_EQ(c.GetGain(k.band), k.wantGain);
        EXPECT_EQ(c.GetAtten(k.band), k.wantAtten * 10);
    }
}

// The RF term follows the bin's own frequency: a patch centred on 20 MHz
// reads B0B below it and B0C above, interpolated between steps; B0A counts
// twentieths of a decade; a bin below its band's table reads its first point.
TEST(CorrectionsLarch, SingleCorrectionReadsTheTableOfTheBinsFrequency) {
    CorrectionsLarch c;
    SweepInfo info;
    c.Configure(10.0, Sweep(1e6, 3e9, 0.0, 0.0, 1), info);  // atten 0, gain 1, temperature 0
    for (int i = 0; i < c.B0C->m_steps; ++i) c.B0C->b[0][1][0][i] = 3.0f + i;
    for (int i = 0; i < c.B0B->m_steps; ++i) c.B0B->b[0][1][0][i] = 1.0f;
    for (int i = 0; i < c.B0A->m_steps; ++i) c.B0A->b[0][1][0][i] = float(i);
    for (int i = 0; i < c.B1->m_steps; ++i) c.B1->b[0][1][0][i] = 7.0f + i;
    const struct {
        int band;
        double cf, ifHz, want;
    } cases[] = {
        {0, 20e6, -1e6, 1.0},
        {0, 20e6, +1e6, 3.1},
        {0, 20e6, +5e6, 3.5},
        {0, 30e6, +5e6, 4.5},
        {0, 0.0, 1e4 * std::pow(10.0, 2.5 / 20.0), 2.5},
        {2, 1.9e9, 0.0, 7.0},
        {2, 2.0e9, 2.5e6, 8.25},
    };
    for (const auto& k : cases)
        EXPECT_NEAR(c.GetSingleCorrection(k.band, k.cf, k.ifHz, 0.0), k.want, 1e-5) << k.cf + k.ifHz;
}

// The IF term: the factory table read from 30 MHz above the centre down, at
// 200 kHz, moved by the centre offset; then the self-calibration constants,
// read from -11.25 MHz at 39,062.5 Hz, both subtracted.
TEST(CorrectionsLarch, IfTermSubtractsTheFactoryTableAndTheSelfCalibration) {
    CorrectionsLarch c;
    SweepInfo info;
    c.Configure(10.0, Sweep(1e9, 3e9, 0.0, 0.0, 1), info);
    double constants[576];
    for (int i = 0; i < 576; ++i) constants[i] = 0.01 * i;
    c.SetSelfCalConstants(constants);
    for (int i = 0; i < 301; ++i) c.IFBands[1]->b[0][i] = 0.1f * i;

    EXPECT_NEAR(c.GetSelfCalCorrection(-11.25e6), 0.0, 1e-12);
    EXPECT_NEAR(c.GetSelfCalCorrection(-11.25e6 + 10.5 * 39062.5), -0.105, 1e-9);
    EXPECT_NEAR(c.GetSelfCalCorrection(-11.25e6 + 575 * 39062.5), -5.75, 1e-9);
    // Past the ends the first or last pair goes on in a straight line.
    EXPECT_NEAR(c.GetSelfCalCorrection(11.25e6), -5.76, 1e-9);
    EXPECT_NEAR(c.GetSelfCalCorrection(-11.25e6 - 39062.5), 0.01, 1e-9);
    EXPECT_NEAR(c.GetIFCorrection(2, 0.0, 0.0), -15.0 - 2.88, 1e-5);
    EXPECT_NEAR(c.GetIFCorrection(2, 100e3, 0.0), -14.95 - 2.9056, 1e-5);
    EXPECT_NEAR(c.GetIFCorrection(2, 0.0, 1e7), -20.0 - 2.88, 1e-5);
    EXPECT_NEAR(c.GetIFCorrection(0, 0.0, 0.0), -2.88, 1e-9);  // bands 0 and 1 read table 0
}

// The arrays: one patch per step, length fftSize/4; the tilt below 130 MHz;
// linear factors without log scale; full scale with the self-calibration
// alone; and the IF array placing the first patch at fftSize/8 + IFOffset.
TEST(CorrectionsLarch, ArraysPerPatchInEachScale) {
    CorrectionsLarch c;
    SettingsLarch set = Sweep(9e7, 2.6e9, 0.0, 0.0, 1);
    SweepInfo info;
    info.fftSize = 1024;
    info.dsRatio = 1;
    info.binSize = 80e6 / 1024;
    info.stepCount = 2;
    info.IFOffset = 3;
    info.patchInfo.Append({256, 0, 3, 1e8, 0.0, false});
    info.patchInfo.Append({256, 2, 3, 2.5e9, 0.0, false});
    c.Configure(10.0, set, info);
    Fill(*c.B1, 0, 1, 2.0f);
    double ones[576];
    for (double& v : ones) v = 1.0;

    c.BuildCorrectionArray(&set, &info, false);
    const VecDouble& a = c.GetCorrections();
    ASSERT_EQ(a.size(), 512u);
    for (int k : {0, 100, 255}) {
        const double f = (3 - 128 + k) * info.binSize;
        EXPECT_NEAR(a[k], (1.5e8 - 1e8) / 1.5e8 * f / 2e7, 1e-12) << k;
        EXPECT_NEAR(a[256 + k], 2.0, 1e-6) << k;
    }

    set.SetLogScale(false);
    c.BuildCorrectionArray(&set, &info, false);
    EXPECT_NEAR(c.GetCorrections()[300], std::pow(10.0, 0.1), 1e-6);

    set.SetLogScale(true);
    set.SetFullScale(true);
    c.SetSelfCalConstants(ones);
    c.BuildCorrectionArray(&set, &info, false);
    for (double v : c.GetCorrections()) ASSERT_NEAR(v, -1.0, 1e-12);

    // Tracking-generator points: every band at the given pair, the edge
    // points of a fine grid held 100 kHz inside the patch.
    double slope[576];
    for (int i = 0; i < 576; ++i) slope[i] = 0.001 * i;
    c.SetSelfCalConstants(slope);
    set.SetFullScale(false);
    info.traceLen = 2 * 250 - 8;
    c.BuildQSTGCorrectionArray(&set, &info, 250, 2, 1);
    for (int band = 0; band < LARCH_BANDS; ++band) {
        EXPECT_EQ(c.GetGain(band), 2);
        EXPECT_EQ(c.GetAtten(band), 10);
    }
    ASSERT_EQ(c.GetCorrections().size(), 500u);
    EXPECT_DOUBLE_EQ(c.GetCorrections()[250], c.GetSingleCorrection(2, 2.5e9, -9.9e6, 0.0));
    EXPECT_DOUBLE_EQ(c.GetCorrections()[499], c.GetSingleCorrection(2, 2.5e9, 9.9e6, 0.0));
    EXPECT_DOUBLE_EQ(c.GetCorrections()[375], c.GetSingleCorrection(2, 2.5e9, 1e7 / 250, 0.0));
    EXPECT_NE(c.GetCorrections()[250], c.GetSingleCorrection(2, 2.5e9, -9.96e6, 0.0));

    c.SetSelfCalConstants(ones);
    VecDouble ifArray;
    c.BuildIFCorrectionArray(&set, &info, ifArray);
    ASSERT_EQ(ifArray.size(), 512u);
    const int o = 1024 / 8 + 3;
    EXPECT_EQ(ifArray[o - 1], 0.0);
    EXPECT_NEAR(ifArray[o], c.GetCorrections()[0], 1e-12);
    EXPECT_NEAR(ifArray[511], c.GetCorrections()[511 - o], 1e-12);
}

}  // namespace
}  // namespace qs
