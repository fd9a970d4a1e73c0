// Real-time planning on the Maple: the plan, the settings it adjusts and
// the streaming command, on a device opened through the simulator.
#include <gtest/gtest.h>

#include <memory>

#include "device/device_maple.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "settings/settings.h"

namespace qs {
namespace {

class RealTimeMaple : public DeviceMaple {
public:
    using DeviceMaple::DeviceMaple;
    const DeviceCommand& Command() const { return m_cmd; }
};

class RealTimePlanning : public ::testing::Test {
protected:
    void SetUp() override {
        qssim_reset();
        simId = qssim_add_device(QSSIM_PID_MAPLE_REV2, 12345678);
        auto* usb = new CypressInterface(12345678);
        ASSERT_EQ(usb->State(), USB_OPEN);
        device = std::make_unique<RealTimeMaple>(usb);
        ASSERT_EQ(device->OpenDevice(), qsNoError);
    }
    void TearDown() override {
        device.reset();
        qssim_reset();
    }

    qsStatus Start(double center, double span, double sweepTime) {
        SettingsMaple staging;
        EXPECT_EQ(staging.ConfigCenterSpan(center, span), qsNoError);
        // 100 kHz: a 2048-point transform, bins of 39062.5 Hz.
        staging.ConfigSweepCoupling(100e3, 100e3, 0.01, QS_RBW_SHAPE_NATIVE, 0);
        staging.m_sweepTime = sweepTime;
        staging.m_realTimeAdvanceRate = 10.0;
        return device->Initiate(&staging, QS_MODE_REAL_TIME, 0);
    }

    std::unique_ptr<RealTimeMaple> device;
    int simId = -1;
};

TEST_F(RealTimePlanning, SweepTimeBelowOneMillisecondIsRaised) {
    const struct {
        double asked, active;
    } cases[] = {{1e-5, 0.001}, {0.000999, 0.001}, {0.001, 0.001}, {0.25, 0.25}};
    for (const auto& c : cases) {
        ASSERT_EQ(Start(1e9, 20e6, c.asked), qsNoError);
        EXPECT_EQ(device->GetSettings()->SweepTime(), c.active) << c.asked;
    }
}

TEST_F(RealTimePlanning, CentreOnAndOffTheGrid) {
    const struct {
        double center;
        int ifOffset;
    } cases[] = {{1e9, 0}, {1e9 + 100e3, 3}, {1e9 + 390e3, 10}, {1e9 - 100e3, -3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.center);
        ASSERT_EQ(Start(c.center, 20e6, 0.001), qsNoError);
        const SweepInfo& si = device->GetSweepInfo();
        EXPECT_EQ(si.fftSize, 2048);
        EXPECT_EQ(si.traceLen, 516);  // 512 + 2, to a multiple of 4
        EXPECT_EQ(si.stepCount, 1);
        EXPECT_EQ(si.dsRatio, 1);
        EXPECT_EQ(si.IFOffset, c.ifOffset);
        EXPECT_DOUBLE_EQ(si.initialCenter, 1e9);
        EXPECT_DOUBLE_EQ(si.actualStart, 1e9 + (c.ifOffset - 258) * 39062.5);
        const DeviceCommand& cmd = device->Command();
        EXPECT_EQ(cmd.headerType, QS_CMD_CONFIGURE);
        EXPECT_EQ(cmd.commandType, QS_CFG_STREAM);
        EXPECT_EQ(cmd.subBandCount, 1);
        EXPECT_EQ(device->GetMode(), QS_MODE_REAL_TIME);
    }
}

// A refused set-up sends nothing and leaves the device idle.
TEST_F(RealTimePlanning, RefusalSendsNothing) {
    const int before = qssim_command_count(simId);
    EXPECT_EQ(Start(1e9, 27001000.1, 0.001), qsInvalidParameterErr);
    EXPECT_EQ(device->GetMode(), QS_MODE_IDLE);
    EXPECT_EQ(qssim_command_count(simId), before);
    double poi = 0.0;
    EXPECT_EQ(device->GetRealTimePoi(poi), qsDeviceNotConfiguredErr);
}

}  // namespace
}  // namespace qs
