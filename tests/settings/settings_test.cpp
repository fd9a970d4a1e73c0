// The settings store on its own: defaults, validation order and limits,
// the model differences, the complete copy and the preparation states.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "settings_fields.h"

using namespace qs;

namespace {

// Guards the field list of settings_fields.h: a new field changes the size.
static_assert(sizeof(Settings) == 264, "new Settings field: add it to QS_SETTINGS_FIELDS");

double JustBelow(double v) { return std::nextafter(v, -INFINITY); }
double JustAbove(double v) { return std::nextafter(v, INFINITY); }

// A value unlike any default of either model in every field.
void Scramble(Settings& s) {
    s.m_audio = AudioConfig{QS_DEMOD_USB, 1.5e8, 12000.0, 300.0, 3000.0, 75.0};
    s.m_tgSweepSize = 77;
    s.m_tgHighDynamicRange = false;
    s.m_tgPassiveDevice = false;
    s.iqFinalDecimation = 9;
    s.iqFinalBandwidth = 12345.0;
    s.iqSecondPass = true;
    s.iqFirstPassDecimate = 7;
    s.iqFirstPassBandwidth = 54321.0;
    s.iqSecondPassDecimate = 2;
    s.iqSecondPassBandwidth = 11111.0;
    s.iqDataType = qsDataType16sc;
    s.m_start = 1.0e9;
    s.m_stop = 1.2e9;
    s.m_center = 1.1e9;
    s.m_span = 2e8;
    s.m_reference = -33.0;
    s.m_atten = 12.0;
    s.m_gain = 2;
    s.m_rbw = 777.0;
    s.m_vbw = 333.0;
    s.m_sweepTime = 0.25;
    s.m_rbwShape = QS_RBW_SHAPE_GAUSSIAN;
    s.m_imageReject = true;
    s.m_window = QS_WINDOW_FLAT_TOP;
    s.m_windowfc = 4.5;
    s.m_videoUnits = QS_VIDEO_SAMPLE;
    s.m_detector = QS_DETECTOR_AVERAGE;
    s.m_logScale = false;
    s.m_fullScale = true;
    s.m_demodFM = true;
    s.m_realTimeFrameScale = 42.0;
    s.m_realTimeFrameRate = 7;
    s.m_realTimeAdvanceRate = 3.5;
}

// Runs op on a scrambled object and checks that it is refused with want
// and that no field moved.
template <typename S, typename Op>
void ExpectRefused(qsStatus want, Op op) {
    S s;
    Scramble(s);
    const S before(s);
    EXPECT_EQ(op(s), want);
    EXPECT_EQ(DiffFields(before, s), std::vector<std::string>{});
}

}  // namespace

TEST(SettingsDefaults, LoadDefaultKeepsAudioAndIQDataType) {
    SettingsMaple s;
    Scramble(s);
    s.LoadDefault();
    EXPECT_EQ(DiffFields(SettingsMaple(), s),
              (std::vector<std::string>{"m_audio.modulation", "m_audio.freq", "m_audio.if_bw",
                                        "m_audio.high_pass_freq", "m_audio.low_pass_freq",
                                        "m_audio.deemphasis", "iqDataType"}));
}

TEST(SettingsCopy, AssignmentCopiesEveryFieldAndKeepsTheModel) {
    SettingsLarch source;
    Scramble(source);
    // Scramble must reach every field, or the copy check below is blind.
    ASSERT_EQ(static_cast<int>(DiffFields(SettingsLarch(), source).size()), FieldCount());
    ASSERT_EQ(static_cast<int>(DiffFields(SettingsMaple(), source).size()), FieldCount());

    SettingsMaple target;
    Settings& base = target;
    base = source;
    EXPECT_EQ(DiffFields(source, target), std::vector<std::string>{});
    // Still a Maple: it clamps where a Larch refuses.
    EXPECT_EQ(target.ConfigLevel(60.0, 0.0), qsAdjustedParameter);
}

TEST(SettingsCenterSpan, ExactEdgesPassAndTheNextValueFails) {
    SettingsMaple s;
    EXPECT_EQ(s.ConfigCenterSpan(9010.0, 20.0), qsNoError);
    EXPECT_EQ(s.Start(), 9000.0);
    EXPECT_EQ(s.Stop(), 9020.0);
    EXPECT_EQ(s.ConfigCenterSpan(6.4e9 - 10.0, 20.0), qsNoError);
    EXPECT_EQ(s.Stop(), 6.4e9);

    ExpectRefused<SettingsMaple>(qsInvalidSpanErr, [](Settings& x) { return x.ConfigCenterSpan(1e9, JustBelow(20.0)); });
    ExpectRefused<SettingsMaple>(qsInvalidSpanErr, [](Settings& x) { return x.ConfigCenterSpan(1e9, 19.9); });
    ExpectRefused<SettingsMaple>(qsFrequencyRangeErr, [](Settings& x) { return x.ConfigCenterSpan(JustBelow(9010.0), 20.0); });
    ExpectRefused<SettingsLarch>(qsFrequencyRangeErr, [](Settings& x) { return x.ConfigCenterSpan(JustAbove(6.4e9 - 10.0), 20.0); });
    // Span is tested first.
    ExpectRefused<SettingsLarch>(qsInvalidSpanErr, [](Settings& x) { return x.ConfigCenterSpan(0.0, 1.0); });
}

TEST(SettingsLevel, LarchRefusesWhereMapleClamps) {
    SettingsLarch larch;
    EXPECT_EQ(larch.ConfigLevel(50.0, 30.0), qsNoError);
    EXPECT_EQ(larch.ConfigLevel(-1000.0, -5.0), qsNoError);  // no lower limits
    EXPECT_EQ(larch.Ref(), -1000.0);
    EXPECT_EQ(larch.Atten(), -5.0);
    ExpectRefused<SettingsLarch>(qsReferenceLevelErr, [](Settings& x) { return x.ConfigLevel(51.0, 0.0); });
    ExpectRefused<SettingsLarch>(qsReferenceLevelErr, [](Settings& x) { return x.ConfigLevel(JustAbove(50.0), JustAbove(30.0)); });
    ExpectRefused<SettingsLarch>(qsAttenuationErr, [](Settings& x) { return x.ConfigLevel(0.0, JustAbove(30.0)); });

    SettingsMaple maple;
    EXPECT_EQ(maple.ConfigLevel(50.0, 30.0), qsNoError);
    EXPECT_EQ(maple.ConfigLevel(-150.0, -1.0), qsNoError);
    EXPECT_EQ(maple.ConfigLevel(51.0, 10.0), qsAdjustedParameter);
    EXPECT_EQ(maple.Ref(), 50.0);
    EXPECT_EQ(maple.Atten(), 10.0);
    EXPECT_EQ(maple.ConfigLevel(JustBelow(-150.0), JustAbove(30.0)), qsAdjustedParameter);
    EXPECT_EQ(maple.Ref(), -150.0);
    EXPECT_EQ(maple.Atten(), 30.0);
}

TEST(SettingsSweepCoupling, ModelsDifferInVbwAndWindowCutoff) {
    SettingsLarch larch;
    SettingsMaple maple;
    // Low-pass at 50 kHz: an 8192-point FFT with the cut-off at 3.2 bins.
    EXPECT_EQ(larch.ConfigSweepCoupling(50000.0, 90000.0, 0.01, QS_RBW_SHAPE_LOWPASS, 1), qsNoError);
    EXPECT_DOUBLE_EQ(larch.WindowFC(), 3.2);
    EXPECT_EQ(larch.VBW(), 90000.0);
    EXPECT_TRUE(larch.ImageReject());
    EXPECT_EQ(maple.ConfigSweepCoupling(50000.0, 90000.0, 0.01, QS_RBW_SHAPE_LOWPASS, 0), qsAdjustedParameter);
    EXPECT_DOUBLE_EQ(maple.WindowFC(), 3.2);
    EXPECT_EQ(maple.VBW(), 50000.0);
    EXPECT_FALSE(maple.ImageReject());
    EXPECT_EQ(maple.ConfigSweepCoupling(50000.0, 50000.0, 0.01, 0, 0), qsNoError);

    // Gaussian: only the Larch computes a cut-off; native: neither.
    larch.SetWindowFC(-1.0);
    maple.SetWindowFC(-1.0);
    larch.ConfigSweepCoupling(50000.0, 1000.0, 0.01, QS_RBW_SHAPE_GAUSSIAN, 0);
    maple.ConfigSweepCoupling(50000.0, 1000.0, 0.01, QS_RBW_SHAPE_GAUSSIAN, 0);
    EXPECT_DOUBLE_EQ(larch.WindowFC(), 3.2);
    EXPECT_EQ(maple.WindowFC(), -1.0);
    EXPECT_EQ(maple.RBWShape(), QS_RBW_SHAPE_GAUSSIAN);
    larch.SetWindowFC(-1.0);
    larch.ConfigSweepCoupling(50000.0, 1000.0, 0.01, QS_RBW_SHAPE_NATIVE, 0);
    EXPECT_EQ(larch.WindowFC(), -1.0);
}

TEST(SettingsIQ, DecimationSplitsIntoTwoPassesAbove128) {
    SettingsMaple s;
    EXPECT_EQ(s.ConfigIQ(256, 100000.0), qsNoError);
    EXPECT_EQ(s.IQDecimation(), 8);
    EXPECT_EQ(s.iqFirstPassDecimate, 7);
    EXPECT_EQ(s.iqSecondPassDecimate, 1);
    EXPECT_TRUE(s.iqSecondPass);
    // First pass clamped to its own (128) limit, second to the total's.
    EXPECT_EQ(s.iqFirstPassBandwidth, 100000.0);
    EXPECT_EQ(s.iqSecondPassBandwidth, 100000.0);
    EXPECT_EQ(s.ConfigIQ(8192, 1e6), qsClampedToUpperLimit);
    EXPECT_EQ(s.iqFirstPassBandwidth, 250000.0);
    EXPECT_EQ(s.iqSecondPassBandwidth, 4000.0);
    EXPECT_EQ(s.IQBandwidth(), 1e6);  // kept as asked

    EXPECT_EQ(s.ConfigIQ(128, 100000.0), qsNoError);
    EXPECT_FALSE(s.iqSecondPass);
    EXPECT_EQ(s.iqSecondPassDecimate, 0);
    EXPECT_EQ(s.iqSecondPassBandwidth, 50000.0);  // 0.0 lifted to the minimum

    EXPECT_EQ(s.ConfigIQ(1, 1.0), qsClampedToLowerLimit);
    EXPECT_EQ(s.iqFirstPassBandwidth, 100.0);
    EXPECT_EQ(s.ConfigIQ(2, 50000.0), qsNoError);
    EXPECT_EQ(s.ConfigIQ(2, JustBelow(50000.0)), qsClampedToLowerLimit);
    EXPECT_EQ(s.ConfigIQ(2, 1.78e7), qsNoError);
    EXPECT_EQ(s.ConfigIQ(2, JustAbove(1.78e7)), qsClampedToUpperLimit);

    for (int bad : {0, -2, 3, 96, 16384})
        ExpectRefused<SettingsMaple>(qsInvalidParameterErr, [bad](Settings& x) { return x.ConfigIQ(bad, 1e5); });
}

TEST(SettingsIQ, FullRateLimitDependsOnTheModel) {
    SettingsLarch larch;
    SettingsMaple maple;
    EXPECT_EQ(larch.ConfigIQ(1, 2e7), qsNoError);
    EXPECT_EQ(larch.ConfigIQ(1, JustAbove(2e7)), qsClampedToUpperLimit);
    EXPECT_EQ(larch.iqFirstPassBandwidth, 2e7);
    EXPECT_EQ(maple.ConfigIQ(1, 2.7e7), qsNoError);
    EXPECT_EQ(maple.iqFirstPassBandwidth, 2.7e7);
    EXPECT_EQ(maple.ConfigIQ(1, JustAbove(2.7e7)), qsClampedToUpperLimit);
}

TEST(SettingsRealTime, OutOfRangeValuesAreClampedAndReported) {
    SettingsLarch s;
    EXPECT_EQ(s.ConfigRealTime(5.0, 40), qsAdjustedParameter);
    EXPECT_EQ(s.RealTimeFrameScale(), 10.0);
    EXPECT_EQ(s.RealTimeFrameRate(), 30);
    EXPECT_EQ(s.ConfigRealTime(10.0, 4), qsNoError);
    EXPECT_EQ(s.ConfigRealTime(200.0, 30), qsNoError);
    EXPECT_EQ(s.ConfigRealTime(JustAbove(200.0), 30), qsAdjustedParameter);
    EXPECT_EQ(s.RealTimeFrameScale(), 200.0);
    EXPECT_EQ(s.ConfigRealTime(50.0, 3), qsAdjustedParameter);
    EXPECT_EQ(s.RealTimeFrameRate(), 4);

    EXPECT_EQ(s.ConfigRealTimeOverlap(0.5), qsNoError);
    EXPECT_EQ(s.ConfigRealTimeOverlap(10.0), qsNoError);
    EXPECT_EQ(s.ConfigRealTimeOverlap(JustBelow(0.5)), qsAdjustedParameter);
    EXPECT_EQ(s.RealTimeAdvanceRate(), 0.5);
    EXPECT_EQ(s.ConfigRealTimeOverlap(JustAbove(10.0)), qsAdjustedParameter);
    EXPECT_EQ(s.RealTimeAdvanceRate(), 10.0);
}

TEST(SettingsEnumerations, LastValueAcceptedNextRefused) {
    SettingsMaple s;
    EXPECT_EQ(s.ConfigGain(-1), qsNoError);
    EXPECT_EQ(s.ConfigGain(3), qsNoError);
    EXPECT_EQ(s.ConfigWindow(3), qsNoError);
    EXPECT_EQ(s.ConfigProcUnits(3), qsNoError);
    ExpectRefused<SettingsMaple>(qsInvalidGainErr, [](Settings& x) { return x.ConfigGain(4); });
    ExpectRefused<SettingsMaple>(qsInvalidGainErr, [](Settings& x) { return x.ConfigGain(-2); });
    ExpectRefused<SettingsMaple>(qsInvalidWindowErr, [](Settings& x) { return x.ConfigWindow(4); });
    ExpectRefused<SettingsMaple>(qsInvalidVideoUnitsErr, [](Settings& x) { return x.ConfigProcUnits(4); });
    ExpectRefused<SettingsMaple>(qsInvalidDetectorErr, [](Settings& x) { return x.ConfigAcquisition(2, 9); });
    ExpectRefused<SettingsMaple>(qsInvalidScaleErr, [](Settings& x) { return x.ConfigAcquisition(1, 4); });

    const bool wantLog[] = {true, false, true, false};
    const bool wantFull[] = {false, false, true, true};
    for (unsigned scale = 0; scale < 4; ++scale) {
        ASSERT_EQ(s.ConfigAcquisition(1, scale), qsNoError);
        EXPECT_EQ(s.LogScale(), wantLog[scale]) << scale;
        EXPECT_EQ(s.FullScale(), wantFull[scale]) << scale;
        EXPECT_EQ(s.Detector(), 1);
    }
}

TEST(SettingsPrep, CalibrationSweepsLeaveAudioIqAndTgAlone) {
    SettingsLarch larch;
    Scramble(larch);
    larch.PrepSelfCal();
    SettingsMaple maple;
    Scramble(maple);
    maple.PrepInitSweep();

    SettingsLarch scrambled;
    Scramble(scrambled);
    const std::vector<std::string> prepared = {
        "m_start",  "m_stop",    "m_center",      "m_span",      "m_reference",
        "m_atten",  "m_gain",    "m_rbw",         "m_vbw",       "m_sweepTime",
        "m_rbwShape", "m_imageReject", "m_window", "m_windowfc", "m_videoUnits",
        "m_detector", "m_logScale", "m_fullScale", "m_realTimeFrameScale",
        "m_realTimeFrameRate", "m_realTimeAdvanceRate"};
    EXPECT_EQ(DiffFields(scrambled, larch), prepared);
    EXPECT_EQ(DiffFields(scrambled, maple), prepared);
    EXPECT_EQ(DiffFields(larch, maple), (std::vector<std::string>{"m_rbw", "m_vbw"}));
    EXPECT_EQ(larch.RBW(), 10000.0);
    EXPECT_EQ(maple.VBW(), 1000.0);
    EXPECT_EQ(maple.Center(), 9e8);
    EXPECT_EQ(maple.Atten(), 0.0);
    EXPECT_EQ(maple.VideoUnits(), QS_VIDEO_LOG);
}
