// The configuration record of a measurement. Two per open device: the
// staging copy that the qsConfigure... calls write (never touching the
// hardware), and the device's active copy, overwritten from the staging one
// at qsInitiate and read by planning and the engines.
//
// All argument validation of measurement parameters lives here. A call
// either stores or refuses: a negative status leaves every field of that
// call as it was; a positive one means a value was moved to a legal one and
// stored. No lock: the staging copy belongs to the calling thread, and the
// active copy is written only while no engine exists.
#pragma once

#include "dsp/qs_defs.h"
#include "qs_api.h"

namespace qs {

// The demodulation set of audio mode, copied by value.
struct AudioConfig {
    int modulation = QS_DEMOD_FM;
    double freq = 9.71e7;
    double if_bw = 160000.0;
    double high_pass_freq = 8000.0;
    double low_pass_freq = 500.0;
    double deemphasis = 500.0;
};

// A reference oscillator is off by ppm, not by percent. A ratio of 0, a
// negative one or a non-finite one would give oscillator words that the
// device never answers (and the Maple's would go to flash): refused.
bool PlausibleTimebaseError(double ppm);

class Settings {
public:
    virtual ~Settings() = default;

    // A complete copy of every field below, and never the model: the
    // target keeps its own virtual table. Staging-to-active copying freezes
    // a measurement, so the compiler-generated member-wise copy is used on
    // purpose; a hand-written list could silently miss a field added later.
    Settings& operator=(const Settings&) = default;

    // Everything but m_audio and iqDataType, which the constructor sets.
    virtual void LoadDefault() = 0;

    // The configuration calls' entries, one per call: each first refuses
    // what no model takes (a NaN or an infinity has no meaning as a
    // frequency, level, bandwidth or time; stored, it reached the planning
    // as an index, a loop bound or an allocation size), in the order that
    // decides which status a caller sees when several arguments are bad,
    // then stores through the model's own checks. A refused call changes
    // nothing.
    qsStatus ConfigureCenterSpan(double center, double span);
    qsStatus ConfigureLevel(double ref, double atten);
    qsStatus ConfigureSweepCoupling(double rbw, double vbw, double sweepTime, unsigned rbwShape,
                                    unsigned rejection);
    qsStatus ConfigureIQ(int decimation, double bandwidth);
    qsStatus ConfigureIQDataType(int type);
    qsStatus ConfigureRealTime(double frameScale, int frameRate);
    qsStatus ConfigureRealTimeOverlap(double advanceRate);
    // Not range-checked: the audio engine clamps at its start. CW is
    // received as lower side band with the carrier offset into the audio
    // band.
    qsStatus ConfigureDemod(int modulation, double freq, float ifBandwidth, float lowPass, float highPass,
                            float deemphasis);
    // The high-range pass needs a passive device under test; the point count
    // is clamped to the mode's range.
    void ConfigureTgSweep(int sweepSize, bool highDynamicRange, bool passiveDevice);

    // Same on both models.
    virtual qsStatus ConfigAcquisition(unsigned detector, unsigned scale);
    virtual qsStatus ConfigCenterSpan(double center, double span);
    virtual qsStatus ConfigGain(int gain);
    virtual qsStatus ConfigWindow(unsigned window);
    virtual qsStatus ConfigProcUnits(unsigned units);

    // The models differ.
    virtual qsStatus ConfigLevel(double ref, double atten) = 0;
    // No refusal of its own: the public call range-checks first.
    virtual qsStatus ConfigSweepCoupling(double rbw, double vbw, double sweepTime,
                                         unsigned rbwShape, unsigned rejection) = 0;
    virtual qsStatus ConfigIQ(int decimation, double bandwidth) = 0;

    qsStatus ConfigRealTime(double frameScale, int frameRate);
    qsStatus ConfigRealTimeOverlap(double advanceRate);

    double Start() const { return m_start; }
    double Stop() const { return m_stop; }
    double Center() const { return m_center; }
    double Span() const { return m_span; }
    double Ref() const { return m_reference; }
    double Atten() const { return m_atten; }
    int Gain() const { return m_gain; }
    double RBW() const { return m_rbw; }
    double VBW() const { return m_vbw; }
    double SweepTime() const { return m_sweepTime; }
    int RBWShape() const { return m_rbwShape; }
    bool ImageReject() const { return m_imageReject; }
    int Window() const { return m_window; }
    double WindowFC() const { return m_windowfc; }
    int VideoUnits() const { return m_videoUnits; }
    int Detector() const { return m_detector; }
    bool LogScale() const { return m_logScale; }
    bool FullScale() const { return m_fullScale; }
    bool FMDemod() const { return m_demodFM; }
    int IQDecimation() const { return iqFinalDecimation; }
    double IQBandwidth() const { return iqFinalBandwidth; }
    double RealTimeFrameScale() const { return m_realTimeFrameScale; }
    int RealTimeFrameRate() const { return m_realTimeFrameRate; }
    double RealTimeAdvanceRate() const { return m_realTimeAdvanceRate; }

    // Writers for planning code, which adjusts the active copy as working
    // state; no validation.
    void SetStart(double v) { m_start = v; }
    void SetStop(double v) { m_stop = v; }
    void SetCenter(double v) { m_center = v; }
    void SetSpan(double v) { m_span = v; }
    void SetRef(double v) { m_reference = v; }
    void SetAtten(double v) { m_atten = v; }
    void SetGain(int v) { m_gain = v; }
    void SetRBW(double v) { m_rbw = v; }
    void SetVBW(double v) { m_vbw = v; }
    void SetSweepTime(double v) { m_sweepTime = v; }
    void SetRBWShape(int v) { m_rbwShape = v; }
    void SetImageReject(bool v) { m_imageReject = v; }
    void SetWindow(int v) { m_window = v; }
    void SetWindowFC(double v) { m_windowfc = v; }
    void SetVideoUnits(int v) { m_videoUnits = v; }
    void SetDetector(int v) { m_detector = v; }
    void SetLogScale(bool v) { m_logScale = v; }
    void SetFullScale(bool v) { m_fullScale = v; }
    void SetFMDemod(bool v) { m_demodFM = v; }

    // Fields in their fixed order. Public: planning reads and writes the
    // active copy directly. Initialisers hold the values both models share;
    // the model constructors then run LoadDefault.
    AudioConfig m_audio;
    int m_tgSweepSize = 250;
    bool m_tgHighDynamicRange = true;
    bool m_tgPassiveDevice = true;
    int iqFinalDecimation = 0;         // log2 of the total decimation
    double iqFinalBandwidth = 2e7;     // as asked for
    bool iqSecondPass = false;
    int iqFirstPassDecimate = 0;       // log2
    double iqFirstPassBandwidth = 0.0;  // after clamping
    int iqSecondPassDecimate = 0;      // log2
    double iqSecondPassBandwidth = 0.0;  // after clamping
    qsDataType iqDataType = qsDataType32fc;
    double m_start = 0.0;
    double m_stop = 0.0;
    double m_center = 0.0;
    double m_span = 0.0;
    double m_reference = 0.0;
    double m_atten = QS_ATTEN_AUTO;
    int m_gain = QS_GAIN_AUTO;
    double m_rbw = 0.0;
    double m_vbw = 0.0;
    double m_sweepTime = 0.001;
    int m_rbwShape = QS_RBW_SHAPE_NATIVE;
    bool m_imageReject = false;
    int m_window = QS_WINDOW_NUTTALL;
    double m_windowfc = 0.0;  // low-pass cut-off in FFT bins
    int m_videoUnits = QS_VIDEO_POWER;
    int m_detector = QS_DETECTOR_MIN_MAX;
    bool m_logScale = true;
    bool m_fullScale = false;
    bool m_demodFM = false;  // carried and copied; nothing rests on it
    double m_realTimeFrameScale = 100.0;
    int m_realTimeFrameRate = 30;
    double m_realTimeAdvanceRate = 0.5;

protected:
    Settings() = default;
    Settings(const Settings&) = default;

    // The model-independent defaults, and the sweep of the open-time
    // calibration at centre 900 MHz, 20 MHz span, with the given RBW.
    void LoadCommonDefault(double start, double stop, double center, double span, double rbw);
    void PrepFixedSweep(double rbw);

    // Stores a sweep coupling; computes m_windowfc when asked.
    qsStatus StoreSweepCoupling(double rbw, double vbw, double sweepTime, unsigned rbwShape,
                                unsigned rejection, bool computeWindowFC);
    // The I/Q limits with the model's widest band at decimation 1.
    qsStatus ConfigIQModel(double fullRateMaxHz, int decimation, double bandwidth);
};

class SettingsLarch : public Settings {
public:
    SettingsLarch() { LoadDefault(); }
    SettingsLarch(const SettingsLarch&) = default;
    SettingsLarch& operator=(const SettingsLarch&) = default;
    using Settings::operator=;

    void LoadDefault() override;
    // Refuses out-of-range values; clamps nothing. No lower reference limit.
    qsStatus ConfigLevel(double ref, double atten) override;
    // VBW as given; m_windowfc for every shape but native.
    qsStatus ConfigSweepCoupling(double rbw, double vbw, double sweepTime, unsigned rbwShape,
                                 unsigned rejection) override;
    qsStatus ConfigIQ(int decimation, double bandwidth) override;

    // The active copy's state for the IF self-calibration sweep. Audio, IQ
    // and tracking-generator fields stay.
    void PrepSelfCal();
};

class SettingsMaple : public Settings {
public:
    SettingsMaple() { LoadDefault(); }
    SettingsMaple(const SettingsMaple&) = default;
    SettingsMaple& operator=(const SettingsMaple&) = default;
    using Settings::operator=;

    void LoadDefault() override;
    // Clamps reference to -150..50 dBm and attenuation to 30 dB.
    qsStatus ConfigLevel(double ref, double atten) override;
    // VBW above RBW comes down to RBW; m_windowfc for the low-pass shape only.
    qsStatus ConfigSweepCoupling(double rbw, double vbw, double sweepTime, unsigned rbwShape,
                                 unsigned rejection) override;
    qsStatus ConfigIQ(int decimation, double bandwidth) override;

    // The active copy's state for the start-up sweep. Audio, IQ and
    // tracking-generator fields stay.
    void PrepInitSweep();
};

}  // namespace qs
