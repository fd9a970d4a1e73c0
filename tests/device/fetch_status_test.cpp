// The common final status of a sweep fetch, driven by what the simulated
// device reports in its sample blocks, and the device's own reports
// (monitor values, flash) through the public calls.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"
#include "sim_fixture.h"

namespace {

class SweepFetch : public OpenSimulatedDevice {
protected:
    void SetUp() override {
        OpenSimulatedDevice::SetUp();
        ASSERT_EQ(qsConfigureCenterSpan(h, 1.0e9, 20e6), qsNoError);
        ASSERT_EQ(qsConfigureSweepCoupling(h, 100e3, 100e3, 0.001, QS_RBW_SHAPE_NATIVE, 0), qsNoError);
        ASSERT_EQ(qsInitiate(h, QS_MODE_SWEEP, 0), qsNoError);
        unsigned n = 0;
        double bin = 0, start = 0;
        ASSERT_EQ(qsQueryTraceInfo(h, &n, &bin, &start), qsNoError);
        min.resize(n);
        max.resize(n);
    }
    qsStatus Fetch() { return qsFetchTrace(h, static_cast<int>(min.size()), min.data(), max.data()); }

    std::vector<double> min, max;
};

// What the device reports after a clean sweep, and what the fetches after
// it return.
struct FaultCase {
    const char* name;
    void (*inject)(int sim);
    std::vector<qsStatus> fetches;
};

const FaultCase kFaults[] = {
    {"ConverterOverflowOnce", [](int sim) { qssim_step_adc_overflow(sim); }, {qsADCOverflow, qsNoError}},
    // The overrun outranks the overflow and clears it with it.
    {"OverrunMakesOneSweepUncalibrated",
     [](int sim) {
         qssim_step_gpif_overflow(sim);
         qssim_step_adc_overflow(sim);
     },
     {qsUncalSweep, qsNoError}},
    {"ChannelsOutOfStep", [](int sim) { qssim_slip_channel2(sim); }, {qsPacketFramingErr}},
    {"Unplugged", [](int sim) { qssim_remove_device(sim); }, {qsDeviceConnectionErr, qsDeviceConnectionErr}},
    {"StalledTransferTimesOut", [](int sim) { qssim_stall_transfer(sim, 0x82); }, {qsUSBTimeoutErr}},
};

class SweepFault : public SweepFetch, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(SweepFault, TheFetchReportsIt) {
    ASSERT_EQ(Fetch(), qsNoError);
    GetParam().inject(sim);
    for (qsStatus want : GetParam().fetches) EXPECT_EQ(Fetch(), want);
}

INSTANTIATE_TEST_SUITE_P(Device, SweepFault, ::testing::ValuesIn(kFaults),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(SweepFetch, MonitorValuesArriveWithTheBlocksAndTheMapleCurrentIsDoubled) {
    qssim_set_temperature(sim, 41.5);
    for (int i = 0; i < 8; ++i) ASSERT_EQ(Fetch(), qsNoError);
    float temperature = 0, volts = 0, current = 0;
    ASSERT_EQ(qsGetDeviceDiagnostics(h, &temperature, &volts, &current), qsNoError);
    EXPECT_NEAR(temperature, 41.5, 0.125);
    EXPECT_GT(volts, 4.0f);
    EXPECT_LT(volts, 5.5f);
    // The simulated Maple reports half its current on the wire, as the
    // instrument does; the library doubles it back.
    EXPECT_GT(current, 400.0f);
    unsigned id = 0;
    ASSERT_EQ(qsGetFPGAid(h, &id), qsNoError);
    EXPECT_NE(id, 0u);
}

using Flash = OpenSimulatedDevice;

TEST_F(Flash, AWrittenBlockReadsBackAndTheRestOfThePageIsUntouched) {
    // Page 40 is outside the calibration image; write block 256 * 40 + 3.
    std::vector<unsigned char> before(65536), after(65536), data(256);
    ASSERT_EQ(qsReadFlash(h, 40, before.data()), qsNoError);
    for (int i = 0; i < 256; ++i) data[i] = static_cast<unsigned char>(i ^ 0x5A);
    ASSERT_EQ(qsWriteFlash(h, 256 * 40 + 3, data.data()), qsNoError);
    ASSERT_EQ(qsReadFlash(h, 40, after.data()), qsNoError);
    for (int i = 0; i < 65536; ++i) {
        const bool written = i >= 3 * 256 && i < 4 * 256;
        ASSERT_EQ(after[i], written ? (before[i] & data[i - 3 * 256]) : before[i]) << i;
    }
}

TEST_F(Flash, AShortPageReadLeavesTheNextSweepClean) {
    std::vector<unsigned char> page(65536);
    qssim_short_flash_page(sim, 1000);
    ASSERT_EQ(qsReadFlash(h, 40, page.data()), qsNoError);  // the call itself succeeds
    // A sweep after it starts clean: the status belongs to the read.
    ASSERT_EQ(qsConfigureCenterSpan(h, 1.0e9, 20e6), qsNoError);
    EXPECT_EQ(Sweep(h).status, qsNoError);
}

}  // namespace

// A tone far over the reference clips the converter: the sweep it spoils
// says so itself, wherever in the sweep the clipping happens, and the next
// sweep measured without it is clean again.
class Overload : public ::testing::TestWithParam<int> {};

TEST_P(Overload, TheSpoiltSweepReportsItsOwnOverflow) {
    qssim_reset();
    const int sim = qssim_add_device(GetParam(), 72000000u + unsigned(GetParam()));
    int h = -1;
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&h, 72000000 + GetParam()), qsNoError);
    ASSERT_EQ(qsConfigureLevel(h, -50.0, QS_ATTEN_AUTO), qsNoError);
    ASSERT_EQ(qsConfigureSweepCoupling(h, 100e3, 100e3, 0.001, QS_RBW_SHAPE_NATIVE, 0), qsNoError);
    std::vector<float> min(1 << 16), max(1 << 16);
    for (double tone : {1.01e9, 1.1e9, 1.19e9}) {  // first, middle and last steps
        SCOPED_TRACE(tone);
        ASSERT_EQ(qsConfigureCenterSpan(h, 1.1e9, 200e6), qsNoError);
        qssim_clear_signals(sim);
        qssim_set_tone(sim, tone, 10.0);
        ASSERT_EQ(qsInitiate(h, QS_MODE_SWEEP, 0), qsNoError);
        EXPECT_EQ(qsFetchTrace_32f(h, 1 << 16, min.data(), max.data()), qsADCOverflow);
        // The next sweep was commanded by that fetch and may have met the
        // tone; the one after it is measured without.
        qssim_clear_signals(sim);
        qsFetchTrace_32f(h, 1 << 16, min.data(), max.data());
        EXPECT_EQ(qsFetchTrace_32f(h, 1 << 16, min.data(), max.data()), qsNoError);
    }
    qsCloseDevice(h);
    qssim_reset();
}

INSTANTIATE_TEST_SUITE_P(EveryModel, Overload,
                         ::testing::Values(QSSIM_PID_MAPLE_REV1, QSSIM_PID_MAPLE_REV2, QSSIM_PID_LARCH));

// Every mode's fetch, after whatever ends the device's run, returns with a
// status instead of waiting for blocks that cannot come.
struct EndCase {
    const char* name;
    int mode;
    qsStatus (*configure)(int h);
};

qsStatus Fetch(int h, int mode) {
    static std::vector<float> a(1 << 20), b(1 << 20), c(1 << 20), d(1 << 20);
    static std::vector<int> triggers(64);
    switch (mode) {
    case QS_MODE_REAL_TIME:
        return qsFetchRealTimeFrame(h, a.data(), b.data(), c.data(), d.data());
    case QS_MODE_STREAMING: {
        qsIQPacket p{};
        p.iqData = a.data();
        p.iqCount = 4096;
        p.triggers = triggers.data();
        p.triggerCount = 64;
        return qsGetIQ(h, &p);
    }
    case QS_MODE_AUDIO:
        return qsFetchAudio(h, a.data());
    default:
        return qsFetchTrace_32f(h, 1 << 20, a.data(), b.data());
    }
}

const EndCase kEndCases[] = {
    {"Sweep", QS_MODE_SWEEP, [](int h) { return qsConfigureCenterSpan(h, 1e9, 40e6); }},
    {"TgSweep", QS_MODE_TG_SWEEP,
     [](int h) {
         qsConfigureCenterSpan(h, 1e9, 20e6);
         return qsConfigTgSweep(h, 100, false, true);
     }},
    {"RealTime", QS_MODE_REAL_TIME, [](int h) { return qsConfigureCenterSpan(h, 1e9, 20e6); }},
    {"IQ", QS_MODE_STREAMING,
     [](int h) {
         qsConfigureIQCenter(h, 1e9);
         return qsConfigureIQ(h, 8, 1e6);
     }},
    {"Audio", QS_MODE_AUDIO, [](int h) { return qsConfigureDemod(h, 1, 1e8, 100e3, 8e3, 20, 75e-6); }},
};

class EveryMode : public OpenSimulatedDevice, public ::testing::WithParamInterface<EndCase> {};

TEST_P(EveryMode, UnpluggedTheFetchEndsWithAConnectionError) {
    ASSERT_EQ(GetParam().configure(h), qsNoError);
    ASSERT_EQ(qsInitiate(h, GetParam().mode, 0), qsNoError);
    qssim_remove_device(sim);
    EXPECT_EQ(Fetch(h, GetParam().mode), qsDeviceConnectionErr);
}

TEST_P(EveryMode, APresetEndsTheMeasurementAndTheFlashWaitsForIdle) {
    ASSERT_EQ(GetParam().configure(h), qsNoError);
    ASSERT_EQ(qsInitiate(h, GetParam().mode, 0), qsNoError);
    std::vector<unsigned char> page(65536);
    EXPECT_EQ(qsReadFlash(h, 40, page.data()), qsDeviceNotIdleErr);
    EXPECT_EQ(qsWriteFlash(h, 256 * 40, page.data()), qsDeviceNotIdleErr);
    ASSERT_EQ(qsPreset(h), qsNoError);
    EXPECT_EQ(Fetch(h, GetParam().mode), qsDeviceNotConfiguredErr);
    EXPECT_EQ(qsReadFlash(h, 40, page.data()), qsNoError);
}

INSTANTIATE_TEST_SUITE_P(Fetch, EveryMode, ::testing::ValuesIn(kEndCases),
                         [](const auto& info) { return std::string(info.param.name); });
