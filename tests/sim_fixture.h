// A test fixture with one simulated analyser plugged in and opened through
// the public calls, closed and unplugged again after the test.
#pragma once

#include <gtest/gtest.h>

#include "qs_api.h"
#include "qs_sim.h"

class OpenSimulatedDevice : public ::testing::Test {
protected:
    explicit OpenSimulatedDevice(int productId = QSSIM_PID_MAPLE_REV2, unsigned serial = 12345678)
        : productId_(productId), serial_(serial) {}

    void SetUp() override {
        qssim_reset();
        sim = qssim_add_device(productId_, serial_);
        ASSERT_EQ(qsOpenDeviceBySerialNumber(&h, static_cast<int>(serial_)), qsNoError);
    }
    void TearDown() override {
        qsCloseDevice(h);
        qssim_reset();
    }

    int sim = -1;  // the simulator's id of the device
    int h = -1;    // the library's handle

private:
    int productId_;
    unsigned serial_;
};
