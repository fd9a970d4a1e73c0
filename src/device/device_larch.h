#pragma once

#include "device/device.h"

namespace qs {

class DeviceLarch : public Device {
public:
    explicit DeviceLarch(CypressInterface* usb);
    ~DeviceLarch() override;

    qsStatus OpenDevice() override;
};

}  // namespace qs
