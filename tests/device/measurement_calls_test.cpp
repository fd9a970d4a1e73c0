// The measurement and service calls that work without a running mode.
#include <gtest/gtest.h>

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
    EXPECT_EQ(qsConfigureIO(h, 0x40, 0x02), qsNoError);
    ASSERT_EQ(qssim_command_count(sim), before + 1);
    unsigned char block[1024];
    ASSERT_EQ(qssim_get_command(sim, before, block), 0);
    EXPECT_EQ(block[0], 0x15);
    EXPECT_EQ(block[16], 0x42);
    for (int i = 17; i < 32; ++i) EXPECT_EQ(block[i], 0) << i;
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
