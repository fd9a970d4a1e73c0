#pragma once

#include "device/device.h"

namespace qs {

class DeviceMaple : public Device {
public:
    explicit DeviceMaple(CypressInterface* usb);
    ~DeviceMaple() override;

    qsStatus OpenDevice() override;
};

}  // namespace qs
