// The configuration calls. Each checks the handle and writes the slot's
// staging settings; none touches the hardware, and a running measurement
// goes on unchanged until the next qsInitiate. (qsConfigureIO, which acts
// on the device at once, lives with the device calls.)
#include <cmath>

#include "api/device_table.h"
#include "device/device.h"
#include "settings/settings.h"

using namespace qs;
using namespace qs::api;

namespace {

// The staging settings of an open handle, or null.
Settings* Staging(int device) { return Lookup(device) ? settings[device] : nullptr; }

// Every value finite. A NaN or an infinity has no meaning as a frequency,
// level, bandwidth or time; clamped or stored, it reached the planning as
// an index, a loop bound or an allocation size. The configuration calls
// refuse it before anything is stored.
template <typename... T>
bool Finite(T... values) {
    return (std::isfinite(static_cast<double>(values)) && ...);
}

// CW is received as lower side band with the carrier offset into the
// audio band.
constexpr double kCwOffsetHz = 520.0;

}  // namespace

extern "C" {

qsStatus qsConfigureAcquisition(int device, unsigned int detector, unsigned int scale) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    return s->ConfigAcquisition(detector, scale);
}

qsStatus qsConfigureCenterSpan(int device, double center, double span) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    if (!Finite(center, span)) return qsInvalidParameterErr;
    return s->ConfigCenterSpan(center, span);
}

qsStatus qsConfigureIQCenter(int device, double centerFreq) {
    return qsConfigureCenterSpan(device, centerFreq, QS_MIN_SPAN);
}

qsStatus qsConfigureLevel(int device, double ref, double atten) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    if (!Finite(ref, atten)) return qsInvalidParameterErr;
    return s->ConfigLevel(ref, atten);
}

qsStatus qsConfigureGain(int device, int gain) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    return s->ConfigGain(gain);
}

qsStatus qsConfigureSweepCoupling(int device, double rbw, double vbw, double sweepTime,
                                  unsigned int rbwShape, unsigned int rejection) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    if (!Finite(rbw, vbw, sweepTime)) return qsInvalidParameterErr;
    // The order of these tests decides which status a caller sees when
    // several arguments are bad.
    if (!(rbw >= QS_MIN_RBW)) return qsBandwidthErr;
    if (!(rbw <= QS_MAX_RBW)) return qsBandwidthErr;
    if (!(vbw >= QS_MIN_RBW)) return qsBandwidthErr;
    if (!(sweepTime >= QS_MIN_SWEEP_TIME)) sweepTime = QS_MIN_SWEEP_TIME;
    if (sweepTime > QS_MAX_SWEEP_TIME) sweepTime = QS_MAX_SWEEP_TIME;
    if (rejection > QS_REJECTION_IMAGE) return qsInvalidParameterErr;
    if (rbwShape > QS_RBW_SHAPE_GAUSSIAN) return qsInvalidBandwidthTypeErr;
    return s->ConfigSweepCoupling(rbw, vbw, sweepTime, rbwShape, rejection);
}

qsStatus qsConfigureWindow(int device, unsigned int window) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    return s->ConfigWindow(window);
}

qsStatus qsConfigureProcUnits(int device, unsigned int units) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    return s->ConfigProcUnits(units);
}

qsStatus qsConfigureIQ(int device, int downsampleFactor, double bandwidth) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    if (!Finite(bandwidth)) return qsInvalidParameterErr;
    return s->ConfigIQ(downsampleFactor, bandwidth);
}

qsStatus qsConfigureIQDataType(int device, qsDataType iqDataType) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    // Tested as an integer: a C caller can pass any value here.
    const int type = static_cast<int>(iqDataType);
    if (type != qsDataType32fc && type != qsDataType16sc) return qsInvalidParameterErr;
    s->iqDataType = iqDataType;
    return qsNoError;
}

qsStatus qsConfigureRealTime(int device, double frameScale, int frameRate) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    if (!Finite(frameScale)) return qsInvalidParameterErr;
    return s->ConfigRealTime(frameScale, frameRate);
}

qsStatus qsConfigureRealTimeOverlap(int device, double advanceRate) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    if (!Finite(advanceRate)) return qsInvalidParameterErr;
    return s->ConfigRealTimeOverlap(advanceRate);
}

qsStatus qsConfigureDemod(int device, int modulationType, double freq, float IFBW,
                          float audioLowPassFreq, float audioHighPassFreq, float FMDeemphasis) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    if (!Finite(freq, IFBW, audioLowPassFreq, audioHighPassFreq, FMDeemphasis)) return qsInvalidParameterErr;
    AudioConfig audio;
    audio.modulation = modulationType;
    audio.freq = freq;
    audio.if_bw = IFBW;
    audio.low_pass_freq = audioLowPassFreq;
    audio.high_pass_freq = audioHighPassFreq;
    audio.deemphasis = FMDeemphasis;
    if (modulationType == QS_DEMOD_CW) {
        audio.modulation = QS_DEMOD_LSB;
        audio.freq = freq + kCwOffsetHz;
    }
    // Not range-checked: the audio engine clamps at its start.
    s->m_audio = audio;
    // A running audio engine takes the new set at once; with none running
    // the device refuses, and the call has only staged.
    qs::api::Lookup(device)->UpdateAudioSettings(audio);
    return qsNoError;
}

qsStatus qsConfigTgSweep(int device, int sweepSize, bool highDynamicRange, bool passiveDevice) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    // The high-range pass needs a passive device under test.
    s->m_tgHighDynamicRange = passiveDevice ? highDynamicRange : false;
    s->m_tgPassiveDevice = passiveDevice;
    if (sweepSize < QS_MIN_TG_SWEEP_SIZE) sweepSize = QS_MIN_TG_SWEEP_SIZE;
    if (sweepSize > QS_MAX_TG_SWEEP_SIZE) sweepSize = QS_MAX_TG_SWEEP_SIZE;
    s->m_tgSweepSize = sweepSize;
    return qsNoError;
}

}  // extern "C"
