#include "settings/settings.h"

#include <cmath>

#include "dsp/math_helpers.h"
#include "settings/bandwidths.h"

namespace qs {

namespace {

// The widest I/Q band at decimation 1 of each model.
constexpr double kLarchFullRateIqHz = 2e7;
constexpr double kMapleFullRateIqHz = 2.7e7;

// Moves v into [lo, hi]; true if it had to.
template <typename T>
bool Clamp(T& v, T lo, T hi) {
    // Written as "not at or above" so that a NaN is moved to the low limit.
    if (!(v >= lo)) {
        v = lo;
        return true;
    }
    if (v > hi) {
        v = hi;
        return true;
    }
    return false;
}

}  // namespace

// ---------------------------------------------------------------------------
// Shared by both models

void Settings::LoadCommonDefault(double start, double stop, double center, double span,
                                 double rbw) {
    m_tgSweepSize = 250;
    m_tgHighDynamicRange = true;
    m_tgPassiveDevice = true;
    iqFinalDecimation = 0;
    iqFinalBandwidth = 2e7;
    iqSecondPass = false;
    iqFirstPassDecimate = 0;
    iqFirstPassBandwidth = 0.0;
    iqSecondPassDecimate = 0;
    iqSecondPassBandwidth = 0.0;
    m_start = start;
    m_stop = stop;
    m_center = center;
    m_span = span;
    m_reference = 0.0;
    m_atten = QS_ATTEN_AUTO;
    m_gain = QS_GAIN_AUTO;
    m_rbw = rbw;
    m_vbw = rbw;
    m_sweepTime = 0.001;
    m_rbwShape = QS_RBW_SHAPE_NATIVE;
    m_imageReject = false;
    m_window = QS_WINDOW_NUTTALL;
    m_windowfc = 0.0;
    m_videoUnits = QS_VIDEO_POWER;
    m_detector = QS_DETECTOR_MIN_MAX;
    m_logScale = true;
    m_fullScale = false;
    m_demodFM = false;
    m_realTimeFrameScale = 100.0;
    m_realTimeFrameRate = 30;
    m_realTimeAdvanceRate = 0.5;
}

void Settings::PrepFixedSweep(double rbw) {
    m_gain = QS_GAIN_AUTO;
    m_rbwShape = QS_RBW_SHAPE_NATIVE;
    m_imageReject = false;
    m_start = 8.9e8;
    m_stop = 9.1e8;
    m_center = 9e8;
    m_span = 2e7;
    m_reference = 0.0;
    m_atten = 0.0;
    m_rbw = rbw;
    m_vbw = rbw;
    m_sweepTime = 0.001;
    m_window = QS_WINDOW_NUTTALL;
    m_windowfc = 0.0;
    m_videoUnits = QS_VIDEO_LOG;
    m_detector = QS_DETECTOR_MIN_MAX;
    m_logScale = true;
    m_fullScale = false;
    m_realTimeFrameScale = 100.0;
    m_realTimeFrameRate = 30;
    m_realTimeAdvanceRate = 0.5;
}

qsStatus Settings::ConfigAcquisition(unsigned detector, unsigned scale) {
    if (detector > QS_DETECTOR_AVERAGE) return qsInvalidDetectorErr;
    if (scale > QS_SCALE_LINEAR_FULL) return qsInvalidScaleErr;
    m_detector = static_cast<int>(detector);
    m_logScale = scale == QS_SCALE_LOG || scale == QS_SCALE_LOG_FULL;
    m_fullScale = scale == QS_SCALE_LOG_FULL || scale == QS_SCALE_LINEAR_FULL;
    return qsNoError;
}

qsStatus Settings::ConfigCenterSpan(double center, double span) {
    // Each test is "not inside", so that a NaN is refused too.
    if (!(span >= QS_MIN_SPAN)) return qsInvalidSpanErr;
    if (!(center - span / 2.0 >= QS_MIN_FREQ && center + span / 2.0 <= QS_MAX_FREQ))
        return qsFrequencyRangeErr;
    m_center = center;
    m_span = span;
    m_start = center - 0.5 * span;
    m_stop = center + 0.5 * span;
    return qsNoError;
}

qsStatus Settings::ConfigGain(int gain) {
    if (gain < QS_GAIN_AUTO || gain > 3) return qsInvalidGainErr;
    m_gain = gain;
    return qsNoError;
}

qsStatus Settings::ConfigWindow(unsigned window) {
    if (window > QS_WINDOW_FLAT_TOP) return qsInvalidWindowErr;
    m_window = static_cast<int>(window);
    return qsNoError;
}

qsStatus Settings::ConfigProcUnits(unsigned units) {
    if (units > QS_VIDEO_SAMPLE) return qsInvalidVideoUnitsErr;
    m_videoUnits = static_cast<int>(units);
    return qsNoError;
}

qsStatus Settings::ConfigRealTime(double frameScale, int frameRate) {
    bool moved = Clamp(frameScale, MIN_RT_FRAME_SCALE, MAX_RT_FRAME_SCALE);
    moved |= Clamp(frameRate, QS_MIN_RT_FRAME_RATE, QS_MAX_RT_FRAME_RATE);
    m_realTimeFrameScale = frameScale;
    m_realTimeFrameRate = frameRate;
    return moved ? qsAdjustedParameter : qsNoError;
}

qsStatus Settings::ConfigRealTimeOverlap(double advanceRate) {
    const bool moved = Clamp(advanceRate, QS_MIN_RT_ADVANCE_RATE, QS_MAX_RT_ADVANCE_RATE);
    m_realTimeAdvanceRate = advanceRate;
    return moved ? qsAdjustedParameter : qsNoError;
}

qsStatus Settings::StoreSweepCoupling(double rbw, double vbw, double sweepTime,
                                      unsigned rbwShape, unsigned rejection,
                                      bool computeWindowFC) {
    m_rbwShape = static_cast<int>(rbwShape);
    m_rbw = rbw;
    m_vbw = vbw;
    m_sweepTime = sweepTime;
    m_imageReject = rejection == QS_REJECTION_IMAGE;
    if (computeWindowFC) {
        int fftSize = 0;  // the plan solves its own size at qsInitiate
        non_native_fft_from_rbw(rbw, &fftSize, &m_windowfc);
    }
    return qsNoError;
}

qsStatus Settings::ConfigIQModel(double fullRateMaxHz, int decimation, double bandwidth) {
    if (decimation < 1 || decimation > QS_MAX_DECIMATION || !is_pow_two(decimation))
        return qsInvalidParameterErr;
    // The first pass decimates by at most 128; a second pass does the rest.
    constexpr int kMaxFirstPassExp = 7;
    const int e = mylog2(decimation);
    iqFinalDecimation = e;
    iqFinalBandwidth = bandwidth;
    if (e > kMaxFirstPassExp) {
        iqFirstPassDecimate = kMaxFirstPassExp;
        iqFirstPassBandwidth = bandwidth;
        iqSecondPassDecimate = e - kMaxFirstPassExp;
        iqSecondPass = true;
        iqSecondPassBandwidth = bandwidth;
    } else {
        iqFirstPassDecimate = e;
        iqFirstPassBandwidth = bandwidth;
        iqSecondPassDecimate = 0;
        iqSecondPass = false;
        iqSecondPassBandwidth = 0.0;
    }
    Clamp(iqFirstPassBandwidth, get_min_iq_bandwidth(iqFirstPassDecimate),
          get_max_iq_bandwidth(fullRateMaxHz, iqFirstPassDecimate));
    // Also without a second pass, which lifts its 0.0 to the minimum.
    Clamp(iqSecondPassBandwidth, get_min_iq_bandwidth(e), get_max_iq_bandwidth(fullRateMaxHz, e));
    if (!(bandwidth >= get_min_iq_bandwidth(e))) return qsClampedToLowerLimit;
    if (bandwidth > get_max_iq_bandwidth(fullRateMaxHz, e)) return qsClampedToUpperLimit;
    return qsNoError;
}

// ---------------------------------------------------------------------------
// Larch

void SettingsLarch::LoadDefault() { LoadCommonDefault(8.9e8, 9.1e8, 9e8, 2e7, 10000.0); }

qsStatus SettingsLarch::ConfigLevel(double ref, double atten) {
    if (!(ref <= QS_MAX_REFERENCE)) return qsReferenceLevelErr;
    if (!(atten <= QS_MAX_ATTENUATION)) return qsAttenuationErr;
    m_reference = ref;
    m_atten = atten;
    return qsNoError;
}

qsStatus SettingsLarch::ConfigSweepCoupling(double rbw, double vbw, double sweepTime,
                                            unsigned rbwShape, unsigned rejection) {
    return StoreSweepCoupling(rbw, vbw, sweepTime, rbwShape, rejection,
                              rbwShape != QS_RBW_SHAPE_NATIVE);
}

qsStatus SettingsLarch::ConfigIQ(int decimation, double bandwidth) {
    return ConfigIQModel(kLarchFullRateIqHz, decimation, bandwidth);
}

void SettingsLarch::PrepSelfCal() { PrepFixedSweep(10000.0); }

// ---------------------------------------------------------------------------
// Maple

void SettingsMaple::LoadDefault() { LoadCommonDefault(2e9, 4e9, 3e9, 2e9, 30000.0); }

qsStatus SettingsMaple::ConfigLevel(double ref, double atten) {
    bool moved = Clamp(ref, QS_MIN_REFERENCE, QS_MAX_REFERENCE);
    // Any negative attenuation means automatic, so only the top is clamped.
    if (!(atten <= QS_MAX_ATTENUATION)) {
        atten = QS_MAX_ATTENUATION;
        moved = true;
    }
    m_reference = ref;
    m_atten = atten;
    return moved ? qsAdjustedParameter : qsNoError;
}

qsStatus SettingsMaple::ConfigSweepCoupling(double rbw, double vbw, double sweepTime,
                                            unsigned rbwShape, unsigned rejection) {
    const bool moved = vbw > rbw;
    if (moved) vbw = rbw;
    StoreSweepCoupling(rbw, vbw, sweepTime, rbwShape, rejection,
                       rbwShape == QS_RBW_SHAPE_LOWPASS);
    return moved ? qsAdjustedParameter : qsNoError;
}

qsStatus SettingsMaple::ConfigIQ(int decimation, double bandwidth) {
    return ConfigIQModel(kMapleFullRateIqHz, decimation, bandwidth);
}

void SettingsMaple::PrepInitSweep() { PrepFixedSweep(1000.0); }

bool PlausibleTimebaseError(double ppm) { return std::isfinite(ppm) && std::fabs(ppm) <= 1000.0; }

namespace {

template <typename... T>
bool Finite(T... values) {
    return (std::isfinite(static_cast<double>(values)) && ...);
}

constexpr double kCwOffsetHz = 520.0;

}  // namespace

qsStatus Settings::ConfigureCenterSpan(double center, double span) {
    if (!Finite(center, span)) return qsInvalidParameterErr;
    return ConfigCenterSpan(center, span);
}

qsStatus Settings::ConfigureLevel(double ref, double atten) {
    if (!Finite(ref, atten)) return qsInvalidParameterErr;
    return ConfigLevel(ref, atten);
}

qsStatus Settings::ConfigureSweepCoupling(double rbw, double vbw, double sweepTime, unsigned rbwShape,
                                          unsigned rejection) {
    if (!Finite(rbw, vbw, sweepTime)) return qsInvalidParameterErr;
    if (!(rbw >= QS_MIN_RBW)) return qsBandwidthErr;
    if (!(rbw <= QS_MAX_RBW)) return qsBandwidthErr;
    if (!(vbw >= QS_MIN_RBW)) return qsBandwidthErr;
    if (!(sweepTime >= QS_MIN_SWEEP_TIME)) sweepTime = QS_MIN_SWEEP_TIME;
    if (sweepTime > QS_MAX_SWEEP_TIME) sweepTime = QS_MAX_SWEEP_TIME;
    if (rejection > QS_REJECTION_IMAGE) return qsInvalidParameterErr;
    if (rbwShape > QS_RBW_SHAPE_GAUSSIAN) return qsInvalidBandwidthTypeErr;
    return ConfigSweepCoupling(rbw, vbw, sweepTime, rbwShape, rejection);
}

qsStatus Settings::ConfigureIQ(int decimation, double bandwidth) {
    if (!Finite(bandwidth)) return qsInvalidParameterErr;
    return ConfigIQ(decimation, bandwidth);
}

qsStatus Settings::ConfigureIQDataType(int type) {
    if (type != qsDataType32fc && type != qsDataType16sc) return qsInvalidParameterErr;
    iqDataType = static_cast<qsDataType>(type);
    return qsNoError;
}

qsStatus Settings::ConfigureRealTime(double frameScale, int frameRate) {
    if (!Finite(frameScale)) return qsInvalidParameterErr;
    return ConfigRealTime(frameScale, frameRate);
}

qsStatus Settings::ConfigureRealTimeOverlap(double advanceRate) {
    if (!Finite(advanceRate)) return qsInvalidParameterErr;
    return ConfigRealTimeOverlap(advanceRate);
}

qsStatus Settings::ConfigureDemod(int modulation, double freq, float ifBandwidth, float lowPass, float highPass,
                                  float deemphasis) {
    if (!Finite(freq, ifBandwidth, lowPass, highPass, deemphasis)) return qsInvalidParameterErr;
    AudioConfig audio;
    audio.modulation = modulation;
    audio.freq = freq;
    audio.if_bw = ifBandwidth;
    audio.low_pass_freq = lowPass;
    audio.high_pass_freq = highPass;
    audio.deemphasis = deemphasis;
    if (modulation == QS_DEMOD_CW) {
        audio.modulation = QS_DEMOD_LSB;
        audio.freq = freq + kCwOffsetHz;
    }
    m_audio = audio;
    return qsNoError;
}

void Settings::ConfigureTgSweep(int sweepSize, bool highDynamicRange, bool passiveDevice) {
    m_tgHighDynamicRange = passiveDevice ? highDynamicRange : false;
    m_tgPassiveDevice = passiveDevice;
    if (sweepSize < QS_MIN_TG_SWEEP_SIZE) sweepSize = QS_MIN_TG_SWEEP_SIZE;
    if (sweepSize > QS_MAX_TG_SWEEP_SIZE) sweepSize = QS_MAX_TG_SWEEP_SIZE;
    m_tgSweepSize = sweepSize;
}

}  // namespace qs
