#pragma once

#include "device/device.h"

namespace qs {

class DeviceMaple : public Device {
public:
    explicit DeviceMaple(CypressInterface* usb);
    ~DeviceMaple() override;

    qsStatus OpenDevice() override;
    qsStatus ConfigureSweepMode(unsigned flag) override;
    qsStatus ConfigureRealTime(unsigned flag) override;
    qsStatus ConfigureIQ(unsigned flag) override;
    qsStatus ConfigureAudioDemod() override;
    qsStatus ConfigureTgMode(unsigned flag) override;
};

}  // namespace qs
