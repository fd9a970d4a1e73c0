// Service calls: flash, time base, IF offset, FPGA id, self-calibration.
#include "api/device_table.h"
#include "device/device.h"

using namespace qs;
using qs::api::Lookup;

extern "C" {

qsStatus qsReadFlash(int device, int page, unsigned char* data) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->FlashRead(page, data);
}

qsStatus qsWriteFlash(int device, int page, unsigned char* data) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->FlashWrite(page, data);
}

qsStatus qsClearFlash(int device) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->FlashClear();
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
    return dev->SetTimebase(correction);
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
    return dev->SetIFOffset(LTMoffset, secondLOOffset, manualOffset);
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
