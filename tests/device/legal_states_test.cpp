// Which calls an idle device accepts: one row per call, through the public
// surface on the simulator. (Measurement states join as their modes do.)
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"
#include "sim_fixture.h"

namespace {

struct Row {
    const char* call;
    std::function<qsStatus(int)> run;
    qsStatus idle;   // -3 for a fetch or query of a mode that does not run
    qsStatus sweep;  // while a swept measurement is configured
};

std::vector<Row> Rows() {
    static float f[4096];
    static double d[4096];
    static int ints[64];
    static double value;
    static unsigned len;
    static int a, b;
    static short iq[64];
    return {
        {"qsConfigureCenterSpan", [](int h) { return qsConfigureCenterSpan(h, 1e9, 1e6); }, qsNoError, qsNoError},
        {"qsConfigureIO", [](int h) { return qsConfigureIO(h, 0, 0); }, qsNoError, qsDeviceNotIdleErr},
        {"qsConfigureDemod",
         [](int h) { return qsConfigureDemod(h, QS_DEMOD_AM, 1e8, 1e4f, 5e3f, 20.0f, 75.0f); },
         qsNoError, qsNoError},
        {"qsAbort", [](int h) { return qsAbort(h); }, qsDeviceNotConfiguredErr, qsNoError},
        {"qsFetchTrace", [](int h) { return qsFetchTrace(h, 0, d, d); }, qsDeviceNotConfiguredErr, qsNoError},
        {"qsFetchTrace_32f", [](int h) { return qsFetchTrace_32f(h, 0, f, f); },
         qsDeviceNotConfiguredErr, qsNoError},
        {"qsFetchRealTimeFrame", [](int h) { return qsFetchRealTimeFrame(h, f, f, nullptr, nullptr); },
         qsDeviceNotConfiguredErr, qsDeviceNotConfiguredErr},
        {"qsFetchAudio", [](int h) { return qsFetchAudio(h, f); }, qsDeviceNotConfiguredErr, qsDeviceNotConfiguredErr},
        {"qsFetchRaw", [](int h) { return qsFetchRaw(h, f, ints); }, qsDeviceNotConfiguredErr, qsDeviceNotConfiguredErr},
        {"qsGetIQ",
         [](int h) {
             qsIQPacket pkt{};
             pkt.iqData = iq;
             pkt.iqCount = 16;
             return qsGetIQ(h, &pkt);
         },
         qsDeviceNotConfiguredErr, qsDeviceNotConfiguredErr},
        {"qsGetIQUnpacked",
         [](int h) {
             return qsGetIQUnpacked(h, iq, 16, nullptr, 0, 0, &a, &b, nullptr, nullptr);
         },
         qsDeviceNotConfiguredErr, qsDeviceNotConfiguredErr},
        {"qsQueryTraceInfo", [](int h) { return qsQueryTraceInfo(h, &len, &value, &value); },
         qsDeviceNotConfiguredErr, qsNoError},
        {"qsQueryRealTimeInfo", [](int h) { return qsQueryRealTimeInfo(h, &a, &b); },
         qsDeviceNotConfiguredErr, qsDeviceNotConfiguredErr},
        {"qsQueryRealTimePoi", [](int h) { return qsQueryRealTimePoi(h, &value); },
         qsDeviceNotConfiguredErr, qsDeviceNotConfiguredErr},
        {"qsQueryStreamInfo", [](int h) { return qsQueryStreamInfo(h, &a, &value, &b); },
         qsDeviceNotConfiguredErr, qsDeviceNotConfiguredErr},
        {"qsGetIQCorrection", [](int h) { return qsGetIQCorrection(h, f); }, qsDeviceNotConfiguredErr, qsDeviceNotConfiguredErr},
        {"qsGetDeviceDiagnostics", [](int h) { return qsGetDeviceDiagnostics(h, f, f, f); },
         qsNoError, qsNoError},
    };
}

using LegalStates = OpenSimulatedDevice;

TEST_F(LegalStates, AnIdleDeviceAnswersEachCallAsTheTableSays) {
    for (const Row& row : Rows()) EXPECT_EQ(row.run(h), row.idle) << row.call;
}

// The buffers hold any trace of the sweep configured below.
TEST_F(LegalStates, ASweepingDeviceAnswersEachCallAsTheTableSays) {
    for (const Row& row : Rows()) {
        // Each row runs in a freshly configured sweep: qsAbort ends one.
        ASSERT_EQ(qsConfigureCenterSpan(h, 1e9, 10e6), qsNoError);
        ASSERT_EQ(qsConfigureSweepCoupling(h, 300e3, 300e3, 0.001, QS_RBW_SHAPE_NATIVE, 0), qsNoError);
        ASSERT_EQ(qsInitiate(h, QS_MODE_SWEEP, 0), qsNoError);
        EXPECT_EQ(row.run(h), row.sweep) << row.call;
    }
}

TEST_F(LegalStates, EveryCallChecksItsHandleFirst) {
    for (const Row& row : Rows()) {
        EXPECT_EQ(row.run(-1), qsDeviceNotOpenErr) << row.call;
        EXPECT_EQ(row.run(8), qsDeviceNotOpenErr) << row.call;
        EXPECT_EQ(row.run(h + 1), qsDeviceNotOpenErr) << row.call;
    }
}

TEST_F(LegalStates, NullPointersAreRefusedBeforeTheModeIsLookedAt) {
    qsIQPacket empty{};
    unsigned len = 0;
    double x = 0;
    int a = 0;
    EXPECT_EQ(qsFetchTrace(h, 0, nullptr, nullptr), qsNullPtrErr);
    EXPECT_EQ(qsFetchTrace_32f(h, 0, nullptr, nullptr), qsNullPtrErr);
    EXPECT_EQ(qsFetchAudio(h, nullptr), qsNullPtrErr);
    EXPECT_EQ(qsFetchRaw(h, nullptr, nullptr), qsNullPtrErr);
    EXPECT_EQ(qsGetIQ(h, nullptr), qsNullPtrErr);
    EXPECT_EQ(qsGetIQ(h, &empty), qsNullPtrErr);
    EXPECT_EQ(qsQueryTraceInfo(h, &len, &x, nullptr), qsNullPtrErr);
    EXPECT_EQ(qsQueryRealTimeInfo(h, &a, nullptr), qsNullPtrErr);
    EXPECT_EQ(qsQueryRealTimePoi(h, nullptr), qsNullPtrErr);
    // The stream query takes null for any output it is not asked for.
    EXPECT_EQ(qsQueryStreamInfo(h, nullptr, nullptr, nullptr), qsDeviceNotConfiguredErr);
}

}  // namespace
