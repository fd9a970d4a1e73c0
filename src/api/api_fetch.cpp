// Fetches and queries: the handle and pointer checks, then the device,
// which answers qsDeviceNotConfiguredErr outside the mode that has them.
#include "api/device_table.h"
#include "device/device.h"

using namespace qs;
using qs::api::Lookup;

namespace {

template <typename T>
qsStatus FetchTrace(int device, T* min, T* max) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!min || !max) return qsNullPtrErr;
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
    return dev->GetRealTimeFrame(minSweep, maxSweep, colorFrame, alphaFrame);
}

qsStatus qsFetchAudio(int device, float* audio) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!audio) return qsNullPtrErr;
    return dev->GetAudio(audio);
}

qsStatus qsFetchRaw(int device, float* buffer, int* triggers) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!buffer) return qsNullPtrErr;
    return dev->GetIQ(buffer, triggers);
}

qsStatus qsGetIQ(int device, qsIQPacket* pkt) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!pkt || !pkt->iqData) return qsNullPtrErr;
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
    return dev->QueryTraceInfo(traceLen, binSize, start);
}

qsStatus qsQueryRealTimeInfo(int device, int* frameWidth, int* frameHeight) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!frameWidth || !frameHeight) return qsNullPtrErr;
    return dev->QueryRealTimeInfo(frameWidth, frameHeight);
}

qsStatus qsQueryRealTimePoi(int device, double* poi) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!poi) return qsNullPtrErr;
    return dev->GetRealTimePoi(*poi);
}

qsStatus qsQueryStreamInfo(int device, int* return_len, double* bandwidth,
                           int* samples_per_sec) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->QueryStreamInfo(return_len, bandwidth, samples_per_sec);
}

}  // extern "C"
