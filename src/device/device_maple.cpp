#include "device/device_maple.h"

#include "settings/settings.h"

namespace qs {

DeviceMaple::DeviceMaple(CypressInterface* usb) : Device(usb) {
    m_settings = new SettingsMaple();
}

DeviceMaple::~DeviceMaple() { Abort(); }

qsStatus DeviceMaple::OpenDevice() {
    InitDevice();
    // Until the calibration image is read, the USB serial string stands in
    // for the serial number of its header. The start-up sweep and the
    // calibration read join here.
    m_sid = static_cast<unsigned>(m_usb->SerialNumber());
    m_oscRatio = CalibratedOscRatio();
    ConfigurePortIO(0, 0, true);
    return qsNoError;
}

}  // namespace qs
