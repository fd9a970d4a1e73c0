// The configuration calls. Each checks the handle and hands its arguments
// to the slot's staging settings, which check and store them; none touches
// the hardware, and a running measurement goes on unchanged until the next
// qsInitiate. (qsConfigureIO, which acts on the device at once, lives with
// the device calls.)
#include "api/device_table.h"
#include "device/device.h"
#include "settings/settings.h"

using namespace qs;
using namespace qs::api;

namespace {

// The staging settings of an open handle, or null.
Settings* Staging(int device) { return Lookup(device) ? settings[device] : nullptr; }

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
    return s->ConfigureCenterSpan(center, span);
}

qsStatus qsConfigureIQCenter(int device, double centerFreq) {
    return qsConfigureCenterSpan(device, centerFreq, QS_MIN_SPAN);
}

qsStatus qsConfigureLevel(int device, double ref, double atten) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    return s->ConfigureLevel(ref, atten);
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
    return s->ConfigureSweepCoupling(rbw, vbw, sweepTime, rbwShape, rejection);
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
    return s->ConfigureIQ(downsampleFactor, bandwidth);
}

qsStatus qsConfigureIQDataType(int device, qsDataType iqDataType) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    // Passed on as an integer: a C caller can pass any value here.
    return s->ConfigureIQDataType(static_cast<int>(iqDataType));
}

qsStatus qsConfigureRealTime(int device, double frameScale, int frameRate) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    return s->ConfigureRealTime(frameScale, frameRate);
}

qsStatus qsConfigureRealTimeOverlap(int device, double advanceRate) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    return s->ConfigureRealTimeOverlap(advanceRate);
}

qsStatus qsConfigureDemod(int device, int modulationType, double freq, float IFBW,
                          float audioLowPassFreq, float audioHighPassFreq, float FMDeemphasis) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    const qsStatus status =
        s->ConfigureDemod(modulationType, freq, IFBW, audioLowPassFreq, audioHighPassFreq, FMDeemphasis);
    // A running audio engine takes the new set at once; with none running
    // the device refuses, and the call has only staged.
    if (status == qsNoError) Lookup(device)->UpdateAudioSettings(s->m_audio);
    return status;
}

qsStatus qsConfigTgSweep(int device, int sweepSize, bool highDynamicRange, bool passiveDevice) {
    Settings* s = Staging(device);
    if (!s) return qsDeviceNotOpenErr;
    s->ConfigureTgSweep(sweepSize, highDynamicRange, passiveDevice);
    return qsNoError;
}

}  // extern "C"
