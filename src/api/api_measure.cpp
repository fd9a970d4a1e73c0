// Start, stop and the calls that act on the device at once.
#include "api/device_table.h"
#include "device/device.h"

using namespace qs;
using qs::api::Lookup;

extern "C" {

qsStatus qsInitiate(int device, unsigned int mode, unsigned int flag) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->Initiate(api::settings[device], mode, flag);
}

qsStatus qsAbort(int device) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->Abort();
}

qsStatus qsConfigureIO(int device, unsigned int port1, unsigned int port2) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->ConfigureIO(port1, port2);
}

qsStatus qsGetDeviceDiagnostics(int device, float* temperature, float* usbVoltage,
                                float* usbCurrent) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    dev->ReadDiagnostics(temperature, usbVoltage, usbCurrent);
    return qsNoError;
}

qsStatus qsGetIQCorrection(int device, float* correction) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!correction) return qsNullPtrErr;
    return dev->GetIQCorrection(*correction);
}

}  // extern "C"
