#include "device/device_maple.h"

#include <vector>

#include "calibration/corrections_maple.h"
#include "settings/settings.h"

namespace qs {

const ModelRecord kMapleRecord = {
    /*streamGridHz=*/800000.0,
    /*narrowGridHz=*/800000.0,
    // The low band samples directly; narrow sweeps start above it.
    /*narrowMinStartHz=*/100000.0,
    /*directIQTopHz=*/16000000.0,
    /*manualIFOffset=*/true,
    /*fullScaleTenMHzGrid=*/false,
    /*narrowExtraPackets=*/true,
    /*sweepExtraPoints=*/2,
    /*sweepSkipRoundsDown=*/true,
    /*lowBandRawSweep=*/true,
    /*realTimeMinSpanHz=*/199000.0,
    /*realTimeMaxSpanHz=*/27001000.0,
    /*realTimeMinRbwHz=*/2265.820313,
    /*realTimeMaxRbwHz=*/631450.0,
    /*realTimeExtraPoints=*/2,
    /*usbCurrentScale=*/2.0f,
    /*tgPrimaryAttenIndex=*/2,
    // Index 0 at the gains the mode runs (1 and 3), which add no 5 dB, sent
    // as 1 as every zero code is: the code the secondary pass's corrections
    // describe. (Code 5 read that pass 5 dB low.)
    /*tgSecondaryAttenIndex=*/0,
    /*tgPrimaryAttenCode=*/20,
    /*tgSecondaryMask=*/0x1F,
    /*tgSecondaryBits=*/1,
    // The slice moves half way to the tone's side; the directly sampled
    // low band has rules of its own (Patch::direct).
    /*tgPeaks=*/TgPeakRules{},
};

DeviceMaple::DeviceMaple(CypressInterface* usb) : Device(usb, kMapleRecord), m_tuner(usb->MapleRev()) {
    m_settings = new SettingsMaple();
    m_corr.reset(new CorrectionsMaple(usb->MapleRev()));
}

DeviceMaple::~DeviceMaple() { Abort(); }

Settings* DeviceMaple::NewSettings() const { return new SettingsMaple(); }

qsStatus DeviceMaple::OpenDevice() {
    InitDevice();
    const qsStatus sweep = InitializationSweep();
    if (sweep < 0) return sweep;
    const qsStatus status = InitCorrections();
    m_oscRatio = CalibratedOscRatio();
    ConfigurePortIO(0, 0, true);
    return status;
}

qsStatus DeviceMaple::InitializationSweep() {
    // One default sweep before the calibration is read: it brings the
    // monitor values in (the temperature above all, which the gain choice of
    // the first real measurement needs) and proves the data path.
    SettingsMaple defaults;
    qsStatus status = Initiate(&defaults, QS_MODE_SWEEP, 0);
    if (status >= 0) {
        std::vector<double> min(static_cast<size_t>(m_sweepInfo.traceLen));
        std::vector<double> max(min.size());
        status = GetSweep(min.data(), max.data());
    }
    Abort();
    return status;
}

qsStatus DeviceMaple::InitCorrections() { return LoadCalibration(load_calibration_maple); }

qsStatus DeviceMaple::AddTimebaseCorrection(double ppm) {
    if (!PlausibleTimebaseError(ppm)) return qsInvalidParameterErr;
    if (GetMode() != QS_MODE_IDLE) return qsDeviceNotIdleErr;
    add_timebase_correction_maple(
        CorrMaple(), ppm,
        [this](int page, const unsigned char* data) { WriteFlash(static_cast<unsigned>(page), data); });
    return qsNoError;
}

qsStatus DeviceMaple::ApplyRoughGains(const unsigned char* low, const unsigned char* high) {
    if (!low || !high) return qsNullPtrErr;
    CorrMaple().SetRoughGains(low, high);
    return qsNoError;
}

CorrectionsMaple& DeviceMaple::CorrMaple() { return static_cast<CorrectionsMaple&>(*m_corr); }

}  // namespace qs
