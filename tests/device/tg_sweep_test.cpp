// Tracking-generator sweeps on a simulated Maple with no generator attached:
// the plan, the commands on the wire, the trace, the through-calibration
// states and the calls that the mode accepts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

#include "api/device_table.h"
#include "device/device.h"
#include "device/lo_tables_larch.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "settings/settings.h"
#include "sim_calibration.h"
#include "sim_fixture.h"
#include "transport/wire_formats.h"

namespace {

class TgSweep : public OpenSimulatedDevice {
protected:
    using OpenSimulatedDevice::OpenSimulatedDevice;
    qs::Device& Dev() const { return *qs::api::devices[h]; }
    const qs::SweepInfo& Plan() const { return Dev().GetSweepInfo(); }

    // Starts a generator sweep of startHz to startHz + spanHz.
    qsStatus Start(double startHz, double spanHz, int points, bool highRange = false, bool passive = true) {
        EXPECT_EQ(qsConfigureCenterSpan(h, startHz + spanHz / 2, spanHz), qsNoError);
        EXPECT_EQ(qsConfigTgSweep(h, points, highRange, passive), qsNoError);
        return qsInitiate(h, QS_MODE_TG_SWEEP, 0);
    }

    // The command blocks of generator sweeps that the device received from
    // block `from` on.
    std::vector<qs::DeviceCommand> TgCommands(int from) const {
        std::vector<qs::DeviceCommand> out;
        for (int i = from; i < qssim_command_count(sim); ++i) {
            qs::DeviceCommand c;
            qssim_get_command(sim, i, reinterpret_cast<unsigned char*>(&c));
            if (c.headerType == qs::QS_CMD_CONFIGURE && c.commandType == qs::QS_CFG_TG_SWEEP) out.push_back(c);
        }
        return out;
    }

    std::vector<double> Fetch() {
        unsigned n = 0;
        double bin = 0, start = 0;
        EXPECT_EQ(qsQueryTraceInfo(h, &n, &bin, &start), qsNoError);
        std::vector<double> min(n, 1e9), max(n, 1e9);
        EXPECT_EQ(qsFetchTrace(h, 0, min.data(), max.data()), qsNoError);
        EXPECT_EQ(min, max);
        return max;
    }
};

TEST_F(TgSweep, AFetchSendsOneCommandPerPassAndReadsTheLevel) {
    // With no generator the analyser sees its scene: one tone in the patch
    // that, before any through measurement, every point finds (the search
    // covers the whole patch) and reads against the nominal -30 dBm.
    qssim_set_tone(sim, 1.0005e9, -50.0);
    for (bool highRange : {false, true}) {
        SCOPED_TRACE(highRange);
        ASSERT_EQ(Start(1e9, 2e6, 250, highRange), qsNoError);
        const int before = qssim_command_count(sim);
        const std::vector<double> trace = Fetch();
        ASSERT_EQ(trace.size(), 201u);
        const std::vector<qs::DeviceCommand> sent = TgCommands(before);
        ASSERT_EQ(sent.size(), highRange ? 2u : 1u);
        for (const qs::DeviceCommand& c : sent) {
            EXPECT_EQ(c.TGCountPerPatch, 2000);
            EXPECT_EQ(c.TGstartingIndex, 1792);
            EXPECT_EQ(c.subBandCount, 1);
            EXPECT_EQ(c.subBandArray[0].packetsPerFreq, Plan().ppf);
        }
        EXPECT_EQ(sent[0].subBandArray[0].settings[3] & 0x1F, 20);
        if (highRange) {
            EXPECT_EQ(sent[1].subBandArray[0].settings[3] & 0x1F, 1);
            // The rest of the second block is the first one's.
            EXPECT_EQ(sent[1].subBandArray[0].settings[3] & ~0x1F, sent[0].subBandArray[0].settings[3] & ~0x1F);
            EXPECT_EQ(std::memcmp(sent[0].roughCorrArray, sent[1].roughCorrArray, sizeof sent[0].roughCorrArray), 0);
        }
        // -50 dBm against the nominal -30 dBm through level; the high-range
        // pass does not take over above the crossover.
        for (double v : trace) EXPECT_NEAR(v, -20.0, 3.0);
    }
}

TEST_F(TgSweep, WithoutAToneTheTraceSitsNearTheNoiseFloor) {
    ASSERT_EQ(Start(1e9, 2e6, 250), qsNoError);
    const std::vector<double> trace = Fetch();
    ASSERT_EQ(trace.size(), 201u);
    const auto [lo, hi] = std::minmax_element(trace.begin(), trace.end());
    EXPECT_LT(*hi, -50.0);
    EXPECT_GT(*lo, -130.0);
}

TEST_F(TgSweep, AThroughMeasurementBecomesTheReference) {
    qssim_set_tone(sim, 1.0005e9, -50.0);
    ASSERT_EQ(Start(1e9, 2e6, 250), qsNoError);
    // Flag 2 needs a stored 0 dB through first.
    EXPECT_EQ(qsStoreTgThru(h, QS_TG_THRU_20DB), qsInvalidParameterErr);
    EXPECT_EQ(qsStoreTgThru(h, 0), qsInvalidParameterErr);
    ASSERT_EQ(qsStoreTgThru(h, QS_TG_THRU_0DB), qsNoError);
    EXPECT_EQ(qsStoreTgThru(h, QS_TG_THRU_20DB), qsInvalidParameterErr);
    EXPECT_EQ(Dev().GetTgCalState(), qs::tg0dBRequested);
    // The fetch that measures the through still reads against the old one.
    for (double v : Fetch()) EXPECT_NEAR(v, -20.0, 3.0);
    EXPECT_EQ(Dev().GetTgCalState(), qs::tg0dBStored);
    for (double v : Fetch()) EXPECT_NEAR(v, 0.0, 0.5);
    EXPECT_EQ(qsStoreTgThru(h, QS_TG_THRU_20DB), qsNoError);
    // A new set-up forgets the through.
    ASSERT_EQ(Start(1e9, 2e6, 250), qsNoError);
    EXPECT_EQ(Dev().GetTgCalState(), qs::tgNoThruStored);
}

TEST_F(TgSweep, TheGeneratorCallsWithoutAGenerator) {
    bool attached = true;
    EXPECT_EQ(qsAttachTg(h), qsDeviceConnectionErr);
    EXPECT_EQ(qsIsTgAttached(h, &attached), qsNoError);
    EXPECT_FALSE(attached);
    EXPECT_EQ(qsIsTgAttached(h, nullptr), qsNullPtrErr);
    double f = 1, a = 1;
    EXPECT_EQ(qsSetTg(h, 1e9, -20.0), qsTrackingGeneratorNotFound);
    EXPECT_EQ(qsGetTgFreqAmpl(h, &f, &a), qsTrackingGeneratorNotFound);
    EXPECT_EQ(qsSetTgReference(h, 0), qsTrackingGeneratorNotFound);
    EXPECT_EQ(qsStoreTgThru(h, QS_TG_THRU_0DB), qsDeviceNotConfiguredErr);
    for (auto call : {qsAttachTg, +[](int d) { return qsStoreTgThru(d, 1); },
                      +[](int d) { return qsSetTg(d, 1e9, -20.0); }})
        EXPECT_EQ(call(-1), qsDeviceNotOpenErr);

    // In the mode the sweep owns the generator; the reference call still
    // reports the missing generator first.
    ASSERT_EQ(Start(1e9, 2e6, 250), qsNoError);
    EXPECT_EQ(qsSetTg(h, 1e9, -20.0), qsDeviceNotConfiguredErr);
    EXPECT_EQ(qsGetTgFreqAmpl(h, &f, &a), qsDeviceNotConfiguredErr);
    EXPECT_EQ(qsSetTgReference(h, 0), qsTrackingGeneratorNotFound);
    EXPECT_EQ(f, 1.0);
    EXPECT_EQ(qsAttachTg(h), qsDeviceConnectionErr);
}

TEST_F(TgSweep, OldFirmwareRefusesTheMode) {
    qsCloseDevice(h);
    const unsigned char version4[2] = {4, 0};
    ASSERT_EQ(qssim_flash_write(sim, qssim::kImageFlashOffset + qssim::maple_image::kFirmwareVersion, version4, 2), 0);
    ASSERT_GE(qsOpenDeviceBySerialNumber(&h, 12345678), 0);
    int version = 0;
    ASSERT_EQ(qsGetFirmwareVersion(h, &version), qsNoError);
    ASSERT_EQ(version, 4);
    EXPECT_EQ(Start(1e9, 2e6, 250), qsNotSupportedErr);
    double d[8];
    EXPECT_EQ(qsFetchTrace(h, 0, d, d), qsDeviceNotConfiguredErr);
}

// 101 points of 1 MHz, 20 to a patch: the first 4 in a patch centred
// 13.6 MHz below the next, whose 20 points hold the tone, the rest further
// up. The device's block count, the simulator's LO steps and the engine's
// points have to agree for the tone to show exactly there. The Larch sends
// 30 dB for its primary pass and 10 dB for the secondary, and its own LO
// words.
class TgPatches : public TgSweep, public ::testing::WithParamInterface<int> {
protected:
    TgPatches() : TgSweep(GetParam(), 10000041) {}
};

TEST_P(TgPatches, EachPointIsMeasuredInItsOwnPatchInEveryKindOfRow) {
    const bool larch = GetParam() == QSSIM_PID_LARCH;
    const struct {
        bool larch;
        double start, tone, lo1Unit;
    } cases[] = {
        {false, 1e9, 1.015e9, 0},
        {true, 1e9, 1.015e9, 100e3},    // row 0
        {true, 4.0e9, 4.015e9, 200e3},  // row 3: LO1 words in 200 kHz
    };
    for (const auto& c : cases) {
        if (c.larch != larch) continue;
        SCOPED_TRACE(c.start);
        qssim_clear_signals(sim);
        qssim_set_tone(sim, c.tone, -50.0);
        ASSERT_EQ(Start(c.start, 1e8, 100, larch), qsNoError);
        ASSERT_EQ(Plan().stepCount, 6);
        ASSERT_EQ(Plan().tgInitialCount, 16);
        ASSERT_EQ(Plan().patchInfo[1].center_freq, c.start + 13.6e6);
        const int before = qssim_command_count(sim);
        const std::vector<double> trace = Fetch();
        ASSERT_EQ(trace.size(), 101u);
        for (size_t i = 0; i < trace.size(); ++i) {
            if (i >= 4 && i < 24)
                EXPECT_NEAR(trace[i], -20.0, 3.0) << i;
            else
                EXPECT_LT(trace[i], -50.0) << i;
        }
        if (!larch) continue;  // the Maple's commands: AFetchSendsOneCommandPerPassAndReadsTheLevel
        const std::vector<qs::DeviceCommand> sent = TgCommands(before);
        ASSERT_EQ(sent.size(), 2u);
        const qs::subBand_t& pri = sent[0].subBandArray[0];
        EXPECT_EQ(pri.settings[3] & 0x3F, 60);
        EXPECT_EQ(sent[1].subBandArray[0].settings[3] & 0x3F, 20);
        EXPECT_EQ(sent[1].subBandArray[0].settings[3] & ~0x3F, pri.settings[3] & ~0x3F);
        const qs::LOLUTLarch& lut = qs::lolutLarch[qs::get_software_band_Larch(Plan().initialCenter)];
        EXPECT_EQ(pri.LO1startFreq, std::lround((Plan().initialCenter + lut.lo1c) / c.lo1Unit));
        EXPECT_EQ(pri.LO1stepFreq, std::lround(20e6 / c.lo1Unit));
    }
}

INSTANTIATE_TEST_SUITE_P(BothModels, TgPatches, ::testing::Values(QSSIM_PID_MAPLE_REV2, QSSIM_PID_LARCH),
                         ModelName);

}  // namespace
