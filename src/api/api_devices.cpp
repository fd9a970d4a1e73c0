// The device table and the open and close calls.
#include <unistd.h>

#include "api/device_table.h"
#include "device/device.h"
#include "ippcore.h"
#include "settings/settings.h"
#include "transport/cypress_linux.h"

namespace qs {
namespace api {

Device* devices[QS_MAX_DEVICES] = {};
Settings* settings[QS_MAX_DEVICES] = {};

namespace {

bool ipps_initialized = false;
constexpr useconds_t kOpenRetryDelayUs = 3000000;

// One open attempt: the lowest free slot, the transport, the model's device.
qsStatus OpenAttempt(int* device, int serialNumber) {
    *device = -1;
    if (serialNumber < 0) {
        int serials[QS_MAX_DEVICES] = {};
        int count = 0;
        const qsStatus status = GetSerialNumberList(serials, &count);
        if (status != qsNoError) return status;
        if (count < 1) return qsDeviceNotOpenErr;
        serialNumber = serials[0];
    }
    int slot = 0;
    while (slot < QS_MAX_DEVICES && devices[slot]) ++slot;
    if (slot == QS_MAX_DEVICES) return qsDeviceNotOpenErr;

    auto* usb = new CypressInterface(serialNumber);
    if (usb->State() != USB_OPEN) {
        delete usb;
        return qsDeviceNotOpenErr;
    }
    devices[slot] = NewDevice(usb);
    if (!devices[slot]) {
        // Our vendor, not our product: refused like a device not found.
        delete usb;
        return qsDeviceNotOpenErr;
    }
    settings[slot] = devices[slot]->NewSettings();
    settings[slot]->LoadDefault();
    const qsStatus status = devices[slot]->OpenDevice();
    if (status < 0) {
        qsPreset(slot);
        delete devices[slot];
        devices[slot] = nullptr;
        delete settings[slot];
        settings[slot] = nullptr;
        return status;
    }
    *device = slot;
    return status;
}

}  // namespace
}  // namespace api
}  // namespace qs

using namespace qs;
using namespace qs::api;

extern "C" {

qsStatus qsGetSerialNumberList(int* serialNumbers, int* deviceCount) {
    if (!serialNumbers || !deviceCount) return qsNullPtrErr;
    return GetSerialNumberList(serialNumbers, deviceCount);
}

qsStatus qsOpenDevice(int* device) { return qsOpenDeviceBySerialNumber(device, -1); }

qsStatus qsOpenDeviceBySerialNumber(int* device, int serialNumber) {
    if (!device) return qsNullPtrErr;
    if (!ipps_initialized) {
        ippInit();
        ipps_initialized = true;
    }
    const qsStatus status = OpenAttempt(device, serialNumber);
    if (status >= 0) return status;
    // The device may still be settling after a reset or a re-plug.
    usleep(kOpenRetryDelayUs);
    return OpenAttempt(device, serialNumber);
}

qsStatus qsCloseDevice(int device) {
    if (!Lookup(device)) return qsDeviceNotOpenErr;
    delete settings[device];
    settings[device] = nullptr;
    delete devices[device];
    devices[device] = nullptr;
    return qsNoError;
}

qsStatus qsPreset(int device) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->Preset();
}

qsStatus qsPresetFull(int* device) {
    if (!device) return qsNullPtrErr;
    Device* dev = Lookup(*device);
    if (!dev) return qsDeviceNotOpenErr;
    unsigned serial = 0;
    qsGetSerialNumber(*device, &serial);
    qsPreset(*device);
    qsCloseDevice(*device);
    return qsOpenDeviceBySerialNumber(device, static_cast<int>(serial));
}

}  // extern "C"
