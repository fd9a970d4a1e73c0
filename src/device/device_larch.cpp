#include "device/device_larch.h"

#include "settings/settings.h"

namespace qs {

DeviceLarch::DeviceLarch(CypressInterface* usb) : Device(usb) {
    m_settings = new SettingsLarch();
}

DeviceLarch::~DeviceLarch() { Abort(); }

qsStatus DeviceLarch::OpenDevice() {
    InitDevice();
    // Until the calibration image is read, the USB serial string stands in
    // for the serial number of its header. The IF self-calibration around
    // the calibration read joins here.
    m_sid = static_cast<unsigned>(m_usb->SerialNumber());
    ConfigurePortIO(0, 0, true);
    m_oscRatio = CalibratedOscRatio();
    return qsNoError;
}

}  // namespace qs
