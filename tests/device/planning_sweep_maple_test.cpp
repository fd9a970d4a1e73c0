// Sweep planning on the Maple: the plan, the command block, the patch list
// and the correction array that a sweep measurement is set up with, on a
// device opened through the simulator.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "calibration/corrections_maple.h"
#include "device/device_maple.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "settings/settings.h"

namespace qs {
namespace {

// The device with read access to what planning writes.
class PlannedMaple : public DeviceMaple {
public:
    using DeviceMaple::DeviceMaple;
    const DeviceCommand& Command() const { return m_cmd; }
    CorrectionsMaple& Corr() { return CorrMaple(); }
    void SetOscRatio(double r) { m_oscRatio = r; }
    void Send() { AddCommand(); }
    // The transport has taken the last command and answered it.
    bool Answered() const { return m_usb->CommandsQueued() == 0 && m_usb->IsIdle(); }
    int BlocksReceived() const { return m_usb->GetDMAState().dataFinishedAccum; }
    qsStatus TransferStatus() const { return m_usb->TransferStatus(); }
};

struct MapleSweep {
    double start;
    double stop;
    double rbw = 9863.28125;  // a native FFT of exactly 16384
    double vbw = 9863.28125;
    double sweepTime = 0.001;
    unsigned shape = QS_RBW_SHAPE_NATIVE;
    bool imageReject = false;
};

class MaplePlanning : public ::testing::Test {
protected:
    void Open(int pid) {
        device.reset();
        qssim_reset();
        simId = qssim_add_device(pid, 12345678);
        // The worked chains are those of a device whose tables are blank.
        ASSERT_EQ(qssim_set_flash_image(simId, QSSIM_FLASH_BLANK_TABLES), 0);
        auto* usb = new CypressInterface(12345678);
        ASSERT_EQ(usb->State(), USB_OPEN);
        device = std::make_unique<PlannedMaple>(usb);
        ASSERT_EQ(device->OpenDevice(), qsUncalibratedDevice);
    }
    void TearDown() override {
        device.reset();
        qssim_reset();
    }

    qsStatus Plan(const MapleSweep& r) {
        SettingsMaple staging;
        EXPECT_EQ(staging.ConfigCenterSpan((r.start + r.stop) * 0.5, r.stop - r.start), qsNoError);
        staging.ConfigSweepCoupling(r.rbw, r.vbw, r.sweepTime, r.shape, r.imageReject ? 1 : 0);
        return device->Initiate(&staging, QS_MODE_SWEEP, 0);
    }

    const SweepInfo& Info() const { return device->GetSweepInfo(); }
    const subBand_t& SubBand(int i) const { return device->Command().subBandArray[i]; }
    const Patch& PatchAt(int i) const { return Info().patchInfo[i]; }

    // Every step of the plan has a patch and a step of exactly one
    // sub-band, and the device sends exactly the packets the plan consumes.
    void ExpectCommandCoversPlan() {
        const DeviceCommand& cmd = device->Command();
        EXPECT_EQ(cmd.headerType, QS_CMD_CONFIGURE);
        EXPECT_EQ(cmd.commandType, QS_CFG_SWEEP);
        EXPECT_EQ(cmd.subBandCount, Info().activeBandCnt);
        int steps = 0;
        for (int i = 0; i < cmd.subBandCount; ++i) {
            EXPECT_EQ(SubBand(i).packetsPerFreq, Info().ppf) << i;
            steps += SubBand(i).stepCount;
        }
        EXPECT_EQ(steps, Info().stepCount);
        EXPECT_EQ(Info().patchInfo.NumPatches(), Info().stepCount);
        EXPECT_EQ(CountedBlocks(cmd) * 16, Info().ppf * Info().stepCount);
    }

    std::unique_ptr<PlannedMaple> device;
    int simId = -1;
};

// Gain and attenuation of an uncalibrated device at reference 0 dBm: no
// automatic pair has margin, so gain index 1 and the 30 dB attenuator;
// rows from 1 put (band + 1) << 5 plus 30 in byte 3.
constexpr uint8_t kByte3Band1 = (2 << 5) + 30;

TEST_F(MaplePlanning, WideSweepChain) {
    Open(QSSIM_PID_MAPLE_REV1);
    Plan({100e6, 200e6});
    const SweepInfo& si = Info();
    EXPECT_EQ(si.fftSize, 16384);
    EXPECT_EQ(si.zeroPadAmount, 0);
    EXPECT_DOUBLE_EQ(si.binSize, 4882.8125);
    EXPECT_EQ(si.dsRatio, 1);
    EXPECT_EQ(si.step100kSize, 200);
    EXPECT_DOUBLE_EQ(si.initialCenter, 100e6);
    EXPECT_EQ(si.ppf, 2);
    EXPECT_EQ(si.stepCount, 8);  // 6 for the span, padded to whole blocks
    EXPECT_EQ(si.chunkSize, 37376);
    EXPECT_EQ(si.traceLen, 20482);
    EXPECT_EQ(si.firstPatchSkipCnt, 2048);  // f0 is 90 MHz
    EXPECT_DOUBLE_EQ(si.actualStart, 100e6);
    EXPECT_EQ(si.IFOffset, 0);
    EXPECT_EQ(si.initialBand, 1);
    EXPECT_EQ(si.activeBandCnt, 1);

    ASSERT_EQ(device->Command().subBandCount, 1);
    const subBand_t& sb = SubBand(0);
    EXPECT_EQ(sb.LO1startFreq, 6300);
    EXPECT_EQ(sb.LO2Freq, 456);
    EXPECT_EQ(sb.LO1stepFreq, 50);
    EXPECT_EQ(sb.packetsPerFreq, 2);
    EXPECT_EQ(sb.stepCount, 8);
    EXPECT_EQ(sb.settings[0], 1);     // packet mode, no port bits
    EXPECT_EQ(sb.settings[1], 0x10);  // log2(2) in the high nibble, band code 0
    EXPECT_EQ(sb.settings[2], 0);
    EXPECT_EQ(sb.settings[3], kByte3Band1);

    ASSERT_EQ(si.patchInfo.NumPatches(), 8);
    for (int i = 0; i < 8; ++i) {
        const Patch& p = PatchAt(i);
        EXPECT_EQ(p.length, 4096) << i;
        EXPECT_EQ(p.band, 1) << i;
        EXPECT_EQ(p.if_offset, 0) << i;
        EXPECT_DOUBLE_EQ(p.center_freq, 100e6 + 20e6 * i) << i;
        EXPECT_EQ(p.if_center, 0.0) << i;
        EXPECT_FALSE(p.flip_spectrum) << i;
    }
    ExpectCommandCoversPlan();
    EXPECT_EQ(device->Corr().GetCorrections().size(), 8u * 4096u);
}

TEST_F(MaplePlanning, ImageRejectionChain) {
    Open(QSSIM_PID_MAPLE_REV1);
    MapleSweep r{1.0e9, 1.1e9};
    r.sweepTime = 0.01;
    r.imageReject = true;
    Plan(r);
    const SweepInfo& si = Info();
    EXPECT_EQ(si.step100kSize, 100);
    EXPECT_DOUBLE_EQ(si.initialCenter, 1e9);
    EXPECT_EQ(si.ppf, 4);         // t = 4 beats p = 2
    EXPECT_EQ(si.stepCount, 12);  // 11, padded
    EXPECT_EQ(si.chunkSize, 74752);
    EXPECT_EQ(si.traceLen, 20482);
    EXPECT_EQ(si.firstPatchSkipCnt, 0);  // f0 is 1 GHz itself
    EXPECT_DOUBLE_EQ(si.actualStart, 1e9);

    ASSERT_EQ(device->Command().subBandCount, 1);
    EXPECT_EQ(SubBand(0).LO1startFreq, 8550);
    EXPECT_EQ(SubBand(0).LO1stepFreq, 25);
    EXPECT_EQ(SubBand(0).stepCount, 12);
    EXPECT_EQ(SubBand(0).settings[1], 0x20);
    ASSERT_EQ(si.patchInfo.NumPatches(), 12);
    for (int i = 0; i < 12; ++i) EXPECT_DOUBLE_EQ(PatchAt(i).center_freq, 1e9 + 10e6 * i) << i;
    ExpectCommandCoversPlan();
}

TEST_F(MaplePlanning, NarrowSweepChain) {
    Open(QSSIM_PID_MAPLE_REV1);
    MapleSweep r{99.995e6, 100.005e6};
    r.rbw = r.vbw = 100.0;
    Plan(r);
    const SweepInfo& si = Info();
    EXPECT_EQ(si.fftSize, 2097152);
    EXPECT_EQ(si.zeroPadAmount, 481152);
    EXPECT_DOUBLE_EQ(si.binSize, 38.14697265625);
    EXPECT_EQ(si.dsRatio, 16);
    EXPECT_EQ(si.step100kSize, 8);
    EXPECT_DOUBLE_EQ(si.initialCenter, 100e6);
    EXPECT_DOUBLE_EQ(si.bandZeroNarrowCenter, 100e6);
    EXPECT_EQ(si.stepCount, 1);
    EXPECT_EQ(si.ppf, 192);  // 141 + 4, lifted to three times 64
    EXPECT_EQ(si.chunkSize, 3588096);
    EXPECT_EQ(si.traceLen, 264);
    EXPECT_EQ(si.firstPatchSkipCnt, 16252);  // f0 is 99.375 MHz
    EXPECT_DOUBLE_EQ(si.actualStart, 99375000.0 + 16252 * 38.14697265625);
    EXPECT_EQ(si.narrow_center[0], 20000);
    EXPECT_EQ(si.narrow_center[1], 19200);

    ASSERT_EQ(device->Command().subBandCount, 1);
    const subBand_t& sb = SubBand(0);
    EXPECT_EQ(sb.LO1startFreq, 6300);
    EXPECT_EQ(sb.LO2Freq, 456);
    EXPECT_EQ(sb.LO1stepFreq, 2);
    EXPECT_EQ(sb.packetsPerFreq, 192);
    EXPECT_EQ(sb.stepCount, 1);
    EXPECT_EQ(sb.settings[0], 3);     // 1.5 times a power of two
    EXPECT_EQ(sb.settings[1], 0x70);  // 192 = 1.5 x 2^7
    ASSERT_EQ(si.patchInfo.NumPatches(), 1);
    EXPECT_EQ(PatchAt(0).length, 32768);
    EXPECT_EQ(PatchAt(0).band, 1);
    EXPECT_DOUBLE_EQ(PatchAt(0).center_freq, 100e6);
    ExpectCommandCoversPlan();
    // The narrow array is a whole transform's quarter; the patch fills its head.
    EXPECT_EQ(device->Corr().GetCorrections().size(), 2097152u / 4);
}

TEST_F(MaplePlanning, NarrowSweepWithRejectionLooksTwice800kHzApart) {
    for (int pid : {QSSIM_PID_MAPLE_REV1, QSSIM_PID_MAPLE_REV2}) {
        Open(pid);
        MapleSweep r{99.995e6, 100.005e6};
        r.rbw = r.vbw = 100.0;
        r.imageReject = true;
        Plan(r);
        const SweepInfo& si = Info();
        EXPECT_EQ(si.stepCount, 2);
        ASSERT_EQ(si.patchInfo.NumPatches(), 2);
        EXPECT_EQ(PatchAt(0).band, PatchAt(1).band);
        EXPECT_DOUBLE_EQ(PatchAt(1).center_freq - PatchAt(0).center_freq, 800e3);
        // Row 1 inverts the spectrum on revision 2 only.
        const int expected = pid == QSSIM_PID_MAPLE_REV2 ? 800 : -800;
        EXPECT_EQ(si.narrow_center[1] - si.narrow_center[0], expected) << pid;
        ExpectCommandCoversPlan();
    }
}

TEST_F(MaplePlanning, NarrowSweepInTheLowBandTunesToTheRFItself) {
    Open(QSSIM_PID_MAPLE_REV2);
    MapleSweep r{1.0e6, 1.01e6};
    r.rbw = r.vbw = 100.0;
    Plan(r);
    const SweepInfo& si = Info();
    EXPECT_EQ(si.dsRatio, 16);
    EXPECT_EQ(si.initialBand, 0);
    EXPECT_DOUBLE_EQ(si.initialCenter, 1.005e6);
    EXPECT_DOUBLE_EQ(si.bandZeroNarrowCenter, 1.005e6);
    EXPECT_EQ(si.narrow_center[0], 1005);
    EXPECT_EQ(si.narrow_center[1], 1005);
    EXPECT_EQ(PatchAt(0).band, 0);
    EXPECT_DOUBLE_EQ(PatchAt(0).center_freq, 20e6);
    EXPECT_EQ(PatchAt(0).if_offset, -(si.fftSize / 8));
}

TEST_F(MaplePlanning, NarrowRatioFromSpanAndBinSize) {
    Open(QSSIM_PID_MAPLE_REV1);
    struct Case {
        double start, span, rbw;
        int dsRatio;
    };
    const Case cases[] = {
        {100e6, 25099.0, 50.0, 256},    // bin0 19.07 Hz
        {100e6, 25100.0, 50.0, 16},     // span not below 25,100
        {100e6, 25099.0, 100.0, 16},    // bin0 38.1 Hz
        {100e6, 498000.0, 1000.0, 16},  // bin0 305 Hz
        {100e6, 499000.0, 1000.0, 1},
        {100e6, 25099.0, 2000.0, 1},    // bin0 610 Hz
        {99e3, 10000.0, 50.0, 1},       // below 100 kHz never narrow
        {100e3, 10000.0, 50.0, 256},
    };
    for (const Case& c : cases) {
        MapleSweep r{c.start, c.start + c.span};
        r.rbw = r.vbw = c.rbw;
        Plan(r);
        EXPECT_EQ(Info().dsRatio, c.dsRatio) << c.start << " " << c.span << " " << c.rbw;
        EXPECT_EQ(Info().patchInfo.NumPatches(), Info().stepCount);
        EXPECT_EQ(Info().patchInfo[0].length, Info().fftSize / (4 * c.dsRatio));
    }
}

TEST_F(MaplePlanning, FineResolutionAddsPacketsPerStep) {
    Open(QSSIM_PID_MAPLE_REV1);
    // A wide sweep below 800 Hz RBW: 29 packets for the transforms, 4 more,
    // so the solver gives 48 and not 32.
    MapleSweep wide{1.0e9, 1.001e9};
    wide.rbw = wide.vbw = 615.0;
    Plan(wide);
    EXPECT_EQ(Info().dsRatio, 1);
    EXPECT_EQ(Info().ppf, 48);
    // A narrow sweep needing 18 packets takes 32, then 4 more.
    MapleSweep narrow{100e6, 100.1e6};
    narrow.rbw = narrow.vbw = 1000.0;
    Plan(narrow);
    EXPECT_EQ(Info().dsRatio, 16);
    EXPECT_EQ(Info().ppf, 48);
}

TEST_F(MaplePlanning, LowStartBeginsInTheDirectlySampledBand) {
    Open(QSSIM_PID_MAPLE_REV1);
    Plan({5e6, 50e6});
    const SweepInfo& si = Info();
    EXPECT_DOUBLE_EQ(si.initialCenter, 0.0);
    EXPECT_EQ(si.initialBand, 0);
    ASSERT_EQ(device->Command().subBandCount, 2);
    const subBand_t& low = SubBand(0);
    EXPECT_EQ(low.stepCount, 1);
    EXPECT_EQ(low.LO1startFreq, 400);  // 160 MHz
    EXPECT_EQ(low.LO2Freq, 32);
    EXPECT_EQ(low.settings[1] & 0x0F, 0);
    EXPECT_EQ(low.settings[3], 30);  // attenuation alone
    const Patch& p0 = PatchAt(0);
    EXPECT_EQ(p0.band, 0);
    EXPECT_DOUBLE_EQ(p0.center_freq, 20e6);
    EXPECT_EQ(p0.if_offset, -2048);
    // The next step, 20 MHz, is the first of row 1.
    EXPECT_EQ(SubBand(1).LO1startFreq, (20e6 + 2420e6) / 400e3);
    EXPECT_EQ(PatchAt(1).band, 1);
    EXPECT_DOUBLE_EQ(PatchAt(1).center_freq, 20e6);
    ExpectCommandCoversPlan();

    Plan({12e6, 50e6});
    EXPECT_DOUBLE_EQ(Info().initialCenter, 20e6);
    EXPECT_EQ(Info().initialBand, 1);
    for (const Patch& p : Info().patchInfo.Patches()) EXPECT_NE(p.band, 0);
}

TEST_F(MaplePlanning, StepsWalkTheRowsInOrderAcrossTheNarrowRow) {
    Open(QSSIM_PID_MAPLE_REV1);
    Plan({5.55e9, 5.65e9});
    const SweepInfo& si = Info();
    ASSERT_EQ(si.stepCount, 8);
    ASSERT_EQ(device->Command().subBandCount, 3);
    // Row 6 up to its edge at 5.59 GHz, the 20 MHz row 7, then row 8.
    EXPECT_EQ(SubBand(0).stepCount, 2);
    EXPECT_EQ(SubBand(0).LO1startFreq, (5.56e9 + 1.26e9) / 400e3);
    EXPECT_EQ(SubBand(0).LO2Freq, 224);
    EXPECT_EQ(SubBand(1).stepCount, 1);
    EXPECT_EQ(SubBand(1).LO1startFreq, (5.60e9 + 1.268e9) / 400e3);
    EXPECT_EQ(SubBand(1).LO2Freq, 226);  // 225.6 rounded
    EXPECT_EQ(SubBand(2).stepCount, 5);
    // Row 8 runs its first oscillator 1.6 MHz high in a wide sweep.
    EXPECT_EQ(SubBand(2).LO1startFreq, (5.62e9 + 1.26e9 + 1.6e6) / 400e3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(SubBand(i).settings[1] & 0x0F, 2) << i;  // hardware band 5
        EXPECT_EQ(SubBand(i).settings[3], (6 << 5) + 30) << i;
    }
    const int rows[8] = {6, 6, 7, 8, 8, 8, 8, 8};
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(PatchAt(i).band, rows[i]) << i;
        EXPECT_DOUBLE_EQ(PatchAt(i).center_freq, 5.56e9 + 20e6 * i) << i;
        EXPECT_EQ(PatchAt(i).if_offset, rows[i] == 8 ? -327 : 0) << i;
    }
    ExpectCommandCoversPlan();
}

TEST_F(MaplePlanning, AStepOnARowsTopEdgeStaysInThatRow) {
    Open(QSSIM_PID_MAPLE_REV1);
    MapleSweep r{1.85e9, 1.95e9};
    r.imageReject = true;
    Plan(r);
    // 1.89 GHz is row 1's top edge: the walk keeps it in row 1, though a
    // look-up of that frequency would name row 2.
    ASSERT_EQ(device->Command().subBandCount, 2);
    EXPECT_EQ(SubBand(0).stepCount, 5);
    EXPECT_EQ(SubBand(1).stepCount, Info().stepCount - 5);
    EXPECT_EQ(SubBand(1).LO1startFreq, (1.90e9 + 1.26e9) / 400e3);
    EXPECT_EQ(PatchAt(4).band, 1);
    EXPECT_DOUBLE_EQ(PatchAt(4).center_freq, 1.89e9);
    EXPECT_EQ(PatchAt(5).band, 2);
    EXPECT_TRUE(PatchAt(5).flip_spectrum);
    ExpectCommandCoversPlan();
}

TEST_F(MaplePlanning, RowEightKeepsItsOscillatorsWithRejectionOrAManualOffset) {
    Open(QSSIM_PID_MAPLE_REV1);
    MapleSweep r{5.65e9, 5.75e9};
    r.imageReject = true;
    Plan(r);
    EXPECT_EQ(Info().initialBand, 8);
    EXPECT_EQ(SubBand(0).LO1startFreq, (5.65e9 + 1.26e9) / 400e3);
    EXPECT_EQ(PatchAt(0).if_offset, 0);

    // A manual IF offset of a tenth of the band: 409 bins and a 2 MHz
    // shift, which moves the first centre down a step.
    device->GetSweepInfo().manualIFOffset = true;
    device->GetSweepInfo().manualIFOffsetFractionVal = 0.1;
    Plan({5.65e9, 5.75e9});
    EXPECT_EQ(Info().initialBand, 8);
    EXPECT_EQ(Info().IFOffset, 409);
    EXPECT_DOUBLE_EQ(Info().initialCenter, 5.64e9);
    EXPECT_EQ(SubBand(0).LO1startFreq, (5.64e9 + 1.26e9) / 400e3);
    for (const Patch& p : Info().patchInfo.Patches()) EXPECT_EQ(p.if_offset, 409);
    EXPECT_LE(std::fabs(Info().actualStart - 5.65e9), Info().binSize);
}

TEST_F(MaplePlanning, RevisionTwoUsesItsOwnTable) {
    Open(QSSIM_PID_MAPLE_REV2);
    Plan({100e6, 200e6});
    EXPECT_EQ(SubBand(0).LO1startFreq, 6300);
    EXPECT_EQ(SubBand(0).LO2Freq, 512);  // 2560 MHz on revision 2
    for (const Patch& p : Info().patchInfo.Patches()) EXPECT_TRUE(p.flip_spectrum);

    // Row 8 of this table moves its first oscillator too: the rule follows
    // the row, not the hardware band.
    Plan({5.65e9, 5.75e9});
    EXPECT_EQ(Info().initialBand, 8);
    EXPECT_EQ(SubBand(0).LO1startFreq, (5.66e9 + 1.22e9 + 1.6e6) / 400e3);
    EXPECT_EQ(SubBand(0).settings[1] & 0x0F, 3);  // hardware band 6
}

TEST_F(MaplePlanning, TimebaseCorrectionScalesBinsAndKeepsTheTraceOnTheSpan) {
    Open(QSSIM_PID_MAPLE_REV1);
    const double ratio = 1.00001;
    device->SetOscRatio(ratio);
    Plan({100e6, 200e6});
    const SweepInfo& si = Info();
    EXPECT_DOUBLE_EQ(si.binSize, 4882.8125 * ratio);
    EXPECT_DOUBLE_EQ(si.initialCenter, 100e6);  // nominal
    EXPECT_EQ(si.firstPatchSkipCnt, 2047);
    EXPECT_LE(si.actualStart, 100e6);
    EXPECT_GT(si.actualStart, 100e6 - si.binSize);
    EXPECT_GE(si.actualStart + (si.traceLen - 1) * si.binSize, 200e6);
}

TEST_F(MaplePlanning, RoughGainsFollowThePatchesIntoTheCommand) {
    Open(QSSIM_PID_MAPLE_REV1);
    uint8_t low[MAPLE_ROUGH_ROWS];
    for (int i = 0; i < MAPLE_ROUGH_ROWS; ++i) low[i] = static_cast<uint8_t>(i);
    device->Corr().SetRoughGains(low, nullptr);
    Plan({100e6, 200e6});
    // One run per patch: 100 to 240 MHz are rough rows 5 to 12.
    const uint8_t* arr = device->Command().roughCorrArray;
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(arr[2 * i], 1) << i;
        EXPECT_EQ(arr[2 * i + 1], 5 + i) << i;
    }
}

TEST_F(MaplePlanning, RBWAboveSpanIsRefusedWithThePlanUntouched) {
    Open(QSSIM_PID_MAPLE_REV1);
    Plan({100e6, 200e6});
    const DeviceCommand before = device->Command();
    MapleSweep r{100e6, 100.01e6};
    r.rbw = r.vbw = 20000.0;
    EXPECT_EQ(Plan(r), qsBandwidthErr);
    EXPECT_EQ(Info().fftSize, 16384);
    EXPECT_EQ(Info().traceLen, 20482);
    EXPECT_EQ(Info().patchInfo.NumPatches(), 0);  // emptied by the abort
    EXPECT_EQ(std::memcmp(before.Bytes(), device->Command().Bytes(), QS_COMMAND_BYTES), 0);
    EXPECT_EQ(device->GetMode(), QS_MODE_IDLE);
}

TEST_F(MaplePlanning, DeviceAnswersTheCommandWithThePlannedBlocks) {
    Open(QSSIM_PID_MAPLE_REV2);
    struct Case {
        MapleSweep r;
        int blocks;
    };
    MapleSweep narrow{99.995e6, 100.005e6};
    narrow.rbw = narrow.vbw = 100.0;
    MapleSweep rows{5.55e9, 5.65e9};
    MapleSweep reject{1.0e9, 1.1e9};
    reject.sweepTime = 0.01;
    reject.imageReject = true;
    const Case cases[] = {{{100e6, 200e6}, 1}, {rows, 1}, {reject, 3}, {narrow, 12}};
    for (const Case& c : cases) {
        Plan(c.r);
        const int sentBefore = qssim_command_count(simId);
        const int blocksBefore = device->BlocksReceived();
        device->Send();
        for (int i = 0; i < 2000 && !device->Answered(); ++i) usleep(5000);
        ASSERT_EQ(qssim_command_count(simId), sentBefore + 1);
        unsigned char wire[QS_COMMAND_BYTES];
        ASSERT_EQ(qssim_get_command(simId, sentBefore, wire), 0);
        EXPECT_EQ(std::memcmp(wire, device->Command().Bytes(), QS_COMMAND_BYTES), 0);
        EXPECT_EQ(device->BlocksReceived() - blocksBefore, c.blocks);
        EXPECT_EQ(device->TransferStatus(), qsNoError);
    }
}

}  // namespace
}  // namespace qs
