// The measurement and service calls that work without a running mode.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"
#include "sim_fixture.h"

namespace {

using IdleDevice = OpenSimulatedDevice;

TEST_F(IdleDevice, InitiateRefusesWhatIsNotAModeAndLeavesTheDeviceIdle) {
    for (unsigned mode : {2u, 3u, 5u, 6u, 9u, 0xFFFFFFFFu})
        EXPECT_EQ(qsInitiate(h, mode, 0), qsInvalidModeErr) << mode;
    EXPECT_EQ(qsAbort(h), qsDeviceNotConfiguredErr);
    // Still usable afterwards.
    EXPECT_EQ(qsConfigureIO(h, 0, 0), qsNoError);
}

TEST_F(IdleDevice, ConfigureIOChecksItsPortsAndSendsOnlyChanges) {
    EXPECT_EQ(qsConfigureIO(h, 256, 0), qsInvalidParameterErr);
    EXPECT_EQ(qsConfigureIO(h, 0, 256), qsInvalidParameterErr);
    const int before = qssim_command_count(sim);
    EXPECT_EQ(qsConfigureIO(h, 0, 0), qsNoError);  // the mask sent at open
    EXPECT_EQ(qssim_command_count(sim), before);
    // Bits 0 and 1 are the packet mode, the library's own: kept out.
    EXPECT_EQ(qsConfigureIO(h, 0x40, 0x02), qsAdjustedParameter);
    ASSERT_EQ(qssim_command_count(sim), before + 1);
    unsigned char block[1024];
    ASSERT_EQ(qssim_get_command(sim, before, block), 0);
    EXPECT_EQ(block[0], 0x15);
    EXPECT_EQ(block[16], 0x40);
    for (int i = 17; i < 32; ++i) EXPECT_EQ(block[i], 0) << i;
    // A stream still starts and delivers after such a call.
    ASSERT_EQ(qsConfigureIO(h, 0x01, 0x03), qsAdjustedParameter);
    ASSERT_EQ(qsConfigureIQCenter(h, 1e9), qsNoError);
    ASSERT_EQ(qsConfigureIQ(h, 8, 1e6), qsNoError);
    ASSERT_EQ(qsInitiate(h, QS_MODE_STREAMING, 0), qsNoError);
    std::vector<float> iq(2 * 4096);
    qsIQPacket p{};
    p.iqData = iq.data();
    p.iqCount = 4096;
    EXPECT_EQ(qsGetIQ(h, &p), qsNoError);
}

TEST_F(IdleDevice, NonFiniteArgumentsAreRefusedAndNothingIsStored) {
    const double bad[] = {std::nan(""), INFINITY, -INFINITY};
    for (double x : bad) {
        const float f = static_cast<float>(x);
        EXPECT_EQ(qsConfigureCenterSpan(h, x, 1e6), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureCenterSpan(h, 1e9, x), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureIQCenter(h, x), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureLevel(h, x, 10), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureLevel(h, -20, x), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureSweepCoupling(h, x, 1e3, 1e-3, 0, 0), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureSweepCoupling(h, 1e3, x, 1e-3, 0, 0), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureSweepCoupling(h, 1e3, 1e3, x, 0, 0), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureIQ(h, 8, x), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureRealTime(h, x, 30), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureRealTimeOverlap(h, x), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureDemod(h, 1, x, 1e5, 8e3, 20, 75e-6f), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureDemod(h, 1, 1e8, f, 8e3, 20, 75e-6f), qsInvalidParameterErr);
        EXPECT_EQ(qsConfigureDemod(h, 1, 1e8, 1e5, 8e3, 20, f), qsInvalidParameterErr);
        EXPECT_EQ(qsSetTimebaseCorrection(h, x), qsInvalidParameterErr);
        EXPECT_EQ(qsAddTimebaseCorrection(h, x), qsInvalidParameterErr);
        EXPECT_EQ(qsSetIFOffset(h, x, 0, false), qsInvalidParameterErr);
    }
    // A ratio no reference oscillator is off by.
    EXPECT_EQ(qsSetTimebaseCorrection(h, 0.0), qsInvalidParameterErr);
    EXPECT_EQ(qsSetTimebaseCorrection(h, -1.0), qsInvalidParameterErr);
    EXPECT_EQ(qsSetTimebaseCorrection(h, 1.002), qsInvalidParameterErr);
    // Nothing was stored: the default sweep still runs.
    const SweepTrace t = Sweep(h);
    EXPECT_EQ(t.status, qsNoError);
    EXPECT_TRUE(std::isfinite(t.bin) && std::isfinite(t.start) && !t.max.empty());
}

TEST_F(IdleDevice, TheExternalReferenceBitSetsTheRatioToOne) {
    ASSERT_EQ(qsSetTimebaseCorrection(h, 1.000002), qsNoError);
    double ratio = 0.0;
    ASSERT_EQ(qsGetTimebaseCorrection(h, &ratio), qsNoError);
    EXPECT_DOUBLE_EQ(ratio, 1.000002);
    ASSERT_EQ(qsConfigureIO(h, QS_PORT1_EXT_REF, 0), qsNoError);
    ASSERT_EQ(qsGetTimebaseCorrection(h, &ratio), qsNoError);
    EXPECT_DOUBLE_EQ(ratio, 1.0);
    ASSERT_EQ(qsConfigureIO(h, 0, 0), qsNoError);
    ASSERT_EQ(qsGetTimebaseCorrection(h, &ratio), qsNoError);
    EXPECT_DOUBLE_EQ(ratio, 1.000002);
}

TEST_F(IdleDevice, QueriesOfAModeThatDoesNotRunAreRefused) {
    float correction = 0.0f;
    EXPECT_EQ(qsGetIQCorrection(h, &correction), qsDeviceNotConfiguredErr);
    EXPECT_EQ(qsGetIQCorrection(h, nullptr), qsNullPtrErr);
    // The start-up sweep of the open has brought the monitor values in.
    float t = -1, v = -1, c = -1;
    EXPECT_EQ(qsGetDeviceDiagnostics(h, &t, &v, &c), qsNoError);
    EXPECT_GT(t, 0.0f);
    EXPECT_GT(v, 4.0f);
    EXPECT_GT(c, 0.0f);
    EXPECT_EQ(qsGetDeviceDiagnostics(h, nullptr, nullptr, nullptr), qsNoError);
    unsigned id = 0;
    EXPECT_EQ(qsGetFPGAid(h, &id), qsNoError);
    EXPECT_NE(id, 0u);
}

}  // namespace
