// The mode set-ups, written once for both models: each plans with the
// pure functions of src/planning over the model's record and tuner, lets
// the calibration solve gains and build the correction array, lays the
// command out, builds the engine, and only then starts the device.
//
// They run on the caller's thread inside Initiate, after Abort destroyed
// the previous engine, so they have the plan, the command block and the
// calibration to themselves.
#include <unistd.h>

#include <cmath>
#include <exception>
#include <stdexcept>

#include "device/device.h"
#include "engines/engine_audio_fast.h"
#include "engines/engine_narrow.h"
#include "engines/engine_realtime_image.h"
#include "settings/settings.h"

namespace qs {

RowGain Device::GainOf(int row) { return {m_corr->GetGain(row), m_corr->GetAtten(row)}; }

void Device::SetupSweepCommand() {
    BuildSweepCommand(m_sweepInfo, rps, GetTuner(), m_settings->m_imageReject, m_portMask,
                      [this](int row) { return GainOf(row); }, m_cmd);
    m_corr->FillRoughGains(m_cmd.roughCorrArray, m_sweepInfo.patchInfo);
}

void Device::SetupStreamCommand(double center, bool lowBand) {
    m_usb->WaitUntilSent();
    BuildStreamCommand(m_sweepInfo, GetTuner(), center, lowBand, m_portMask,
                       [this](int row) { return GainOf(row); }, m_cmd);
    m_corr->FillRoughGains(m_cmd.roughCorrArray, m_sweepInfo.patchInfo);
}

qsStatus Device::ConfigureSweepMode(unsigned flag) {
    if ((flag & QS_SWEEP_FLAG_BAND_ZERO_ONLY) && m_model.lowBandRawSweep) return ConfigureLowBandRawSweep();

    const Settings& set = *m_settings;
    SweepInfo& si = m_sweepInfo;
    NarrowTuning narrow;
    const qsStatus planned = PlanSweep(set, m_model, GetTuner(), m_oscRatio, si, rps, narrow);
    if (planned != qsNoError) return planned;
    // Refused at once rather than after seconds of paging.
    const double memory = double(sysconf(_SC_PHYS_PAGES)) * double(sysconf(_SC_PAGESIZE));
    if (!SweepFitsInMemory(si, memory)) return qsAllocationLimitErr;

    try {
        m_corr->Configure(m_readings.celcius.load(), set, si);
        SetupSweepCommand();
        if (si.dsRatio > 1) {
            const Patch& first = si.patchInfo[0];
            PlanNarrowCentres(m_model, first, narrow, si);
        }
        m_corr->BuildCorrectionArray(m_settings, &si, false);
        if (si.dsRatio > 1)
            m_engine.reset(new NarrowSweep(&m_sweepInfo, m_settings));
        else
            m_engine.reset(new SweepEngine(&m_sweepInfo, m_settings, &rps));
    } catch (const std::exception&) {
        m_engine.reset();
        return qsAllocationLimitErr;
    }
    m_mode = QS_MODE_SWEEP;
    return qsNoError;
}

qsStatus Device::ConfigureLowBandRawSweep() {
    // No correction array is built: the trace shows the levels at the
    // converter.
    rps.m_residualCount = 0;
    PlanLowBandRawSweep(*m_settings, m_oscRatio, m_sweepInfo);
    try {
        m_corr->Configure(m_readings.celcius.load(), *m_settings, m_sweepInfo);
        SetupSweepCommand();
        m_engine.reset(new LowBandRawSweep(&m_sweepInfo, m_settings));
    } catch (const std::exception&) {
        return qsAllocationLimitErr;
    }
    m_mode = QS_MODE_SWEEP;
    return qsNoError;
}

qsStatus Device::ConfigureRealTime() {
    Settings& set = *m_settings;
    SweepInfo& si = m_sweepInfo;
    double lo = 0.0;
    const qsStatus planned = PlanRealTime(set, m_model, m_oscRatio, si, &lo);
    if (planned != qsNoError) return planned;
    rps.m_residualCount = 0;

    try {
        m_corr->Configure(m_readings.celcius.load(), set, si);
        SetupStreamCommand(lo, false);
        VecDouble list;
        m_corr->BuildIFCorrectionArray(m_settings, &si, list);
        if (!set.m_logScale)
            for (double& v : list) v = std::pow(10.0, 0.05 * v);
        // The engine exists before the stream starts: data come at once.
        m_engine.reset(new RealTimeImageEngine(m_settings, &m_sweepInfo, list));
    } catch (const std::exception&) {
        m_engine.reset();
        return qsAllocationLimitErr;
    }
    m_mode = QS_MODE_REAL_TIME;
    AddCommand();
    return qsNoError;
}

qsStatus Device::ConfigureIQ(unsigned flag) {
    m_timeStamp = (flag & QS_STREAM_FLAG_TIME_STAMP) && (m_portMask & QS_PORT_TRIGGER_IN);
    SweepInfo& si = m_sweepInfo;
    bool low = false;
    const double lo = PlanStream(*m_settings, m_model, m_oscRatio, si, &low);
    rps.m_residualCount = 0;
    // The low band alone is asked for by flag, where the model has one, and
    // then streams raw as the direct flag asks.
    const bool lowBandFlag = (flag & QS_STREAM_FLAG_BAND_ZERO) && m_model.directIQTopHz > 0.0;
    const bool lowBand = low || lowBandFlag;
    const bool raw = (flag & QS_STREAM_FLAG_DIRECT) || lowBandFlag;

    try {
        m_corr->Configure(m_readings.celcius.load(), *m_settings, si);
        SetupStreamCommand(lo, lowBand);
        VecDouble list;
        if (low)
            m_corr->BuildDirectCorrectionArray(list, m_settings->m_center);
        else
            m_corr->BuildIFCorrectionArray(m_settings, &si, list);
        for (double& v : list) v = std::pow(10.0, 0.05 * v);
        if (raw)
            m_engine.reset(new DirectStream(m_settings, &si));
        else
            m_engine.reset(new IQStream(m_settings, &si, list, iqBuffer));
    } catch (const std::invalid_argument&) {
        // The filters refuse a band they cannot make: an I/Q bandwidth that
        // was never configured (0 Hz) is one.
        m_engine.reset();
        return qsInvalidParameterErr;
    } catch (const std::exception&) {
        m_engine.reset();
        return qsAllocationLimitErr;
    }
    // The stream exists before the command: data come at once.
    AddCommand();
    m_mode = QS_MODE_STREAMING;
    return qsNoError;
}

qsStatus Device::ConfigureAudioDemod() {
    Settings& set = *m_settings;
    SweepInfo& si = m_sweepInfo;
    const double lo = PlanAudio(set, m_model, m_oscRatio, si);
    rps.m_residualCount = 0;

    try {
        m_corr->Configure(m_readings.celcius.load(), set, si);
        SetupStreamCommand(lo, false);
        // Where the tuned row samples directly, the engine mixes the band
        // itself. (Taking the band as direct only below 10 MHz, as first
        // written, left 10 to 16 MHz silent: directly sampled data were
        // treated as an IF.)
        const Patch& patch = si.patchInfo[0];
        m_engine.reset(new AudioEngineFast(lo, set.m_audio, patch.flip_spectrum, patch.direct));
    } catch (const std::exception&) {
        m_engine.reset();
        return qsAllocationLimitErr;
    }
    // Data start to arrive at once: the engine exists before the command.
    AddCommand();
    m_mode = QS_MODE_AUDIO;
    return qsNoError;
}

qsStatus Device::ConfigureTgMode() {
    if (m_firmware_version < TG_MIN_FIRMWARE) return qsNotSupportedErr;
    Settings& set = *m_settings;
    tgCalState = tgNoThruStored;
    rps.m_residualCount = 0;
    const int pointsPerPatch = PlanTgSweep(set, m_sweepInfo);
    // Both passes run the command's one gain (the second command only
    // changes the attenuation), so both passes' corrections are read at that
    // gain. (Read at gains 0 or 2, the Maple's high-range trace read its
    // lower part some 28 dB high.)
    const int gain = set.m_tgPassiveDevice ? 3 : 1;
    const int savedGain = set.m_gain;
    set.m_gain = gain;
    try {
        m_corr->Configure(m_readings.celcius.load(), set, m_sweepInfo);
        BuildTgCommand(m_sweepInfo, GetTuner(), m_model, gain, m_portMask, m_cmd);
        m_corr->FillRoughGains(m_cmd.roughCorrArray, m_sweepInfo.patchInfo);
        m_secCmd = SecondaryTgCommand(m_cmd, m_model);
        m_corr->BuildQSTGCorrectionArray(m_settings, &m_sweepInfo, pointsPerPatch, gain, m_model.tgPrimaryAttenIndex);
        std::unique_ptr<TGSweepEngine> tg(
            new TGSweepEngine(&m_sweepInfo, m_settings, &m_generator, &tgCalState, this, m_model.tgPeaks));
        tg->LoadPriCorrData(m_corr->GetCorrections());
        m_corr->BuildQSTGCorrectionArray(m_settings, &m_sweepInfo, pointsPerPatch, gain,
                                         m_model.tgSecondaryAttenIndex);
        tg->LoadSecCorrData(m_corr->GetCorrections());
        set.m_gain = savedGain;
        tg->Start();
        m_engine = std::move(tg);
    } catch (const std::exception&) {
        m_engine.reset();
        set.m_gain = savedGain;
        return qsAllocationLimitErr;
    }
    m_mode = QS_MODE_TG_SWEEP;
    return qsNoError;
}

}  // namespace qs
