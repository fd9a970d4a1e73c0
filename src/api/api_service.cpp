// Service calls: flash, time base, FPGA id.
#include "api/device_table.h"
#include "calibration/corrections_maple.h"
#include "device/device.h"
#include "device/device_maple.h"

using namespace qs;
using qs::api::Lookup;

extern "C" {

// The flash calls report success whatever the flash did: a caller tests a
// read by what it got.
qsStatus qsReadFlash(int device, int page, unsigned char* data) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!data) return qsNullPtrErr;
    dev->ReadFlash(static_cast<unsigned>(page), data);
    return qsNoError;
}

qsStatus qsWriteFlash(int device, int page, unsigned char* data) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!data) return qsNullPtrErr;
    dev->WriteFlash(static_cast<unsigned>(page), data);
    return qsNoError;
}

qsStatus qsClearFlash(int device) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
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
    SweepInfo& plan = dev->GetSweepInfo();
    plan.manualIFOffsetFractionVal = LTMoffset;
    plan.manualIFOffset = manualOffset;
    plan.secondLOOffset = secondLOOffset;
    return qsNoError;
}

qsStatus qsAddTimebaseCorrection(int device, double ppm) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (dev->GetDeviceType() != QS_DEVICE_TYPE_MAPLE) return qsDeviceInvalidErr;
    static_cast<DeviceMaple*>(dev)->AddTimebaseCorrection(ppm);
    return qsNoError;
}

qsStatus qsApplyRoughGain(int device, unsigned char* low_gains, unsigned char* high_gains) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (dev->GetDeviceType() != QS_DEVICE_TYPE_MAPLE) return qsDeviceInvalidErr;
    if (!low_gains || !high_gains) return qsNullPtrErr;
    static_cast<DeviceMaple*>(dev)->ApplyRoughGains(low_gains, high_gains);
    return qsNoError;
}

qsStatus qsSelfCal(int device) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    dev->SelfCalIF();
    return qsNoError;
}

}  // extern "C"
