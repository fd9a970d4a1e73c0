// The public configuration calls on open simulated devices: handle checks,
// the order of the sweep-coupling tests, what each call stores, and that
// configuring touches neither the hardware nor the active settings.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <functional>
#include <thread>

#include "api/device_table.h"
#include "device/device.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "settings_fields.h"

using namespace qs;

namespace {

constexpr unsigned kMapleSerial = 12345678;
constexpr unsigned kLarchSerial = 10000001;

double Below(double v) { return std::nextafter(v, -INFINITY); }
double Above(double v) { return std::nextafter(v, INFINITY); }

// One Maple and one Larch, opened once: opens run the start-up sequences.
class Configure : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        qssim_reset();
        mapleId = qssim_add_device(QSSIM_PID_MAPLE_REV2, kMapleSerial);
        qssim_add_device(QSSIM_PID_LARCH, kLarchSerial);
        ASSERT_EQ(qsOpenDeviceBySerialNumber(&maple, kMapleSerial), qsNoError);
        ASSERT_EQ(qsOpenDeviceBySerialNumber(&larch, kLarchSerial), qsNoError);
    }
    static void TearDownTestSuite() {
        qsCloseDevice(maple);
        qsCloseDevice(larch);
        qssim_reset();
    }
    // Every test starts from freshly defaulted staging objects.
    void SetUp() override {
        *api::settings[maple] = SettingsMaple();
        *api::settings[larch] = SettingsLarch();
    }

    static Settings& Staged(int h) { return *api::settings[h]; }

    // Runs call on the Maple and expects it refused with want and the
    // staging object untouched.
    static void ExpectRefused(qsStatus want, const std::function<qsStatus()>& call) {
        const SettingsMaple before(static_cast<SettingsMaple&>(Staged(maple)));
        EXPECT_EQ(call(), want);
        EXPECT_EQ(DiffFields(before, Staged(maple)), std::vector<std::string>{});
    }

    // The number of commands the Maple has received, once it has held
    // still for 100 ms: the transport's mailbox hands a queued command on
    // within a few milliseconds. -1 if it never settles.
    static int SettledCommandCount() {
        int count = qssim_command_count(mapleId);
        for (int quiet = 0, waited = 0; quiet < 100; ++waited) {
            if (waited > 2000) return -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            const int now = qssim_command_count(mapleId);
            quiet = now == count ? quiet + 1 : 0;
            count = now;
        }
        return count;
    }

    static inline int maple = -1, larch = -1, mapleId = -1;
};

TEST_F(Configure, EveryCallChecksTheHandleFirst) {
    // Slot 7 is empty; 8 and -1 are outside the table. Arguments are bad too.
    for (int h : {-1, 8, 7}) {
        EXPECT_EQ(qsConfigureAcquisition(h, 9, 9), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureCenterSpan(h, 0.0, 0.0), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureIQCenter(h, 0.0), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureLevel(h, 99.0, 99.0), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureGain(h, 9), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureSweepCoupling(h, 0.0, 0.0, 0.0, 9, 9), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureWindow(h, 9), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureProcUnits(h, 9), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureIQ(h, 3, 0.0), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureIQDataType(h, static_cast<qsDataType>(9)), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureRealTime(h, 0.0, 0), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureRealTimeOverlap(h, 0.0), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigureDemod(h, 4, 1e6, 1e3f, 1e3f, 1e3f, 1e3f), qsDeviceNotOpenErr);
        EXPECT_EQ(qsConfigTgSweep(h, 0, true, true), qsDeviceNotOpenErr);
    }
}

TEST_F(Configure, SweepCouplingLimitsAndTestOrder) {
    EXPECT_EQ(qsConfigureSweepCoupling(maple, QS_MIN_RBW, QS_MIN_RBW, 0.001, 0, 0), qsNoError);
    EXPECT_EQ(Staged(maple).RBW(), 0.602006912);
    EXPECT_EQ(qsConfigureSweepCoupling(maple, QS_MAX_RBW, QS_MAX_RBW, 0.001, 0, 0), qsNoError);
    ExpectRefused(qsBandwidthErr, [] { return qsConfigureSweepCoupling(maple, 0.6, 1e3, 0.001, 0, 0); });
    ExpectRefused(qsBandwidthErr, [] { return qsConfigureSweepCoupling(maple, Below(QS_MIN_RBW), 1e3, 0.001, 0, 0); });
    ExpectRefused(qsBandwidthErr, [] { return qsConfigureSweepCoupling(maple, Above(QS_MAX_RBW), 1e3, 0.001, 0, 0); });
    ExpectRefused(qsBandwidthErr, [] { return qsConfigureSweepCoupling(maple, 1e3, Below(QS_MIN_RBW), 0.001, 0, 0); });
    // Bandwidth before rejection before shape.
    ExpectRefused(qsBandwidthErr, [] { return qsConfigureSweepCoupling(maple, 0.0, 0.0, 0.001, 3, 2); });
    ExpectRefused(qsInvalidParameterErr, [] { return qsConfigureSweepCoupling(maple, 1e3, 1e3, 0.001, 3, 2); });
    ExpectRefused(qsInvalidBandwidthTypeErr, [] { return qsConfigureSweepCoupling(maple, 1e3, 1e3, 0.001, 3, 1); });

    // No upper VBW limit on a Larch; sweep time clamps without a warning.
    EXPECT_EQ(qsConfigureSweepCoupling(larch, 1e3, 1e12, 0.0, 2, 1), qsNoError);
    EXPECT_EQ(Staged(larch).VBW(), 1e12);
    EXPECT_EQ(Staged(larch).SweepTime(), 1e-5);
    EXPECT_EQ(qsConfigureSweepCoupling(larch, 1e3, 1e3, 5.0, 0, 0), qsNoError);
    EXPECT_EQ(Staged(larch).SweepTime(), 1.0);
    // The Maple's own VBW clamp comes through as a warning.
    EXPECT_EQ(qsConfigureSweepCoupling(maple, 1e3, 2e3, Above(1.0), 1, 0), qsAdjustedParameter);
    EXPECT_EQ(Staged(maple).VBW(), 1e3);
    EXPECT_EQ(Staged(maple).SweepTime(), 1.0);
}

TEST_F(Configure, EachSlotValidatesByItsModel) {
    ExpectRefused(qsFrequencyRangeErr, [] { return qsConfigureIQCenter(maple, 9000.0); });
    EXPECT_EQ(qsConfigureIQCenter(maple, 9010.0), qsNoError);
    EXPECT_EQ(Staged(maple).Span(), 20.0);
    EXPECT_EQ(Staged(maple).Start(), 9000.0);

    EXPECT_EQ(qsConfigureLevel(larch, 51.0, 0.0), qsReferenceLevelErr);
    EXPECT_EQ(Staged(larch).Ref(), 0.0);
    EXPECT_EQ(qsConfigureLevel(maple, 51.0, 0.0), qsAdjustedParameter);
    EXPECT_EQ(Staged(maple).Ref(), 50.0);
    EXPECT_EQ(qsConfigureIQ(larch, 1, 2.5e7), qsClampedToUpperLimit);
    EXPECT_EQ(Staged(larch).iqFirstPassBandwidth, 2e7);
    EXPECT_EQ(qsConfigureIQ(maple, 1, 2.5e7), qsNoError);
    EXPECT_EQ(qsConfigureRealTime(maple, 5.0, 40), qsAdjustedParameter);
    EXPECT_EQ(Staged(maple).RealTimeFrameScale(), 10.0);
    EXPECT_EQ(qsConfigureRealTimeOverlap(maple, 11.0), qsAdjustedParameter);
    EXPECT_EQ(Staged(maple).RealTimeAdvanceRate(), 10.0);
}

TEST_F(Configure, SmallCallsStoreOrRefuse) {
    EXPECT_EQ(qsConfigureIQDataType(maple, qsDataType16sc), qsNoError);
    EXPECT_EQ(Staged(maple).iqDataType, qsDataType16sc);
    ExpectRefused(qsInvalidParameterErr, [] { return qsConfigureIQDataType(maple, static_cast<qsDataType>(2)); });
    ExpectRefused(qsInvalidParameterErr, [] { return qsConfigureIQDataType(maple, static_cast<qsDataType>(-1)); });
    ExpectRefused(qsInvalidDetectorErr, [] { return qsConfigureAcquisition(maple, 2, 4); });

    // The size is clamped silently; the high-range pass needs a passive DUT.
    EXPECT_EQ(qsConfigTgSweep(maple, 9, true, true), qsNoError);
    EXPECT_EQ(Staged(maple).m_tgSweepSize, 10);
    EXPECT_TRUE(Staged(maple).m_tgHighDynamicRange);
    EXPECT_EQ(qsConfigTgSweep(maple, 1025, true, false), qsNoError);
    EXPECT_EQ(Staged(maple).m_tgSweepSize, 1024);
    EXPECT_FALSE(Staged(maple).m_tgHighDynamicRange);
    EXPECT_FALSE(Staged(maple).m_tgPassiveDevice);
}

TEST_F(Configure, ConfiguringSendsNothingAndLeavesTheActiveCopy) {
    const Settings& active = *api::Lookup(maple)->GetSettings();
    const SettingsMaple activeBefore(static_cast<const SettingsMaple&>(active));
    const int commandsBefore = SettledCommandCount();
    ASSERT_GE(commandsBefore, 0);

    EXPECT_EQ(qsConfigureAcquisition(maple, 1, 2), qsNoError);
    EXPECT_EQ(qsConfigureCenterSpan(maple, 1e9, 1e6), qsNoError);
    EXPECT_EQ(qsConfigureLevel(maple, -20.0, 10.0), qsNoError);
    EXPECT_EQ(qsConfigureGain(maple, 2), qsNoError);
    EXPECT_EQ(qsConfigureSweepCoupling(maple, 1e3, 1e3, 0.1, 2, 1), qsNoError);
    EXPECT_EQ(qsConfigureWindow(maple, 3), qsNoError);
    EXPECT_EQ(qsConfigureProcUnits(maple, 0), qsNoError);
    EXPECT_EQ(qsConfigureIQ(maple, 512, 20000.0), qsNoError);
    EXPECT_EQ(qsConfigureIQDataType(maple, qsDataType16sc), qsNoError);
    EXPECT_EQ(qsConfigureRealTime(maple, 50.0, 10), qsNoError);
    EXPECT_EQ(qsConfigureRealTimeOverlap(maple, 2.0), qsNoError);
    EXPECT_EQ(qsConfigureDemod(maple, QS_DEMOD_AM, 1e8, 1e4f, 5e3f, 50.0f, 0.0f), qsNoError);
    EXPECT_EQ(qsConfigTgSweep(maple, 100, false, true), qsNoError);

    EXPECT_EQ(DiffFields(activeBefore, active), std::vector<std::string>{});
    // ...while the staging object took all of it.
    EXPECT_EQ(Staged(maple).Center(), 1e9);
    EXPECT_EQ(Staged(maple).m_tgSweepSize, 100);

    EXPECT_EQ(SettledCommandCount(), commandsBefore);
    // The count does see traffic: a preset is one command.
    ASSERT_EQ(qsPreset(maple), qsNoError);
    EXPECT_EQ(SettledCommandCount(), commandsBefore + 1);
}

}  // namespace
