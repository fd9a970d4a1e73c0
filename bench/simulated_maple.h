// A simulated Maple opened once for the whole benchmark program, through a
// device class of the benchmark's own (one that plans, or lends its
// corrections, without the public calls). Null when it cannot be opened.
#pragma once

#include <cstdio>
#include <memory>

#include "qs_sim.h"
#include "transport/cypress_linux.h"

template <typename Device>
Device* OpenSimulatedMaple(std::unique_ptr<Device>& device, unsigned serial) {
    if (!device) {
        qssim_reset();
        qssim_add_device(QSSIM_PID_MAPLE_REV2, serial);
        auto* usb = new qs::CypressInterface(static_cast<int>(serial));
        if (usb->State() != qs::USB_OPEN) {
            delete usb;
            return nullptr;
        }
        device = std::make_unique<Device>(usb);
        const qsStatus open = device->OpenDevice();
        if (open < 0 && open != qsUncalibratedDevice) {
            std::fprintf(stderr, "OpenDevice: %d\n", int(open));
            device.reset();
        }
    }
    return device.get();
}
