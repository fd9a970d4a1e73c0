// Fetches and queries: the handle, pointer and mode checks, then the device.
#include "api/device_table.h"
#include "device/device.h"
#include "dsp/math_helpers.h"
#include "settings/settings.h"

using namespace qs;
using qs::api::Lookup;

namespace {

bool ModeIs(const Device* dev, int a, int b = -2, int c = -2) {
    const int mode = dev->GetMode();
    return mode == a || mode == b || mode == c;
}

// The widest frame not above 1023 columns, halving the trace length.
int RealTimeFrameWidth(int traceLen) {
    int w = traceLen;
    while (w > QS_RT_MAX_FRAME_WIDTH) w = (w % 2) ? (w + 1) / 2 : w / 2;
    return w;
}

template <typename T>
qsStatus FetchTrace(int device, T* min, T* max) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!min || !max) return qsNullPtrErr;
    if (!ModeIs(dev, QS_MODE_SWEEP, QS_MODE_TG_SWEEP)) return qsDeviceNotConfiguredErr;
    return dev->GetSweep(min, max);
}

}  // namespace

extern "C" {

qsStatus qsFetchTrace_32f(int device, int, float* min, float* max) {
    return FetchTrace(device, min, max);
}

qsStatus qsFetchTrace(int device, int, double* min, double* max) {
    return FetchTrace(device, min, max);
}

qsStatus qsFetchRealTimeFrame(int device, float* minSweep, float* maxSweep, float* colorFrame,
                              float* alphaFrame) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!ModeIs(dev, QS_MODE_REAL_TIME)) return qsDeviceNotConfiguredErr;
    return dev->GetRealTimeFrame(minSweep, maxSweep, colorFrame, alphaFrame);
}

qsStatus qsFetchAudio(int device, float* audio) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!audio) return qsNullPtrErr;
    if (!ModeIs(dev, QS_MODE_AUDIO)) return qsDeviceNotConfiguredErr;
    return dev->GetAudio(audio);
}

qsStatus qsFetchRaw(int device, float* buffer, int* triggers) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!buffer) return qsNullPtrErr;
    if (!ModeIs(dev, QS_MODE_STREAMING)) return qsDeviceNotConfiguredErr;
    return dev->GetIQ(buffer, triggers);
}

qsStatus qsGetIQ(int device, qsIQPacket* pkt) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!pkt || !pkt->iqData) return qsNullPtrErr;
    if (!ModeIs(dev, QS_MODE_STREAMING)) return qsDeviceNotConfiguredErr;
    return dev->GetIQ(pkt);
}

qsStatus qsGetIQUnpacked(int device, void* iqData, int iqCount, int* triggers, int triggerCount,
                         int purge, int* dataRemaining, int* sampleLoss, int* sec, int* nano) {
    qsIQPacket pkt{};
    pkt.iqData = iqData;
    pkt.iqCount = iqCount;
    pkt.triggers = triggers;
    pkt.triggerCount = triggerCount;
    pkt.purge = purge;
    const qsStatus status = qsGetIQ(device, &pkt);
    if (dataRemaining) *dataRemaining = pkt.dataRemaining;
    if (sampleLoss) *sampleLoss = pkt.sampleLoss;
    if (sec) *sec = pkt.sec;
    if (nano) *nano = pkt.nano;
    return status;
}

qsStatus qsQueryTraceInfo(int device, unsigned int* traceLen, double* binSize, double* start) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!traceLen || !binSize || !start) return qsNullPtrErr;
    if (!ModeIs(dev, QS_MODE_SWEEP, QS_MODE_REAL_TIME, QS_MODE_TG_SWEEP))
        return qsDeviceNotConfiguredErr;
    const SweepInfo& plan = dev->GetSweepInfo();
    *traceLen = static_cast<unsigned>(plan.traceLen);
    *binSize = plan.binSize;
    *start = plan.actualStart;
    return qsNoError;
}

qsStatus qsQueryRealTimeInfo(int device, int* frameWidth, int* frameHeight) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!frameWidth || !frameHeight) return qsNullPtrErr;
    if (!ModeIs(dev, QS_MODE_REAL_TIME)) return qsDeviceNotConfiguredErr;
    *frameWidth = RealTimeFrameWidth(dev->GetSweepInfo().traceLen);
    *frameHeight = QS_RT_FRAME_HEIGHT;
    return qsNoError;
}

qsStatus qsQueryRealTimePoi(int device, double* poi) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!poi) return qsNullPtrErr;
    if (!ModeIs(dev, QS_MODE_REAL_TIME)) return qsDeviceNotConfiguredErr;
    return dev->GetRealTimePoi(*poi);
}

qsStatus qsQueryStreamInfo(int device, int* return_len, double* bandwidth,
                           int* samples_per_sec) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!ModeIs(dev, QS_MODE_STREAMING)) return qsDeviceNotConfiguredErr;
    const Settings& active = *dev->GetSettings();
    const int d = static_cast<int>(mypow2(active.iqFinalDecimation));
    if (return_len) *return_len = 0x80000 / d;
    if (bandwidth)
        *bandwidth = active.iqSecondPass ? active.iqSecondPassBandwidth : active.iqFirstPassBandwidth;
    if (samples_per_sec) *samples_per_sec = static_cast<int>(QS_MAX_IQ_SAMPLE_RATE / d);
    return qsNoError;
}

}  // extern "C"
