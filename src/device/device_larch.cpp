#include "device/device_larch.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <stdexcept>

#include <unistd.h>

#include "calibration/corrections_larch.h"
#include "dsp/qs_lib.h"
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

constexpr double kSampleRate = 80e6;
constexpr double kPacketSeconds = 0.000234;  // a packet's duration as planning counts it
constexpr double kLOUnit = 100000.0;         // LO words count 100 kHz (LO1 200 kHz above band 1)
constexpr double kNarrowGrid = 400000.0;     // the LO grid of a narrow sweep
constexpr double kResidualIFCenter = 10000000.0;
// Streaming modes tune the LO to multiples of 400 kHz; a centre this close
// to a residual spur is corrected as a residual step.
constexpr double kStreamGrid = 400000.0;
constexpr double kStreamResidualReach = 9900000.0;
// Real-time limits, both ends included.
constexpr double kRealTimeMinSpan = 200000.0;
constexpr double kRealTimeMaxSpan = 20000000.0;
constexpr double kRealTimeMinRBW = 2465.820313;
constexpr double kRealTimeMaxRBW = 631250.0;
constexpr double kRealTimeMinSweepTime = 0.001;

// Receiver settings of the two passes. The attenuation index picks the
// calibration curves, the code (in dB) goes into the command.
constexpr int kTgPriAttenIndex = 3;
constexpr uint8_t kTgPriAttenCode = 30;
constexpr int kTgSecAttenIndex = 1;
constexpr uint8_t kTgSecAttenBits = 20;  // 10 dB, doubled, in the low six bits of byte 3

}  // namespace

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

DeviceLarch::DeviceLarch(CypressInterface* usb) : Device(usb) {
    m_settings = new SettingsLarch();
    m_corr.reset(new CorrectionsLarch());
}

DeviceLarch::~DeviceLarch() { Abort(); }

CorrectionsLarch& DeviceLarch::CorrLarch() { return static_cast<CorrectionsLarch&>(*m_corr); }

SweepEngine_Larch* DeviceLarch::CalEngine() { return static_cast<SweepEngine_Larch*>(m_fft.get()); }

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
        m_fft.reset(new SweepEngine_Larch(&m_sweepInfo, m_settings, &rps));
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
        CalEngine()->GetCalSweep(c + side * CAL_STEPS);
    }
    const double offset = self_cal_if_offset(c);
    m_corr->SetSelfCalConstants(c);
    m_sweepInfo.idealIFOffset = offset;
    Abort();
    return qsNoError;
}

qsStatus DeviceLarch::ConfigureSweepMode(unsigned) {
    const Settings& set = *m_settings;
    SweepInfo& si = m_sweepInfo;
    if (set.m_rbw > set.m_span) return qsBandwidthErr;

    get_fft_size(m_settings, si.fftSize, si.zeroPadAmount);
    const int fftSize = si.fftSize;
    const int q = fftSize / 4;  // 20 MHz of bins, and the step between transforms
    const double bin0 = kSampleRate / fftSize;

    // Samples the video bandwidth needs: enough transforms, a quarter
    // apart, to cover the video filter's time. The clamp only guards
    // against a corrupt record.
    const double transforms = std::ceil(1.0 / ((fftSize / 3.2e8) * set.m_vbw));
    const int64_t v = transforms < 1e9 ? static_cast<int64_t>(transforms) : int64_t{1000000000};
    const int need = static_cast<int>(std::min<int64_t>(fftSize + (v - 1) * q, INT32_MAX));

    si.binSize = bin0 * m_oscRatio;
    si.traceLen = round_to_int(set.m_span / si.binSize);

    int dsRatio = 1;
    if (set.m_span < 25100.0 && bin0 < 25.0)
        dsRatio = 256;
    else if (set.m_span < 499000.0 && bin0 < 400.0)
        dsRatio = 16;
    si.dsRatio = dsRatio;

    // Wide sweeps centre their patches on the middle of the IF band that
    // the self-calibration measured; a narrow sweep tunes its own centre.
    si.IFOffset = dsRatio > 1 ? 0 : round_to_int(q * si.idealIFOffset);
    si.IFOffsetFraction = static_cast<double>(si.IFOffset) / q;
    const double shift = si.IFOffsetFraction * 2e7;

    // The plan works in nominal frequency; the time base maps it back.
    const double s = (set.m_start - shift) / m_oscRatio;
    const double e = (set.m_stop - shift) / m_oscRatio;

    double step;
    const double half = 10000000.0;
    if (dsRatio > 1) {
        si.step100kSize = 4;
        step = kNarrowGrid;
    } else if (set.m_imageReject) {
        si.step100kSize = 100;
        step = 10000000.0;
    } else {
        si.step100kSize = 200;
        step = 20000000.0;
    }

    rps.m_residualCount = 0;

    double f0;  // nominal frequency of the first bin of the first patch
    int k = 0;  // narrow: the first centre on the 400 kHz LO grid
    int m = 0;  // narrow: the wanted centre, kHz
    if (dsRatio > 1) {
        const double c = std::floor(((s + e) * 0.5) / 1000.0) * 1000.0;
        k = round_to_int(c / kNarrowGrid);
        m = round_to_int(c / 1000.0);
        si.initialCenter = k * kNarrowGrid;
        f0 = m * 1000.0 - half / dsRatio;
    } else if (set.m_imageReject) {
        si.initialCenter = std::floor(s / 10000000.0) * 10000000.0;
        f0 = si.initialCenter + si.IFOffset * bin0;
    } else {
        const double grid = set.m_fullScale ? 10000000.0 : 20000000.0;
        si.initialCenter = std::floor((10000000.0 + s) / grid) * grid;
        f0 = si.initialCenter - half + si.IFOffset * bin0;
    }

    // A spur strictly above the start and not above the stop gets a step
    // of its own; a narrow sweep stays clear of them.
    if (dsRatio == 1) {
        for (int row = 0; row < LARCH_RESIDUAL_ROWS; ++row) {
            const double at = residualLarch[row].RFWriteCtr;
            if (at <= set.m_start) continue;
            if (at > set.m_stop) break;
            if (rps.m_residualCount >= ResidualInfo::MAX_RESIDUALS) break;
            rps.m_residualID[rps.m_residualCount] = row;
            rps.m_residualCount += 1;
        }
    }

    double x = si.initialCenter;
    if (!set.m_imageReject) x += step * 0.5;
    int stepCount = static_cast<int>(std::ceil((e - x) / step)) + 1 + rps.m_residualCount;

    int t = round_to_int(set.m_sweepTime / stepCount / kPacketSeconds);
    if (t < 1) t = 1;

    int p = static_cast<int>(std::ceil(static_cast<float>(need) / static_cast<float>(QS_SAMPLES_PER_PACKET)));
    if (p < 1) p = dsRatio > 1 ? 32 : 1;
    if (dsRatio > 1 && p < 24) p = 32;
    if (set.m_rbw < 800.0) p += 4;

    const double f1 = f0 * m_oscRatio;
    si.firstPatchSkipCnt = static_cast<int>(std::floor((set.m_start - f1) / si.binSize + 0.5));
    si.actualStart = si.firstPatchSkipCnt * si.binSize + f1;

    // Rounding can put the trace's last point a bin past the last patch
    // (a span that ends on a patch edge); one more step then measures it,
    // where the trace would otherwise read past its data.
    if (dsRatio == 1 && !set.m_imageReject)
        while (si.firstPatchSkipCnt + si.traceLen > (stepCount - rps.m_residualCount) * q) ++stepCount;

    int ppf = std::max(p, t);
    solve_ppf_step(&ppf, &stepCount);
    si.ppf = ppf;
    si.stepCount = stepCount;
    si.chunkSize = ppf * QS_SAMPLES_PER_PACKET;

    if (dsRatio > 1) {
        si.stepCount = set.m_imageReject ? 2 : 1;
        // No row is flipped: the IF sees the wanted centre this far above
        // its middle, and 400 kHz lower at the second look.
        const int d = m - 400 * k;
        si.narrow_center[0] = d + 20000;
        si.narrow_center[1] = d + 19600;
    }

    if (!SweepPlanFitsInMemory()) return qsAllocationLimitErr;
    try {
        m_corr->Configure(m_readings.celcius.load(), set, si);
        SetupCommand();
        m_corr->BuildCorrectionArray(m_settings, &si, false);
        if (dsRatio > 1)
            m_dsfft.reset(new NarrowSweep(&m_sweepInfo, m_settings));
        else
            m_fft.reset(new SweepEngine_Larch(&m_sweepInfo, m_settings, &rps));
    } catch (const std::exception&) {
        m_fft.reset();
        m_dsfft.reset();
        return qsAllocationLimitErr;
    }
    m_mode = QS_MODE_SWEEP;
    return qsNoError;
}

int DeviceLarch::SetupCommand() {
    SweepInfo& si = m_sweepInfo;

    m_cmd.headerType = QS_CMD_CONFIGURE;
    m_cmd.commandType = QS_CFG_SWEEP;
    si.activeBandCnt = 0;

    s3Ctrl_t s{};
    s.stream = 0;
    set_packet_size(s, si.ppf);

    const int length = si.fftSize / (si.dsRatio * 4);
    // Only a corrupt record could start above the top row.
    int row = std::min(get_software_band_Larch(si.initialCenter), LARCH_LO_ROWS - 1);
    si.initialBand = row;
    double freq = si.initialCenter;
    const double stepHz = si.step100kSize * 100000.0;

    subBand_t bands[QS_MAX_SUBBANDS];
    std::memset(bands, 0, sizeof bands);
    int used = 0;

    // The residual steps come first: one sub-band and one patch each, read
    // with their own LO pair.
    for (int k = 0; k < rps.m_residualCount && used < QS_MAX_SUBBANDS; ++k) {
        const RPLUT& r = residualLarch[rps.m_residualID[k]];
        subBand_t& sb = bands[used++];
        s.band = static_cast<int8_t>(r.band);
        const int b = std::min(get_software_band_Larch(r.RFReadCtr), LARCH_LO_ROWS - 1);
        s.gain = m_corr->GetGain(b);
        s.atten = m_corr->GetAtten(b);
        sb.LO1startFreq = static_cast<uint16_t>(
            round_to_int(s.band > 1 ? 0.5 * r.LO1 * 1e-5 : r.LO1 * 1e-5));
        sb.LO1stepFreq = 1;
        sb.LO2Freq = static_cast<uint16_t>(round_to_int(r.LO2 * 1e-5));
        sb.packetsPerFreq = static_cast<uint16_t>(si.ppf);
        sb.stepCount = 1;
        PackSettings(&s, sb.settings);

        Patch patch;
        patch.length = length;
        patch.band = b;
        patch.if_offset = si.IFOffset;
        patch.center_freq = r.RFReadCtr;
        patch.if_center = kResidualIFCenter;
        patch.flip_spectrum = false;
        si.patchInfo.Append(patch);

        rps.m_residualLocation[k] =
            rps.m_residualCount + round_to_int((r.RFWriteCtr - si.initialCenter) / stepHz);
    }

    // Then one sub-band per LO row, walked in order: on the plan's grids
    // the step after a row's top edge lies in the next row.
    int remaining = si.stepCount - rps.m_residualCount;
    while (remaining > 0 && used < QS_MAX_SUBBANDS) {
        const bool topRow = row == LARCH_LO_ROWS - 1;
        const LOLUTLarch& lut = lolutLarch[row];
        subBand_t& sb = bands[used++];
        si.activeBandCnt += 1;
        s.band = static_cast<int8_t>(lut.band);
        s.gain = m_corr->GetGain(row);
        s.atten = m_corr->GetAtten(row);

        SetOscillatorWords(sb, lut, freq);
        sb.packetsPerFreq = static_cast<uint16_t>(si.ppf);

        // The steps up to and including the row's top edge. The top row
        // takes whatever remains, so every step has a sub-band.
        int n = static_cast<int>(std::max((lut.maxRF - freq) / si.step100kSize / 100000.0 + 1.0, 0.0));
        n = topRow ? remaining : std::min(n, remaining);
        sb.stepCount = static_cast<uint16_t>(n);
        if (sb.stepCount == 0) sb.stepCount = 1;
        PackSettings(&s, sb.settings);

        for (int i = 0; i < sb.stepCount; ++i) {
            Patch patch;
            patch.length = length;
            patch.band = row;
            patch.if_offset = si.IFOffset;
            patch.center_freq = freq;
            patch.if_center = 0.0;
            patch.flip_spectrum = false;
            si.patchInfo.Append(patch);
            freq += stepHz;
        }
        remaining -= sb.stepCount;
        row += 1;
    }

    m_cmd.subBandCount = static_cast<uint16_t>(used);
    std::memcpy(m_cmd.subBandArray, bands, sizeof(subBand_t) * static_cast<size_t>(used));
    return 0;
}

qsStatus DeviceLarch::ConfigureRealTime(unsigned) {
    Settings& set = *m_settings;
    SweepInfo& si = m_sweepInfo;
    if (!(set.m_span >= kRealTimeMinSpan && set.m_span <= kRealTimeMaxSpan)) return qsInvalidParameterErr;
    if (!(set.m_rbw >= kRealTimeMinRBW && set.m_rbw <= kRealTimeMaxRBW)) return qsInvalidParameterErr;
    if (set.m_sweepTime < kRealTimeMinSweepTime) set.m_sweepTime = kRealTimeMinSweepTime;

    // The zero padding is set here as on the Maple: left as the previous
    // plan had it, a narrow sweep's padding (larger than this transform's
    // window) made every frame after it read -inf.
    get_fft_size(m_settings, si.fftSize, si.zeroPadAmount);
    si.stepCount = 1;
    si.step100kSize = 0;
    si.dsRatio = 1;
    si.IFOffsetFraction = 0.0;
    rps.m_residualCount = 0;
    si.binSize = (kSampleRate / si.fftSize) * m_oscRatio;
    si.traceLen = calculateBestRealTimeSweepSize(round_to_int(set.m_span / si.binSize));

    const double g = round_to_int(set.m_center / kStreamGrid) * kStreamGrid;
    const double delta = set.m_center - g;
    si.initialCenter = g * m_oscRatio;
    si.IFOffset = round_to_int(delta / si.binSize);
    si.actualStart = si.initialCenter + si.IFOffset * si.binSize -
                     round_to_int(0.5 * set.m_span / si.binSize) * si.binSize;

    try {
        m_corr->Configure(m_readings.celcius.load(), set, si);
        SetupRealTimeCommand(g);
        VecDouble list;
        m_corr->BuildIFCorrectionArray(m_settings, &si, list);
        if (!set.m_logScale)
            for (double& v : list) v = std::pow(10.0, 0.05 * v);
        // The engine exists before the stream starts: data come at once.
        m_rtie.reset(new RealTimeImageEngine(m_settings, &m_sweepInfo, list, false));
    } catch (const std::exception&) {
        m_rtie.reset();
        return qsAllocationLimitErr;
    }
    m_mode = QS_MODE_REAL_TIME;
    AddCommand();
    return qsNoError;
}

qsStatus DeviceLarch::ConfigureIQ(unsigned flag) {
    m_timeStamp = (flag & QS_STREAM_FLAG_TIME_STAMP) && (m_portMask & QS_PORT_TRIGGER_IN);
    SweepInfo& si = m_sweepInfo;
    si.traceLen = 512;
    si.fftSize = 4096;
    si.binSize = 19531.25;
    si.dsRatio = 1;
    si.firstPatchSkipCnt = 0;
    si.step100kSize = 200;
    si.stepCount = 1;
    si.actualStart = 0.0;
    si.mapleBandZeroIQ = false;
    m_settings->m_logScale = false;

    const double c = m_settings->m_center / m_oscRatio;
    const double g = round_to_int(c / kStreamGrid) * kStreamGrid;
    si.if_offset_hz = c - g;
    si.IFOffsetFraction = si.if_offset_hz / 2e7;
    si.IFOffset = round_to_int(si.fftSize * si.IFOffsetFraction * 0.25);
    rps.m_residualCount = 0;

    try {
        m_corr->Configure(m_readings.celcius.load(), *m_settings, si);
        SetupRealTimeCommand(g);
        // Linear already: the log scale is off.
        VecDouble list;
        m_corr->BuildIFCorrectionArray(m_settings, &si, list);
        if (flag & QS_STREAM_FLAG_DIRECT)
            m_stream.reset(new DirectStream(m_settings, &si));
        else
            m_stream.reset(new IQStream(m_settings, &si, list, iqBuffer));
    } catch (const std::invalid_argument&) {
        // The filters refuse a band they cannot make: an I/Q bandwidth that
        // was never configured (0 Hz) is one.
        m_stream.reset();
        return qsInvalidParameterErr;
    } catch (const std::exception&) {
        m_stream.reset();
        return qsAllocationLimitErr;
    }
    // The stream exists before the command: data come at once.
    AddCommand();
    m_mode = QS_MODE_STREAMING;
    return qsNoError;
}

qsStatus DeviceLarch::ConfigureAudioDemod() {
    constexpr double kAudioSpan = 20000000.0;
    Settings& set = *m_settings;
    SweepInfo& si = m_sweepInfo;
    set.SetSpan(kAudioSpan);
    si.traceLen = 1024;
    si.fftSize = 4096;
    si.binSize = 19531.25;
    si.dsRatio = 1;
    si.firstPatchSkipCnt = 0;
    si.step100kSize = 200;
    si.IFOffset = 0;
    si.chunkSize = QS_BLOCK_SAMPLES;

    const double g = round_to_int(set.m_audio.freq / m_oscRatio / kStreamGrid) * kStreamGrid;
    set.SetCenter(g);
    si.initialCenter = g;
    set.SetStart(g - 0.5 * set.Span());
    set.SetStop(g + 0.5 * set.Span());
    rps.m_residualCount = 0;
    si.actualStart = set.Start() * m_oscRatio;

    try {
        m_corr->Configure(m_readings.celcius.load(), set, si);
        SetupRealTimeCommand(set.Center());
        // No row is mirrored and none is sampled directly.
        m_dme.reset(new AudioEngineFast(set.Center(), set.m_audio, false, false));
    } catch (const std::exception&) {
        m_dme.reset();
        return qsAllocationLimitErr;
    }
    // Data start to arrive at once: the engine exists before the command.
    AddCommand();
    m_mode = QS_MODE_AUDIO;
    return qsNoError;
}

int DeviceLarch::SetupRealTimeCommand(double center) {
    m_usb->WaitUntilSent();
    SweepInfo& si = m_sweepInfo;
    const int row = std::min(get_software_band_Larch(center), LARCH_LO_ROWS - 1);
    const LOLUTLarch& lut = lolutLarch[row];

    m_cmd.headerType = QS_CMD_CONFIGURE;
    m_cmd.commandType = QS_CFG_STREAM;
    m_cmd.subBandCount = 1;

    s3Ctrl_t s{};
    s.stream = 1;
    s.band = static_cast<int8_t>(lut.band);
    s.gain = m_corr->GetGain(row);
    s.atten = m_corr->GetAtten(row);
    s.pktsz = 4;

    si.initialBand = row;
    si.activeBandCnt = 1;

    // Near a residual spur both oscillators move up by the residual steps'
    // IF shift, as a sweep's residual step does, so that the spur leaves
    // the band; the corrections then read the IF table for that shift.
    // (The written set-up read the table as if moved but left the words
    // where they were, and the spur stood 35 dB over the floor.)
    si.secondLOOffset = 0.0;
    double ifCenter = 0.0;
    for (const RPLUT& r : residualLarch) {
        if (std::fabs(center - r.RFWriteCtr) <= kStreamResidualReach) {
            si.secondLOOffset = kResidualIFCenter;
            ifCenter = kResidualIFCenter;
            break;
        }
    }

    subBand_t sb{};
    int lo1 = round_to_int((center + lut.lo1c + si.secondLOOffset) / kLOUnit);
    if (lut.band > 1) lo1 /= 2;  // 200 kHz units in bands 2 and 3
    sb.LO1startFreq = static_cast<uint16_t>(lo1);
    sb.LO2Freq = static_cast<uint16_t>(round_to_int((lut.lo2c + si.secondLOOffset) / kLOUnit));
    sb.LO1stepFreq = 200;
    sb.packetsPerFreq = 16;
    sb.stepCount = 4096;

    Patch patch;
    patch.length = si.fftSize / 4;
    patch.band = row;
    patch.if_offset = si.IFOffset;
    patch.center_freq = center;
    patch.if_center = ifCenter;
    patch.flip_spectrum = false;
    si.patchInfo.Append(patch);

    PackSettings(&s, sb.settings);
    std::memcpy(&m_cmd.subBandArray[0], &sb, sizeof sb);
    return 0;
}

void DeviceLarch::SetOscillatorWords(subBand_t& sb, const LOLUTLarch& lut, double freq) const {
    const SweepInfo& si = m_sweepInfo;
    // Bands 2 and 3 count their first oscillator in 200 kHz.
    const double w = std::floor((freq + lut.lo1c + si.secondLOOffset) / kLOUnit + 0.5);
    if (lut.band > 1) {
        sb.LO1stepFreq = static_cast<int16_t>(si.step100kSize / 2);
        sb.LO1startFreq = static_cast<uint16_t>(static_cast<int>(w / 2));
    } else {
        sb.LO1stepFreq = static_cast<int16_t>(si.step100kSize);
        sb.LO1startFreq = static_cast<uint16_t>(w);
    }
    sb.LO2Freq = static_cast<uint16_t>(std::floor((lut.lo2c + si.secondLOOffset) / kLOUnit + 0.5));
}

qsStatus DeviceLarch::ConfigureTgMode(unsigned) {
    if (m_firmware_version < TG_MIN_FIRMWARE) return qsNotSupportedErr;
    const int P = PlanTgSweep();
    // Both passes keep the gain; only the attenuation differs.
    const int passGain = m_settings->m_tgPassiveDevice ? 3 : 1;
    return StartTgSweep(P, passGain, kTgPriAttenIndex, passGain, kTgSecAttenIndex, true);
}

int DeviceLarch::SetupTGCommand() {
    SweepInfo& si = m_sweepInfo;
    s3Ctrl_t s{};
    s.atten = kTgPriAttenCode;
    s.gain = m_settings->m_tgPassiveDevice ? 3 : 1;
    s.stream = 0;
    set_packet_size(s, si.ppf);

    m_cmd.headerType = QS_CMD_CONFIGURE;
    m_cmd.commandType = QS_CFG_TG_SWEEP;
    m_cmd.TGCountPerPatch = static_cast<uint16_t>(std::floor(TG_PATCH_HZ / si.binSize + 0.5));
    m_cmd.TGstartingIndex = static_cast<uint16_t>(si.tgInitialCount);
    si.activeBandCnt = 0;

    double freq = si.initialCenter;
    int row = freq < 15000000.0 ? 0 : std::min(get_software_band_Larch(freq), LARCH_LO_ROWS - 1);
    si.initialBand = row;

    const double stepHz = si.step100kSize * 100000.0;
    subBand_t bands[QS_MAX_SUBBANDS];
    std::memset(bands, 0, sizeof bands);
    int done = 0;
    while (done < si.stepCount && si.activeBandCnt < QS_MAX_SUBBANDS) {
        const bool topRow = row == LARCH_LO_ROWS - 1;
        const LOLUTLarch& lut = lolutLarch[row];
        subBand_t& sb = bands[si.activeBandCnt];
        si.activeBandCnt += 1;
        s.band = static_cast<int8_t>(lut.band);
        SetOscillatorWords(sb, lut, freq);
        sb.packetsPerFreq = static_cast<uint16_t>(si.ppf);
        int n = static_cast<int>(std::max((lut.maxRF - freq) / si.step100kSize / 100000.0 + 1.0, 0.0));
        n = topRow ? si.stepCount - done : std::min(n, si.stepCount - done);
        if (n == 0) n = 1;
        // The device reads ppf packets per generator point, so a sub-band
        // counts the points of its LO steps; the first step starts
        // TGstartingIndex points in.
        int points = n * m_cmd.TGCountPerPatch;
        if (done == 0) points -= si.tgInitialCount;
        sb.stepCount = static_cast<uint16_t>(points);
        PackSettings(&s, sb.settings);
        for (int i = 0; i < n; ++i) {
            Patch patch;
            patch.length = si.fftSize / 4;
            patch.band = row;
            patch.center_freq = freq;
            patch.if_center = 0.0;
            patch.flip_spectrum = false;
            patch.if_offset = si.IFOffset;
            si.patchInfo.Append(patch);
            done += 1;
            freq += stepHz;
        }
        row = std::min(row + 1, LARCH_LO_ROWS - 1);
    }

    m_cmd.subBandCount = static_cast<uint16_t>(si.activeBandCnt);
    const int copied = std::min<int>(m_cmd.subBandCount, QS_MAX_SUBBANDS);
    std::memcpy(m_cmd.subBandArray, bands, sizeof(subBand_t) * static_cast<size_t>(copied));

    // The secondary pass differs only in its attenuation.
    m_secCmd = m_cmd;
    for (int i = 0; i < copied; ++i) {
        uint8_t* b3 = &bands[i].settings[3];
        *b3 = static_cast<uint8_t>((*b3 & ~0x3F) | kTgSecAttenBits);
    }
    std::memcpy(m_secCmd.subBandArray, bands, sizeof(subBand_t) * static_cast<size_t>(copied));
    return 0;
}

void DeviceLarch::PackSettings(const s3Ctrl_t* s, uint8_t* settings) const {
    uint8_t mode;
    if (s->stream)
        mode = 0;
    else if (s->pktsz_x3d2)
        mode = 3;
    else
        mode = 1;
    settings[0] = static_cast<uint8_t>(mode | (m_portMask & 0xFF));
    settings[1] = static_cast<uint8_t>(s->pktsz << 4);

    const int band = s->band;
    int b3 = 0;
    if (s->gain > 2) b3 |= 0x80;
    if (band >= 0) b3 |= 0x40;
    b3 += s->atten * 2;
    settings[3] = static_cast<uint8_t>(b3);

    int b2;
    switch (band) {
        case 0: b2 = 0x89; break;
        case 1: b2 = 0x48; break;
        case 2: b2 = 0x9A; break;
        case 3: b2 = 0x5A; break;
        default: b2 = 0x09; break;
    }
    if (s->gain > 1) b2 ^= band < 1 ? 0x08 : 0x04;
    if (s->gain == 0) b2 += 0x20;
    if (band < 0) b2 |= 0x20;
    settings[2] = static_cast<uint8_t>(b2);
}

}  // namespace qs
