// The operations behind the public calls that do more than read a field:
// the state and argument checks in the order each call documents.
#include <cmath>

#include "device/device.h"
#include "dsp/math_helpers.h"
#include "settings/settings.h"

namespace qs {

namespace {

// Bits 0 and 1 of the port mask land on the packet mode of every command:
// set, they stop the device from ever starting a stream, and every fetch
// after the next qsInitiate would wait for data that cannot come.
constexpr unsigned kPacketModeBits = 0x3;

// The widest frame not above the limit, halving the trace length.
int RealTimeFrameWidth(int traceLen) {
    int w = traceLen;
    while (w > QS_RT_MAX_FRAME_WIDTH) w = (w % 2) ? (w + 1) / 2 : w / 2;
    return w;
}

}  // namespace

qsStatus Device::FlashRead(int page, unsigned char* data) {
    if (!data) return qsNullPtrErr;
    if (GetMode() != QS_MODE_IDLE) return qsDeviceNotIdleErr;
    ReadFlash(static_cast<unsigned>(page), data);
    return qsNoError;
}

qsStatus Device::FlashWrite(int page, const unsigned char* data) {
    if (!data) return qsNullPtrErr;
    if (GetMode() != QS_MODE_IDLE) return qsDeviceNotIdleErr;
    WriteFlash(static_cast<unsigned>(page), data);
    return qsNoError;
}

qsStatus Device::FlashClear() {
    if (GetMode() != QS_MODE_IDLE) return qsDeviceNotIdleErr;
    ClearFlash();
    return qsNoError;
}

qsStatus Device::SetTimebase(double ratio) {
    if (!PlausibleTimebaseError((ratio - 1.0) * 1e6)) return qsInvalidParameterErr;
    SetTimebaseCorrection(ratio);
    return qsNoError;
}

qsStatus Device::SetIFOffset(double fraction, double secondLOHz, bool manual) {
    if (!std::isfinite(fraction) || !std::isfinite(secondLOHz)) return qsInvalidParameterErr;
    m_sweepInfo.manualIFOffsetFractionVal = fraction;
    m_sweepInfo.manualIFOffset = manual;
    m_sweepInfo.secondLOOffset = secondLOHz;
    return qsNoError;
}

qsStatus Device::ConfigureIO(unsigned port1, unsigned port2) {
    if (GetMode() != QS_MODE_IDLE) return qsDeviceNotIdleErr;
    if (port1 > 255 || port2 > 255) return qsInvalidParameterErr;
    // The packet-mode bits are kept out of the mask, with a warning.
    const bool adjusted = ((port1 | port2) & kPacketModeBits) != 0;
    const qsStatus status = ConfigurePortIO(port1 & ~kPacketModeBits, port2 & ~kPacketModeBits, false);
    return status == qsNoError && adjusted ? qsAdjustedParameter : status;
}

void Device::ReadDiagnostics(float* celsius, float* usbVolts, float* usbAmps) const {
    if (celsius) *celsius = m_readings.celcius;
    if (usbVolts) *usbVolts = m_readings.voltageUSB;
    if (usbAmps) *usbAmps = m_model.usbCurrentScale * m_readings.currentUSB;
}

qsStatus Device::QueryMapleRev(int& rev) const {
    rev = -1;
    return qsDeviceInvalidErr;
}

qsStatus Device::QueryTraceInfo(unsigned* traceLen, double* binSize, double* start) const {
    const int mode = GetMode();
    if (mode != QS_MODE_SWEEP && mode != QS_MODE_REAL_TIME && mode != QS_MODE_TG_SWEEP)
        return qsDeviceNotConfiguredErr;
    *traceLen = static_cast<unsigned>(m_sweepInfo.traceLen);
    *binSize = m_sweepInfo.binSize;
    *start = m_sweepInfo.actualStart;
    return qsNoError;
}

qsStatus Device::QueryRealTimeInfo(int* width, int* height) const {
    if (GetMode() != QS_MODE_REAL_TIME) return qsDeviceNotConfiguredErr;
    *width = RealTimeFrameWidth(m_sweepInfo.traceLen);
    *height = QS_RT_FRAME_HEIGHT;
    return qsNoError;
}

qsStatus Device::QueryStreamInfo(int* returnLen, double* bandwidth, int* samplesPerSec) const {
    if (GetMode() != QS_MODE_STREAMING) return qsDeviceNotConfiguredErr;
    const Settings& active = *m_settings;
    const int d = static_cast<int>(mypow2(active.iqFinalDecimation));
    if (returnLen) *returnLen = 0x80000 / d;
    if (bandwidth) *bandwidth = active.iqSecondPass ? active.iqSecondPassBandwidth : active.iqFirstPassBandwidth;
    if (samplesPerSec) *samplesPerSec = static_cast<int>(QS_MAX_IQ_SAMPLE_RATE / d);
    return qsNoError;
}

qsStatus Device::AttachTg() { return m_generator.Connect() ? qsNoError : qsDeviceConnectionErr; }

qsStatus Device::SetTg(double frequencyHz, double amplitudeDbm) {
    if (GetMode() == QS_MODE_TG_SWEEP) return qsDeviceNotConfiguredErr;
    if (!std::isfinite(frequencyHz) || !std::isfinite(amplitudeDbm)) return qsInvalidParameterErr;
    return m_generator.SetTgFreqAmpl(frequencyHz, amplitudeDbm);
}

qsStatus Device::GetTg(double* frequencyHz, double* amplitudeDbm) {
    if (GetMode() == QS_MODE_TG_SWEEP) return qsDeviceNotConfiguredErr;
    return m_generator.GetTgFreqAmpl(frequencyHz, amplitudeDbm);
}

qsStatus Device::SetTgReference(int reference) {
    if (!m_generator.IsConnected()) return qsTrackingGeneratorNotFound;
    if (GetMode() == QS_MODE_TG_SWEEP) return qsDeviceNotConfiguredErr;
    return m_generator.SetRef(reference);
}

}  // namespace qs
