// Sweep planning on the Larch: the residual steps, the LO words of its
// five rows, the IF offset from the self-calibration, and the control bytes,
// on a device opened through the simulator.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "device/device_larch.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "settings/settings.h"

namespace qs {
namespace {

class PlannedLarch : public DeviceLarch {
public:
    using DeviceLarch::DeviceLarch;
    const DeviceCommand& Command() const { return m_cmd; }
    const ResidualInfo& Residuals() const { return rps; }
    void SetPortMask(unsigned mask) { m_portMask = mask; }
};

struct SweepRequest {
    double start;
    double stop;
    double rbw = 9863.28125;  // a native FFT of exactly 16384
    bool imageReject = false;
};

// One device for the suite: the open runs two self-calibrations.
class LarchPlanning : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        qssim_reset();
        qssim_add_device(QSSIM_PID_LARCH, 10000021);
        auto* usb = new CypressInterface(10000021);
        ASSERT_EQ(usb->State(), USB_OPEN);
        device = new PlannedLarch(usb);
        ASSERT_EQ(device->OpenDevice(), qsNoError);
    }
    static void TearDownTestSuite() {
        delete device;
        device = nullptr;
        qssim_reset();
    }
    void SetUp() override {
        ASSERT_NE(device, nullptr);
        device->GetSweepInfo().idealIFOffset = 0.0;
    }

    static qsStatus Plan(const SweepRequest& r) {
        SettingsLarch staging;
        EXPECT_EQ(staging.ConfigCenterSpan((r.start + r.stop) * 0.5, r.stop - r.start), qsNoError);
        staging.ConfigSweepCoupling(r.rbw, r.rbw, 0.001, QS_RBW_SHAPE_NATIVE, r.imageReject ? 1 : 0);
        return device->Initiate(&staging, QS_MODE_SWEEP, 0);
    }
    static const SweepInfo& Info() { return device->GetSweepInfo(); }
    static const subBand_t& SubBand(int i) { return device->Command().subBandArray[i]; }
    static const Patch& PatchAt(int i) { return Info().patchInfo[i]; }
    static std::vector<int> ResidualRows() {
        const ResidualInfo& r = device->Residuals();
        return std::vector<int>(r.m_residualID, r.m_residualID + r.m_residualCount);
    }

    // Every step has one patch and one step of one sub-band, residual
    // sub-bands first; the device sends the packets the plan consumes.
    static void ExpectCommandCoversPlan() {
        const DeviceCommand& cmd = device->Command();
        const int residuals = device->Residuals().m_residualCount;
        EXPECT_EQ(cmd.headerType, QS_CMD_CONFIGURE);
        EXPECT_EQ(cmd.commandType, QS_CFG_SWEEP);
        EXPECT_EQ(cmd.subBandCount, Info().activeBandCnt + residuals);
        int steps = 0;
        for (int i = 0; i < cmd.subBandCount; ++i) {
            EXPECT_EQ(SubBand(i).packetsPerFreq, Info().ppf) << i;
            if (i < residuals) {
                EXPECT_EQ(SubBand(i).stepCount, 1) << i;
            }
            steps += SubBand(i).stepCount;
        }
        EXPECT_EQ(steps, Info().stepCount);
        EXPECT_EQ(Info().patchInfo.NumPatches(), Info().stepCount);
        EXPECT_EQ(Info().ppf * Info().stepCount % 16, 0);
        for (int i = 0; i < Info().patchInfo.NumPatches(); ++i)
            EXPECT_EQ(PatchAt(i).if_center, i < residuals ? 10e6 : 0.0) << i;
    }

    static PlannedLarch* device;
};

PlannedLarch* LarchPlanning::device = nullptr;

TEST_F(LarchPlanning, ResidualStepsAreThoseStrictlyAboveTheStartUpToTheStop) {
    const struct {
        SweepRequest r;
        std::vector<int> rows;
    } cases[] = {
        {{1.0e9, 3.0e9}, {1}},
        {{2.24e9, 2.3e9}, {}},  // a spot at the start is left out
        {{2.2e9, 2.24e9}, {1}},  // one at the stop is kept
        {{20e6, 6.0e9, 300e3}, {0, 1, 2, 3, 4, 5}},
        {{5.3e9, 5.7e9}, {4, 5}},
        {{2.2e9, 2.3e9, 9863.28125, true}, {1}},  // also with rejection
        {{2.23995e9, 2.24005e9, 1e3}, {}},  // never in a narrow sweep
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.r.start);
        ASSERT_EQ(Plan(c.r), qsNoError);
        EXPECT_EQ(ResidualRows(), c.rows);
        ExpectCommandCoversPlan();
    }
}

// The worked chain of 2.2 to 2.3 GHz: six regular steps and the residual
// step of 2,240 MHz, padded to eight for whole blocks.
TEST_F(LarchPlanning, WideChainWithAResidualStep) {
    ASSERT_EQ(Plan({2.2e9, 2.3e9}), qsNoError);
    const SweepInfo& si = Info();
    EXPECT_EQ(si.fftSize, 16384);
    EXPECT_EQ(si.dsRatio, 1);
    EXPECT_EQ(si.IFOffset, 0);
    EXPECT_DOUBLE_EQ(si.initialCenter, 2.2e9);
    EXPECT_EQ(si.traceLen, 20480);  // no points added past the span
    EXPECT_EQ(si.firstPatchSkipCnt, 2048);
    EXPECT_DOUBLE_EQ(si.actualStart, 2.2e9);
    EXPECT_EQ(si.ppf, 2);
    EXPECT_EQ(si.stepCount, 8);
    EXPECT_EQ(si.initialBand, 2);
    EXPECT_EQ(si.activeBandCnt, 1);
    ASSERT_EQ(device->Residuals().m_residualCount, 1);
    EXPECT_EQ(device->Residuals().m_residualLocation[0], 3);  // 1 + (2240 - 2200) / 20

    ASSERT_EQ(device->Command().subBandCount, 2);
    const subBand_t& res = SubBand(0);
    EXPECT_EQ(res.LO1startFreq, 35100);
    EXPECT_EQ(res.LO1stepFreq, 1);
    EXPECT_EQ(res.LO2Freq, 11300);
    EXPECT_EQ(res.stepCount, 1);
    const subBand_t& row = SubBand(1);
    EXPECT_EQ(row.LO1startFreq, 34600);
    EXPECT_EQ(row.LO1stepFreq, 200);
    EXPECT_EQ(row.LO2Freq, 11200);
    EXPECT_EQ(row.stepCount, 7);

    EXPECT_DOUBLE_EQ(PatchAt(0).center_freq, 2.24e9);
    EXPECT_EQ(PatchAt(0).band, 2);
    for (int i = 1; i < 8; ++i) {
        EXPECT_DOUBLE_EQ(PatchAt(i).center_freq, 2.2e9 + (i - 1) * 20e6) << i;
        EXPECT_EQ(PatchAt(i).length, 4096);
        EXPECT_FALSE(PatchAt(i).flip_spectrum);
    }
    ExpectCommandCoversPlan();
}

// Bands 2 and 3 (rows 3 and 4) count their first oscillator in 200 kHz:
// start word and step are halved, the second oscillator is not.
TEST_F(LarchPlanning, FirstOscillatorWordsAreHalvedInBandsTwoAndThree) {
    const struct {
        SweepRequest r;
        int subBand;
        int lo1Start, lo1Step, lo2, steps;
    } cases[] = {
        {{2.49e9, 2.51e9}, 0, 37600, 200, 11200, -1},          // row 2, band 1
        {{4.78e9, 4.86e9}, 0, 36100, 100, 23000, 2},           // row 3 up to its edge
        {{4.78e9, 4.86e9}, 1, 30400, 100, 11200, -1},          // then row 4
        {{4.55e9, 4.65e9}, 0, 35250, 1, 23100, 1},             // a residual step in band 2
        {{1.09995e9, 1.10005e9, 1e3, true}, 0, 35400, 4, 23000, 2},  // narrow, band 0
        {{4.09995e9, 4.10005e9, 1e3}, 0, 32700, 2, 23000, 1},  // narrow, band 2
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.r.start);
        ASSERT_EQ(Plan(c.r), qsNoError);
        const subBand_t& sb = SubBand(c.subBand);
        EXPECT_EQ(sb.LO1startFreq, c.lo1Start);
        EXPECT_EQ(sb.LO1stepFreq, c.lo1Step);
        EXPECT_EQ(sb.LO2Freq, c.lo2);
        if (c.steps > 0) {
            EXPECT_EQ(sb.stepCount, c.steps);
        }
        ExpectCommandCoversPlan();
    }
}

TEST_F(LarchPlanning, IFOffsetComesFromTheSelfCalibrationInWideSweepsOnly) {
    device->GetSweepInfo().idealIFOffset = 0.01;
    ASSERT_EQ(Plan({1.0e9, 1.02e9}), qsNoError);
    EXPECT_EQ(Info().IFOffset, 41);
    EXPECT_DOUBLE_EQ(Info().IFOffsetFraction, 41.0 / 4096);
    EXPECT_EQ(Info().traceLen, 4096);
    EXPECT_EQ(PatchAt(0).if_offset, 41);
    // The patches move with the band's middle, so the trace still starts
    // within half a bin of the start.
    EXPECT_NEAR(Info().actualStart, 1.0e9, Info().binSize / 2);

    ASSERT_EQ(Plan({1.09995e9, 1.10005e9, 1e3, true}), qsNoError);
    EXPECT_EQ(Info().dsRatio, 16);
    EXPECT_EQ(Info().IFOffset, 0);
    EXPECT_EQ(Info().stepCount, 2);
    EXPECT_EQ(Info().narrow_center[0], 20000);
    EXPECT_EQ(Info().narrow_center[1], 19600);
}

TEST_F(LarchPlanning, ControlBytes) {
    const struct {
        int8_t band;
        uint8_t gain, atten, pktsz, stream, x3d2;
        unsigned portMask;
        uint8_t b0, b1, b2, b3;
    } cases[] = {
        {0, 1, 10, 1, 0, 0, 0, 0x01, 0x10, 0x89, 0x54},
        {0, 3, 0, 5, 0, 1, 0, 0x03, 0x50, 0x81, 0xC0},   // gain 3: bit 7, XOR 0x08 below band 1
        {1, 2, 30, 4, 1, 0, 0, 0x00, 0x40, 0x4C, 0x7C},  // streaming; XOR 0x04 from band 1
        {2, 0, 20, 2, 0, 0, 0, 0x01, 0x20, 0xBA, 0x68},  // gain 0 adds 0x20
        {3, 2, 0, 0, 0, 0, 0x0C, 0x0D, 0x00, 0x5E, 0x40},  // port bits in byte 0
        {-1, 1, 10, 0, 0, 0, 0, 0x01, 0x00, 0x29, 0x14},   // no band: no bit 6
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.band) * 10 + c.gain);
        s3Ctrl_t s{};
        s.band = c.band;
        s.gain = c.gain;
        s.atten = c.atten;
        s.pktsz = c.pktsz;
        s.stream = c.stream;
        s.pktsz_x3d2 = c.x3d2;
        device->SetPortMask(c.portMask);
        uint8_t b[4] = {};
        device->PackSettings(&s, b);
        EXPECT_EQ(b[0], c.b0);
        EXPECT_EQ(b[1], c.b1);
        EXPECT_EQ(b[2], c.b2);
        EXPECT_EQ(b[3], c.b3);
    }
    device->SetPortMask(0);
}

}  // namespace
}  // namespace qs
