// Which calls a device accepts in each of its states: one row per call, one
// column per state, run cell by cell through the public surface on the
// simulator. Each cell starts from a freshly entered state, since some
// calls (qsAbort, qsInitiate) leave it.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"
#include "sim_fixture.h"

namespace {

enum State { IDLE, SWEEP, TG_SWEEP, REAL_TIME, STREAMING, AUDIO, STATES };
const char* const kStateNames[STATES] = {"idle", "sweep", "TG sweep", "real-time", "streaming", "audio"};

// Puts an open device into a state with settings every mode accepts.
qsStatus Enter(int h, State state) {
    qsAbort(h);
    switch (state) {
        case IDLE:
            return qsNoError;
        case SWEEP:
            qsConfigureCenterSpan(h, 1e9, 10e6);
            qsConfigureSweepCoupling(h, 300e3, 300e3, 0.001, QS_RBW_SHAPE_NATIVE, 0);
            return qsInitiate(h, QS_MODE_SWEEP, 0);
        case TG_SWEEP:
            qsConfigureCenterSpan(h, 1e9, 2e6);
            qsConfigTgSweep(h, 100, false, false);
            return qsInitiate(h, QS_MODE_TG_SWEEP, 0);
        case REAL_TIME:
            qsConfigureCenterSpan(h, 1e9, 20e6);
            qsConfigureSweepCoupling(h, 30e3, 30e3, 0.001, QS_RBW_SHAPE_NATIVE, 0);
            return qsInitiate(h, QS_MODE_REAL_TIME, 0);
        case STREAMING:
            qsConfigureIQCenter(h, 1e9);
            qsConfigureIQ(h, 4, 5e6);
            return qsInitiate(h, QS_MODE_STREAMING, 0);
        case AUDIO:
            qsConfigureDemod(h, QS_DEMOD_FM, 1e8, 120e3f, 8e3f, 20.0f, 75.0f);
            return qsInitiate(h, QS_MODE_AUDIO, 0);
        default:
            return qsInvalidModeErr;
    }
}

constexpr qsStatus Y = qsNoError;
constexpr qsStatus NC = qsDeviceNotConfiguredErr;
constexpr qsStatus NI = qsDeviceNotIdleErr;

struct Row {
    const char* call;
    std::function<qsStatus(int)> run;
    qsStatus expected[STATES];
};

std::vector<Row> Rows() {
    // Large enough for any trace, frame or block of the states above.
    static std::vector<float> f(1 << 20);
    static std::vector<double> d(1 << 20);
    static int ints[64];
    static double value;
    static unsigned len;
    static int a, b;
    static std::vector<short> iq(1 << 16);
    return {
        // Configuration is staged in every state.
        {"qsConfigureCenterSpan", [](int h) { return qsConfigureCenterSpan(h, 1e9, 1e6); }, {Y, Y, Y, Y, Y, Y}},
        {"qsConfigureIO", [](int h) { return qsConfigureIO(h, 0, 0); }, {Y, NI, NI, NI, NI, NI}},
        {"qsConfigureDemod",
         [](int h) { return qsConfigureDemod(h, QS_DEMOD_AM, 1e8, 1e4f, 5e3f, 20.0f, 75.0f); },
         {Y, Y, Y, Y, Y, Y}},
        {"qsInitiate",
         [](int h) {
             // A span a sweep takes whatever the state staged before.
             qsConfigureCenterSpan(h, 1e9, 10e6);
             return qsInitiate(h, QS_MODE_SWEEP, 0);
         },
         {Y, Y, Y, Y, Y, Y}},
        {"qsAbort", [](int h) { return qsAbort(h); }, {NC, Y, Y, Y, Y, Y}},
        {"qsFetchTrace", [](int h) { return qsFetchTrace(h, 0, d.data(), d.data()); }, {NC, Y, Y, NC, NC, NC}},
        {"qsFetchTrace_32f", [](int h) { return qsFetchTrace_32f(h, 0, f.data(), f.data()); },
         {NC, Y, Y, NC, NC, NC}},
        {"qsFetchRealTimeFrame",
         [](int h) { return qsFetchRealTimeFrame(h, f.data(), f.data(), nullptr, nullptr); },
         {NC, NC, NC, Y, NC, NC}},
        {"qsFetchAudio", [](int h) { return qsFetchAudio(h, f.data()); }, {NC, NC, NC, NC, NC, Y}},
        {"qsFetchRaw", [](int h) { return qsFetchRaw(h, f.data(), ints); }, {NC, NC, NC, NC, Y, NC}},
        {"qsGetIQ",
         [](int h) {
             qsIQPacket pkt{};
             pkt.iqData = iq.data();
             pkt.iqCount = 16;
             return qsGetIQ(h, &pkt);
         },
         {NC, NC, NC, NC, Y, NC}},
        {"qsGetIQUnpacked",
         [](int h) { return qsGetIQUnpacked(h, iq.data(), 16, nullptr, 0, 0, &a, &b, nullptr, nullptr); },
         {NC, NC, NC, NC, Y, NC}},
        {"qsQueryTraceInfo", [](int h) { return qsQueryTraceInfo(h, &len, &value, &value); },
         {NC, Y, Y, Y, NC, NC}},
        {"qsQueryRealTimeInfo", [](int h) { return qsQueryRealTimeInfo(h, &a, &b); }, {NC, NC, NC, Y, NC, NC}},
        {"qsQueryRealTimePoi", [](int h) { return qsQueryRealTimePoi(h, &value); }, {NC, NC, NC, Y, NC, NC}},
        {"qsQueryStreamInfo", [](int h) { return qsQueryStreamInfo(h, &a, &value, &b); },
         {NC, NC, NC, NC, Y, NC}},
        {"qsGetIQCorrection", [](int h) { return qsGetIQCorrection(h, f.data()); }, {NC, NC, NC, NC, Y, NC}},
        {"qsGetDeviceDiagnostics", [](int h) { return qsGetDeviceDiagnostics(h, f.data(), f.data(), f.data()); },
         {Y, Y, Y, Y, Y, Y}},
    };
}

class LegalStates : public OpenSimulatedDevice, public ::testing::WithParamInterface<int> {};

TEST_P(LegalStates, EachCallAnswersAsTheTableSays) {
    const State state = static_cast<State>(GetParam());
    for (const Row& row : Rows()) {
        ASSERT_EQ(Enter(h, state), qsNoError) << kStateNames[state];
        const qsStatus got = row.run(h);
        // Data that a slow build lost (a gap in audio, a frame short of
        // blocks) is a legal answer too.
        const bool lost = got == qsDataBreak || got == qsUncalSweep;
        EXPECT_EQ(lost ? qsNoError : got, row.expected[state])
            << row.call << " in state " << kStateNames[state];
    }
    qsAbort(h);
}

INSTANTIATE_TEST_SUITE_P(EveryState, LegalStates, ::testing::Range(0, static_cast<int>(STATES)),
                         [](const ::testing::TestParamInfo<int>& info) {
                             std::string name = kStateNames[info.param];
                             for (char& c : name)
                                 if (c == ' ' || c == '-') c = '_';
                             return name;
                         });

using HandlesAndPointers = OpenSimulatedDevice;

TEST_F(HandlesAndPointers, EveryCallChecksItsHandleFirst) {
    for (const Row& row : Rows()) {
        EXPECT_EQ(row.run(-1), qsDeviceNotOpenErr) << row.call;
        EXPECT_EQ(row.run(8), qsDeviceNotOpenErr) << row.call;
        EXPECT_EQ(row.run(h + 1), qsDeviceNotOpenErr) << row.call;
    }
}

TEST_F(HandlesAndPointers, NullPointersAreRefusedBeforeTheModeIsLookedAt) {
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
