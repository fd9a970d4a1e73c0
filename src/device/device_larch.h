#pragma once

#include "device/device.h"

namespace qs {

class DeviceLarch : public Device {
public:
    explicit DeviceLarch(CypressInterface* usb);
    ~DeviceLarch() override;

    qsStatus OpenDevice() override;
    qsStatus ConfigureSweepMode(unsigned flag) override;
    qsStatus ConfigureRealTime(unsigned flag) override;
    qsStatus ConfigureIQ(unsigned flag) override;
    qsStatus ConfigureAudioDemod() override;
    qsStatus ConfigureTgMode(unsigned flag) override;
};

}  // namespace qs
