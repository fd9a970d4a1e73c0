#include "device/device_larch.h"

#include "settings/settings.h"

namespace qs {

DeviceLarch::DeviceLarch(CypressInterface* usb) : Device(usb) {
    m_settings = new SettingsLarch();
}

DeviceLarch::~DeviceLarch() = default;

qsStatus DeviceLarch::OpenDevice() {
    InitDevice();
    // Until the calibration image is read, the USB serial string stands in
    // for the serial number of its header.
    m_sid = static_cast<unsigned>(m_usb->SerialNumber());
    // The IF self-calibration and the calibration read join here.
    return qsNoError;
}

}  // namespace qs
