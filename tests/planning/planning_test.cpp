// Planning without a device: settings through the pure planning functions
// to a plan and a command, checked against what the receiver needs (the
// oscillator words put each step's slice where its patch says, the steps
// cover the trace, the counts add up), not against the arithmetic again.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <string>

#include "device/device_larch.h"
#include "device/device_maple.h"
#include "planning/command.h"
#include "planning/plan.h"
#include "settings/settings.h"

namespace qs {
namespace {

enum class Model { Larch, Maple1, Maple2 };

struct Rig {
    std::unique_ptr<Settings> set;
    std::unique_ptr<Tuner> tunerOwner;
    const Tuner* tuner;
    const ModelRecord* record;
};

Rig MakeRig(Model m) {
    Rig r;
    if (m == Model::Larch) {
        r.set.reset(new SettingsLarch());
        r.tunerOwner.reset(new LarchTuner());
        r.record = &kLarchRecord;
    } else {
        r.set.reset(new SettingsMaple());
        r.tunerOwner.reset(new MapleTuner(m == Model::Maple1 ? 1 : 2));
        r.record = &kMapleRecord;
    }
    r.tuner = r.tunerOwner.get();
    return r;
}

const GainOfRow kGain = [](int) { return RowGain{1, 10}; };

// A swept measurement planned and laid out as the device's set-up does.
struct SweepPlan {
    SweepInfo si;
    ResidualInfo rps;
    NarrowTuning narrow;
    DeviceCommand cmd;
};

void PlanAndBuild(Rig& rig, double centre, double span, double rbw, bool reject, SweepPlan& p) {
    rig.set->ConfigureCenterSpan(centre, span);
    ASSERT_EQ(rig.set->ConfigureSweepCoupling(rbw, rbw, 0.001, QS_RBW_SHAPE_NATIVE, reject ? 1 : 0), qsNoError);
    ASSERT_EQ(PlanSweep(*rig.set, *rig.record, *rig.tuner, 1.0, p.si, p.rps, p.narrow), qsNoError);
    BuildSweepCommand(p.si, p.rps, *rig.tuner, reject, 0, kGain, p.cmd);
}

// The RF centre a sub-band's first oscillator word tunes its first step to:
// the first oscillator runs lo1c above the RF, in the model's word unit.
double TunedCentre(Model m, const subBand_t& sb, const LoRow& row, double secondLO) {
    double unit = m == Model::Larch ? (row.band > 1 ? 200000.0 : 100000.0) : 400000.0;
    return sb.LO1startFreq * unit - row.lo1c - secondLO;
}

struct SweepCase {
    Model model;
    double startHz, stopHz, rbwHz;
    bool reject;
};

class SweepChain : public ::testing::TestWithParam<SweepCase> {};

// Every step has a patch, every sub-band's words tune its first patch, and
// every trace point lies inside a regular patch's slice.
TEST_P(SweepChain, WordsTuneThePatchesAndThePatchesCoverTheTrace) {
    const SweepCase& c = GetParam();
    Rig rig = MakeRig(c.model);
    SweepPlan plan;
    ASSERT_NO_FATAL_FAILURE(
        PlanAndBuild(rig, 0.5 * (c.startHz + c.stopHz), c.stopHz - c.startHz, c.rbwHz, c.reject, plan));
    const SweepInfo& si = plan.si;
    const ResidualInfo& rps = plan.rps;
    const DeviceCommand& cmd = plan.cmd;
    ASSERT_EQ(si.dsRatio, 1);

    const int R = rps.m_residualCount;
    ASSERT_EQ(si.patchInfo.NumPatches(), si.stepCount);
    EXPECT_NEAR(si.actualStart, c.startHz, si.binSize);
    EXPECT_GE(si.actualStart + (si.traceLen - 1) * si.binSize, c.stopHz - si.binSize);
    int steps = 0, patch = 0;
    for (int b = 0; b < cmd.subBandCount; ++b) {
        const subBand_t& sb = cmd.subBandArray[b];
        const Patch& first = si.patchInfo[patch];
        steps += sb.stepCount;
        if (patch >= R && !first.direct) {
            const LoRow row = rig.tuner->Row(first.band);
            // A wide standard sweep runs some rows' first oscillator higher.
            const double shift = c.reject ? 0.0 : row.wideLo1Shift;
            EXPECT_NEAR(TunedCentre(c.model, sb, row, 0.0) - shift, first.center_freq, 200000.0) << "sub-band " << b;
            EXPECT_EQ(rig.tuner->RowIn(first.center_freq), first.band) << "sub-band " << b;
        }
        patch += sb.stepCount;
    }
    EXPECT_EQ(steps, si.stepCount);

    // Each point must be one of a patch's bins: a patch holds fftSize/4
    // bins about its slice's centre (0 to 20 MHz when sampled directly).
    for (int i = 0; i < si.traceLen; i += std::max(1, si.traceLen / 4000)) {
        const double f = si.actualStart + i * si.binSize;
        bool covered = false;
        for (int p = R; p < si.patchInfo.NumPatches() && !covered; ++p) {
            const Patch& q = si.patchInfo[p];
            const double low = q.direct ? 0.0 : q.center_freq - 1e7 + si.IFOffset * si.binSize;
            const long bin = std::lround((f - low) / si.binSize);
            covered = bin >= 0 && bin < q.length;
        }
        ASSERT_TRUE(covered) << "trace point " << i << " at " << f << " Hz";
    }
    // A residual step repairs the regular patch over its spur.
    const Tuner::Spurs spurs = rig.tuner->Residuals();
    for (int k = 0; k < R; ++k) {
        const int at = rps.m_residualLocation[k];
        ASSERT_LT(at, si.patchInfo.NumPatches());
        EXPECT_NEAR(si.patchInfo[at].center_freq, spurs.spur[rps.m_residualID[k]].writeCentre, 1e7);
    }
}

INSTANTIATE_TEST_SUITE_P(
    EveryModel, SweepChain,
    ::testing::Values(SweepCase{Model::Maple1, 9e3, 6.4e9, 300e3, false}, SweepCase{Model::Maple2, 9e3, 6.4e9, 300e3, false},
                      SweepCase{Model::Maple2, 2.19e9, 2.21e9, 10e3, false},
                      SweepCase{Model::Maple1, 1.4e9, 1.6e9, 100e3, true},
                      SweepCase{Model::Maple2, 5.5e9, 5.7e9, 30e3, false},
                      SweepCase{Model::Larch, 9e3, 6.4e9, 300e3, false}, SweepCase{Model::Larch, 2.2e9, 2.3e9, 30e3, false},
                      SweepCase{Model::Larch, 4.55e9, 4.65e9, 30e3, true}, SweepCase{Model::Larch, 20e6, 70e6, 10e3, false}));

// A narrow sweep's slice sits where the wanted centre is, seen from the
// LO's grid position; the second look is one grid step further away.
TEST(Planning, NarrowSlicesSitOnTheWantedCentre) {
    for (Model m : {Model::Larch, Model::Maple1, Model::Maple2}) {
        for (double centre : {433.1e6, 1000.3e6, 5700.05e6}) {
            Rig rig = MakeRig(m);
            SweepPlan plan;
            ASSERT_NO_FATAL_FAILURE(PlanAndBuild(rig, centre, 20e3, 100.0, false, plan));
            SweepInfo& si = plan.si;
            ASSERT_GT(si.dsRatio, 1);
            PlanNarrowCentres(*rig.record, si.patchInfo[0], plan.narrow, si);
            const bool flip = si.patchInfo[0].flip_spectrum;
            const double offset = (std::floor(centre / 1000.0) * 1000.0 - si.initialCenter) * (flip ? -1 : 1);
            EXPECT_NEAR(si.narrow_center[0] * 1000.0 - 2e7, offset, 1.0) << centre;
            EXPECT_EQ(si.narrow_center[0] - si.narrow_center[1], (flip ? -1 : 1) * rig.record->narrowGridHz / 1000.0);
        }
    }
}

// A generator sweep: the sub-bands count every generator point once, the
// LO sits on its grid, and each point lies inside the patch that reads it.
TEST(Planning, GeneratorPointsFillTheirPatches) {
    struct {
        Model model;
        double start, span;
        int points;
    } cases[] = {{Model::Maple2, 900e6, 200e6, 101}, {Model::Maple1, 1e6, 40e6, 401}, {Model::Larch, 2.4e9, 100e6, 1001}};
    for (const auto& c : cases) {
        Rig rig = MakeRig(c.model);
        rig.set->ConfigureCenterSpan(c.start + 0.5 * c.span, c.span);
        rig.set->ConfigureTgSweep(c.points, false, false);
        SweepInfo si;
        const int P = PlanTgSweep(*rig.set, si);
        DeviceCommand cmd;
        BuildTgCommand(si, *rig.tuner, *rig.record, 1, 0, cmd);
        int points = 0;
        for (int b = 0; b < cmd.subBandCount; ++b) points += cmd.subBandArray[b].stepCount;
        EXPECT_EQ(points, si.traceLen + si.lastPatchSkipCnt);
        EXPECT_EQ(points * si.ppf % 16, 0) << "whole blocks";
        EXPECT_EQ(std::fmod(si.initialCenter, TG_LO_GRID_HZ), 0.0);
        EXPECT_GE((si.traceLen - 1) * si.binSize, rig.set->Span() - si.binSize);
        for (int i = 0; i < si.traceLen; ++i) {
            const Patch& p = si.patchInfo[(i + si.tgInitialCount) / P];
            EXPECT_LE(std::fabs(si.actualStart + i * si.binSize - p.center_freq), 1e7 + TG_LO_GRID_HZ) << "point " << i;
        }
        const DeviceCommand second = SecondaryTgCommand(cmd, *rig.record);
        for (int b = 0; b < cmd.subBandCount; ++b) {
            const uint8_t* a = cmd.subBandArray[b].settings;
            const uint8_t* s = second.subBandArray[b].settings;
            EXPECT_EQ(std::memcmp(a, s, 3), 0);
            EXPECT_EQ(a[3] & ~rig.record->tgSecondaryMask, s[3] & ~rig.record->tgSecondaryMask);
            EXPECT_EQ(s[3] & rig.record->tgSecondaryMask, rig.record->tgSecondaryBits);
        }
    }
}

// Streams tune their one position; near a residual spur of the Larch both
// oscillators move up by 10 MHz, and the Maple's low band takes row 0.
TEST(Planning, StreamWordsTuneTheCentre) {
    struct {
        Model model;
        double centre;
        bool lowBand;
        double secondLO;
    } cases[] = {{Model::Larch, 1e9, false, 0.0},     {Model::Larch, 2.2436e9, false, 1e7},
                 {Model::Larch, 4.5e9, false, 0.0},    {Model::Maple2, 100.3e6, false, 0.0},
                 {Model::Maple1, 5.9e9, false, 0.0},   {Model::Maple2, 8e6, true, 0.0}};
    for (const auto& c : cases) {
        Rig rig = MakeRig(c.model);
        rig.set->ConfigureCenterSpan(c.centre, QS_MIN_SPAN);
        SweepInfo si;
        bool direct = false;
        const double lo = PlanStream(*rig.set, *rig.record, 1.0, si, &direct);
        EXPECT_EQ(direct, c.lowBand) << c.centre;
        EXPECT_LE(std::fabs(lo - c.centre), 0.5 * rig.record->streamGridHz);
        DeviceCommand cmd;
        BuildStreamCommand(si, *rig.tuner, lo, direct, 0, kGain, cmd);
        EXPECT_EQ(si.secondLOOffset, c.secondLO) << c.centre;
        const Patch& p = si.patchInfo[0];
        EXPECT_EQ(p.direct, c.lowBand);
        if (!c.lowBand) {
            EXPECT_NEAR(TunedCentre(c.model, cmd.subBandArray[0], rig.tuner->Row(p.band), c.secondLO), lo, 200000.0);
        }
    }
}

// The trace of real-time mode is centred where the engine puts it, and a
// span or RBW outside the model's range is refused with the plan untouched.
TEST(Planning, RealTimeTraceIsCentredAndLimitsRefuse) {
    for (Model m : {Model::Larch, Model::Maple2}) {
        Rig rig = MakeRig(m);
        for (double span : {3e6, 10e6, 17e6}) {
            rig.set->ConfigureCenterSpan(500.7e6, span);
            ASSERT_EQ(rig.set->ConfigureSweepCoupling(10e3, 10e3, 0.001, QS_RBW_SHAPE_NATIVE, 0), qsNoError);
            SweepInfo si;
            double lo = 0.0;
            ASSERT_EQ(PlanRealTime(*rig.set, *rig.record, 1.0, si, &lo), qsNoError);
            const double middle = si.actualStart + (si.traceLen / 2) * si.binSize;
            EXPECT_NEAR(middle, 500.7e6, 0.5 * si.binSize + 1e-6) << span;
        }
        rig.set->ConfigureCenterSpan(1e9, 1e6);
        rig.set->ConfigureSweepCoupling(1e6, 1e6, 0.001, QS_RBW_SHAPE_NATIVE, 0);
        SweepInfo si;
        si.traceLen = -7;
        double lo = 0.0;
        EXPECT_EQ(PlanRealTime(*rig.set, *rig.record, 1.0, si, &lo), qsInvalidParameterErr);
        EXPECT_EQ(si.traceLen, -7);
    }
}

// The packet-size fields say ppf: a power of two, or 1.5 times one.
TEST(Planning, PacketSizeFieldsSayThePacketsPerStep) {
    for (int ppf : {1, 2, 3, 4, 6, 8, 12, 16, 24, 32, 48, 64, 96, 128, 192, 256, 384, 512, 768, 1024}) {
        s3Ctrl_t s{};
        set_packet_size(s, ppf);
        EXPECT_EQ(s.pktsz_x3d2 ? 3 * (1 << (s.pktsz - 1)) : (1 << s.pktsz), ppf) << ppf;
    }
}

}  // namespace
}  // namespace qs
