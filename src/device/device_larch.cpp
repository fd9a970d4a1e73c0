#include "device/device_larch.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <stdexcept>

#include <unistd.h>

#include "calibration/corrections_larch.h"
#include "dsp/math_helpers.h"
#include "planning/sizing.h"
#include "engines/engine_sweep.h"
#include "settings/settings.h"

namespace qs {

namespace {

constexpr int kSelfCalPoints = SELF_CAL_CONSTANTS;
constexpr double kSelfCalStepHz = 39062.5;
constexpr double kEdgeDb = -2.0;
// The search for each edge starts this far inside the band.
constexpr int kLowerSearchStart = 64;
constexpr int kUpperSearchStart = 512;
// A capture pass's window is shifted by a quarter of its 2048-bin patch,
// so that each pass sees its own half of the IF.
constexpr int kCalIFOffset = 512;
constexpr double kCalRbw = 50000.0;


}  // namespace

const ModelRecord kLarchRecord = {
    /*streamGridHz=*/400000.0,
    /*narrowGridHz=*/400000.0,
    /*narrowMinStartHz=*/0.0,
    /*directIQTopHz=*/0.0,
    /*manualIFOffset=*/false,
    /*fullScaleTenMHzGrid=*/true,
    /*narrowExtraPackets=*/false,
    /*sweepExtraPoints=*/0,
    /*sweepSkipRoundsDown=*/false,
    /*lowBandRawSweep=*/false,
    /*realTimeMinSpanHz=*/200000.0,
    /*realTimeMaxSpanHz=*/20000000.0,
    /*realTimeMinRbwHz=*/2465.820313,
    /*realTimeMaxRbwHz=*/631250.0,
    /*realTimeExtraPoints=*/0,
    /*usbCurrentScale=*/1.0f,
    /*tgPrimaryAttenIndex=*/3,
    /*tgSecondaryAttenIndex=*/1,
    /*tgPrimaryAttenCode=*/30,
    // 10 dB, doubled, in the low six bits of byte 3.
    /*tgSecondaryMask=*/0x3F,
    /*tgSecondaryBits=*/20,
    // The tone is read from the centred slice within 9.1 MHz of a patch's
    // centre, and next to the zero bin in patches at or below 10 MHz.
    /*tgPeaks=*/TgPeakRules{9100000.0, 10000000.0},
};

double self_cal_if_offset(double* c) {
    double sum = 0.0;
    for (int i = kSelfCalPoints / 4; i < 3 * kSelfCalPoints / 4; ++i) sum += c[i];
    const double mean = sum / (kSelfCalPoints / 2);
    for (int i = 0; i < kSelfCalPoints; ++i) c[i] -= mean;

    int lo = 1;
    for (int i = kLowerSearchStart; i >= 1; --i) {
        if (c[i] < kEdgeDb) {
            lo = i + 1;
            break;
        }
    }
    int hi = kSelfCalPoints - 1;
    for (int i = kUpperSearchStart; i < kSelfCalPoints; ++i) {
        if (c[i] < kEdgeDb) {
            hi = i - 1;
            break;
        }
    }
    return ((lo + hi - kSelfCalPoints) * 0.5 * kSelfCalStepHz) / 2e7;
}

DeviceLarch::DeviceLarch(CypressInterface* usb) : Device(usb, kLarchRecord) {
    m_settings = new SettingsLarch();
    m_corr.reset(new CorrectionsLarch());
}

DeviceLarch::~DeviceLarch() { Abort(); }

Settings* DeviceLarch::NewSettings() const { return new SettingsLarch(); }

qsStatus DeviceLarch::OpenDevice() {
    InitDevice();
    // The first pass runs on the tables of an uncalibrated device; loading
    // the image leaves the constants alone and the second pass replaces
    // them, so the later measurement stands.
    SelfCalIF();
    InitCorrections();
    SelfCalIF();
    ConfigurePortIO(0, 0, true);
    m_oscRatio = CalibratedOscRatio();
    return qsNoError;
}

qsStatus DeviceLarch::InitCorrections() {
    // A Larch opens whatever the image holds; validity tells the rest.
    LoadCalibration(load_calibration_larch);
    return qsNoError;
}

void DeviceLarch::PrepForSelfCal() {
    static_cast<SettingsLarch*>(m_settings)->PrepSelfCal();
    m_sweepInfo.LoadDefaults();
    m_cmd.Clear();
}

qsStatus DeviceLarch::ConfigureIFSelfCal(int side) {
    Abort();

    m_cmd.headerType = QS_CMD_CAPTURE;
    m_cmd.commandType = static_cast<uint16_t>(side);
    m_cmd.subBandCount = 1;
    subBand_t& sb = m_cmd.subBandArray[0];
    sb.settings[0] = static_cast<uint8_t>((m_portMask & 0xFF) | 1);
    sb.settings[1] = 0;
    sb.settings[2] = 0x89;
    sb.settings[3] = 0x7C;
    sb.LO2Freq = 23000;
    sb.LO1startFreq = 24400;
    sb.LO1stepFreq = 0;
    sb.packetsPerFreq = 1;
    sb.stepCount = CAL_STEPS;

    m_mode = QS_MODE_SWEEP;
    SweepInfo& si = m_sweepInfo;
    si.ppf = 1;
    si.chunkSize = QS_SAMPLES_PER_PACKET;
    si.stepCount = CAL_STEPS;
    double windowfc = 0.0;
    non_native_fft_from_rbw(kCalRbw, &si.fftSize, &windowfc);
    si.IFOffset = side == 1 ? kCalIFOffset : -kCalIFOffset;
    rps.m_residualCount = 0;

    Patch patch{};
    patch.if_offset = si.IFOffset;
    for (int i = 0; i < CAL_STEPS; ++i) si.patchInfo.Append(patch);

    Settings& set = *m_settings;
    set.SetRBW(kCalRbw);
    set.SetVBW(kCalRbw);
    set.SetDetector(QS_DETECTOR_AVERAGE);
    set.SetLogScale(true);
    set.SetVideoUnits(QS_VIDEO_POWER);
    set.SetWindow(QS_WINDOW_FLAT_TOP);
    set.SetWindowFC(windowfc);

    try {
        std::unique_ptr<SweepEngine> engine(new SweepEngine(&m_sweepInfo, m_settings, &rps));
        m_calEngine = engine.get();
        m_engine = std::move(engine);
    } catch (const std::exception&) {
        Abort();
        return qsAllocationLimitErr;
    }
    m_fftReady = true;
    AddCommand();
    return qsNoError;
}

qsStatus DeviceLarch::SelfCalIF() {
    m_corr->ClearSelfCalConstants();
    Abort();
    PrepForSelfCal();

    double c[kSelfCalPoints];
    for (int side = 0; side < 2; ++side) {
        // Without an engine there is no measurement: the constants stay
        // cleared and the band is taken as centred.
        if (ConfigureIFSelfCal(side) != qsNoError) return qsNoError;
        m_calEngine->GetCalSweep(c + side * CAL_STEPS);
    }
    const double offset = self_cal_if_offset(c);
    m_corr->SetSelfCalConstants(c);
    m_sweepInfo.idealIFOffset = offset;
    Abort();
    return qsNoError;
}

}  // namespace qs
