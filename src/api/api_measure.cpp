// Start, stop and the calls that act on the device at once.
#include "api/device_table.h"
#include "device/device.h"

using namespace qs;
using qs::api::Lookup;

extern "C" {

qsStatus qsInitiate(int device, unsigned int mode, unsigned int flag) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!dev->IsValid()) return qsDeviceInvalidErr;
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
    if (dev->GetMode() != QS_MODE_IDLE) return qsDeviceNotIdleErr;
    if (port1 > 255 || port2 > 255) return qsInvalidParameterErr;
    // Bits 0 and 1 of the mask land on the packet mode of every command:
    // set, they stop the device from ever starting a stream, and every
    // fetch after the next qsInitiate would wait for data that cannot
    // come. They are kept out of the mask, with a warning.
    constexpr unsigned kPacketModeBits = 0x3;
    const bool adjusted = ((port1 | port2) & kPacketModeBits) != 0;
    const qsStatus status = dev->ConfigurePortIO(port1 & ~kPacketModeBits, port2 & ~kPacketModeBits, false);
    return status == qsNoError && adjusted ? qsAdjustedParameter : status;
}

qsStatus qsGetDeviceDiagnostics(int device, float* temperature, float* usbVoltage,
                                float* usbCurrent) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    const Diagnostics& readings = dev->GetReadings();
    if (temperature) *temperature = readings.celcius;
    if (usbVoltage) *usbVoltage = readings.voltageUSB;
    if (usbCurrent) {
        // The Maple reports half its supply current.
        const float current = readings.currentUSB;
        *usbCurrent = dev->GetDeviceType() == QS_DEVICE_TYPE_MAPLE ? 2.0f * current : current;
    }
    return qsNoError;
}

qsStatus qsGetIQCorrection(int device, float* correction) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!correction) return qsNullPtrErr;
    return dev->GetIQCorrection(*correction);
}

}  // extern "C"
