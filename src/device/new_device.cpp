// The one place that picks a model: by the product the transport found.
#include "device/device_larch.h"
#include "device/device_maple.h"

namespace qs {

Device* NewDevice(CypressInterface* usb) {
    switch (usb->GetDeviceType()) {
        case QS_DEVICE_TYPE_LARCH: return new DeviceLarch(usb);
        case QS_DEVICE_TYPE_MAPLE: return new DeviceMaple(usb);
        default: return nullptr;
    }
}

}  // namespace qs
