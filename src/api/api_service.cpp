// Service calls: flash, time base, FPGA id.
//
// The flash calls are refused while a measurement is configured: a flash
// command ends the device's run, and the measurement's next fetch would
// wait for blocks that no longer come.
#include <cmath>

#include "api/device_table.h"
#include "device/device.h"
#include "settings/settings.h"

using namespace qs;
using qs::api::Lookup;

extern "C" {

// The flash calls report success whatever the flash did: a caller tests a
// read by what it got.
qsStatus qsReadFlash(int device, int page, unsigned char* data) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!data) return qsNullPtrErr;
    if (dev->GetMode() != QS_MODE_IDLE) return qsDeviceNotIdleErr;
    dev->ReadFlash(static_cast<unsigned>(page), data);
    return qsNoError;
}

qsStatus qsWriteFlash(int device, int page, unsigned char* data) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!data) return qsNullPtrErr;
    if (dev->GetMode() != QS_MODE_IDLE) return qsDeviceNotIdleErr;
    dev->WriteFlash(static_cast<unsigned>(page), data);
    return qsNoError;
}

qsStatus qsClearFlash(int device) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (dev->GetMode() != QS_MODE_IDLE) return qsDeviceNotIdleErr;
    dev->ClearFlash();
    return qsNoError;
}

qsStatus qsGetFPGAid(int device, unsigned int* id) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!id) return qsNullPtrErr;
    *id = dev->GetFPGAID();
    return qsNoError;
}

qsStatus qsSetTimebaseCorrection(int device, double correction) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!PlausibleTimebaseError((correction - 1.0) * 1e6)) return qsInvalidParameterErr;
    dev->SetTimebaseCorrection(correction);
    return qsNoError;
}

qsStatus qsGetTimebaseCorrection(int device, double* correction) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!correction) return qsNullPtrErr;
    *correction = dev->GetTimebaseCorrection();
    return qsNoError;
}

qsStatus qsSetIFOffset(int device, double LTMoffset, double secondLOOffset, bool manualOffset) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!std::isfinite(LTMoffset) || !std::isfinite(secondLOOffset)) return qsInvalidParameterErr;
    SweepInfo& plan = dev->GetSweepInfo();
    plan.manualIFOffsetFractionVal = LTMoffset;
    plan.manualIFOffset = manualOffset;
    plan.secondLOOffset = secondLOOffset;
    return qsNoError;
}

qsStatus qsAddTimebaseCorrection(int device, double ppm) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->AddTimebaseCorrection(ppm);
}

qsStatus qsApplyRoughGain(int device, unsigned char* low_gains, unsigned char* high_gains) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->ApplyRoughGains(low_gains, high_gains);
}

qsStatus qsSelfCal(int device) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    dev->SelfCalIF();
    return qsNoError;
}

}  // extern "C"
