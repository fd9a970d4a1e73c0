// Identity calls: thin, checked doors into the device.
#include "api/device_table.h"
#include "device/device.h"

using namespace qs;
using qs::api::Lookup;

extern "C" {

qsStatus qsGetDeviceType(int device, int* type) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!type) return qsNullPtrErr;
    *type = dev->GetDeviceType();
    return qsNoError;
}

qsStatus qsGetSerialNumber(int device, unsigned int* sid) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!sid) return qsNullPtrErr;
    if (!dev->IsValid()) return qsDeviceInvalidErr;
    *sid = dev->GetSerialNumber();
    return qsNoError;
}

qsStatus qsGetFirmwareVersion(int device, int* version) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!version) return qsNullPtrErr;
    if (!dev->IsValid()) return qsDeviceInvalidErr;
    *version = dev->GetFirmwareVersion();
    return qsNoError;
}

qsStatus qsGetMapleRev(int device, int* rev) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!rev) return qsNullPtrErr;
    return dev->QueryMapleRev(*rev);
}

}  // extern "C"
