#include "device/device_maple.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <vector>

#include <unistd.h>

#include "calibration/corrections_maple.h"
#include "dsp/qs_lib.h"
#include "settings/settings.h"

namespace qs {

namespace {

constexpr double kSampleRate = 80e6;
constexpr double kPacketSeconds = 0.000234;  // a packet's duration as planning counts it
constexpr double kLO1Unit = 400000.0;        // LO1 words count 400 kHz
constexpr double kLO2Unit = 5000000.0;       // LO2 words count 5 MHz
// Row 8 of the wide plan runs its first oscillator 1.6 MHz high and keeps
// the slice that moved with it.
constexpr double kRow8LO1Add = 1600000.0;
constexpr int kRow8 = 8;
// Streaming modes tune the LO to multiples of 800 kHz; IQ centres below
// 16 MHz stream the low band directly.
constexpr double kStreamGrid = 800000.0;
constexpr double kBandZeroIQTop = 16000000.0;
// Real-time limits, both ends included.
constexpr double kRealTimeMinSpan = 199000.0;
constexpr double kRealTimeMaxSpan = 27001000.0;
constexpr double kRealTimeMinRBW = 2265.820313;
constexpr double kRealTimeMaxRBW = 631450.0;
constexpr double kRealTimeMinSweepTime = 0.001;

// Receiver settings of the two passes. The gain and attenuation index pick
// the calibration curves, the code goes into the command.
constexpr int kTgPriAttenIndex = 2;
constexpr uint8_t kTgPriAttenCode = 20;
constexpr int kTgSecAttenIndex = 0;
// Attenuation index 0 at the gains the mode runs (1 and 3), which add no
// 5 dB (see CorrectionsMaple::GetAtten), and sent as 1 as every zero code
// is (PackSettings): the code that the second pass's corrections describe.
// Code 5 read that pass 5 dB low.
constexpr uint8_t kTgSecAttenCode = 1;

}  // namespace

DeviceMaple::DeviceMaple(CypressInterface* usb)
    : Device(usb), lolutMaple(GetLUTMaple(usb->MapleRev())) {
    m_settings = new SettingsMaple();
    m_corr.reset(new CorrectionsMaple(usb->MapleRev()));
}

DeviceMaple::~DeviceMaple() { Abort(); }

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

bool DeviceMaple::AddTimebaseCorrection(double ppm) {
    return add_timebase_correction_maple(
        CorrMaple(), ppm,
        [this](int page, const unsigned char* data) { WriteFlash(static_cast<unsigned>(page), data); });
}

void DeviceMaple::ApplyRoughGains(const unsigned char* low, const unsigned char* high) {
    CorrMaple().SetRoughGains(low, high);
}

CorrectionsMaple& DeviceMaple::CorrMaple() { return static_cast<CorrectionsMaple&>(*m_corr); }

qsStatus DeviceMaple::ConfigureBandZeroOnlySweep() {
    // The low band at one position, 0 Hz up, raw: no correction array is
    // built, so the trace shows the levels at the converter.
    SweepInfo& si = m_sweepInfo;
    rps.m_residualCount = 0;
    get_fft_size(m_settings, si.fftSize, si.zeroPadAmount);
    si.binSize = (kSampleRate / si.fftSize) * m_oscRatio;
    si.IFOffset = 0;
    si.firstPatchSkipCnt = 0;
    si.initialCenter = 5000000.0;
    si.dsRatio = 1;
    si.traceLen = si.fftSize / 2;
    // The first multiple of 16 packets from 32 up that holds a transform.
    si.ppf = 32;
    si.chunkSize = si.ppf * QS_SAMPLES_PER_PACKET;
    while (si.fftSize > si.chunkSize) {
        si.ppf += 16;
        si.chunkSize += QS_BLOCK_SAMPLES;
    }
    si.stepCount = 1;
    si.actualStart = 0.0;
    si.step100kSize = 200;
    try {
        m_corr->Configure(m_readings.celcius.load(), *m_settings, si);
        SetupCommand();
        m_fft.reset(new BandZeroCalEngine_Maple(&m_sweepInfo, m_settings));
    } catch (const std::exception&) {
        return qsAllocationLimitErr;
    }
    m_mode = QS_MODE_SWEEP;
    return qsNoError;
}

void DeviceMaple::BuildSweepEngine() {
    if (m_sweepInfo.dsRatio > 1)
        m_dsfft.reset(new NarrowSweep(&m_sweepInfo, m_settings));
    else
        m_fft.reset(new SweepEngine_Maple(&m_sweepInfo, m_settings));
}

qsStatus DeviceMaple::ConfigureSweepMode(unsigned flag) {
    if (flag & QS_SWEEP_FLAG_BAND_ZERO_ONLY) return ConfigureBandZeroOnlySweep();

    const Settings& set = *m_settings;
    SweepInfo& si = m_sweepInfo;
    if (set.m_rbw > set.m_span) return qsBandwidthErr;

    get_fft_size(m_settings, si.fftSize, si.zeroPadAmount);
    const int fftSize = si.fftSize;
    const int q = fftSize / 4;  // 20 MHz of bins, and the step between transforms
    const double bin0 = kSampleRate / fftSize;

    // Samples the video bandwidth needs: enough transforms, a quarter
    // apart, to cover the video filter's time. Legal settings keep this
    // well inside an int; the clamp only guards against a corrupt record.
    const double transforms = std::ceil(1.0 / ((fftSize / 3.2e8) * set.m_vbw));
    const int64_t v = transforms < 1e9 ? static_cast<int64_t>(transforms) : int64_t{1000000000};
    const int need = static_cast<int>(std::min<int64_t>(fftSize + (v - 1) * q, INT32_MAX));

    int dsRatio = 1;
    if (set.m_start >= 100000.0) {
        if (set.m_span < 25100.0 && bin0 < 25.0)
            dsRatio = 256;
        else if (set.m_span < 499000.0 && bin0 < 400.0)
            dsRatio = 16;
    }
    si.dsRatio = dsRatio;

    double shift = 0.0;
    if (si.manualIFOffset) {
        si.IFOffsetFraction = si.manualIFOffsetFractionVal;
        shift = 2e7 * si.IFOffsetFraction;
    } else {
        si.IFOffsetFraction = 0.0;
    }
    si.IFOffset = static_cast<int>(q * si.IFOffsetFraction);

    // The plan works in nominal frequency; the time base maps it back.
    const double s = (set.m_start - shift) / m_oscRatio;
    const double e = (set.m_stop - shift) / m_oscRatio;

    double step;
    const double half = 10000000.0;
    if (dsRatio > 1) {
        si.step100kSize = 8;
        step = 800000.0;
    } else if (set.m_imageReject) {
        si.step100kSize = 100;
        step = 10000000.0;
    } else {
        si.step100kSize = 200;
        step = 20000000.0;
    }

    rps.m_residualCount = 0;

    double f0;  // nominal frequency of the first bin of the first patch
    int k = 0;  // narrow: the first centre on the 800 kHz LO grid
    int m = 0;  // narrow: the wanted centre, kHz
    if (dsRatio > 1) {
        const double c = std::floor(((s + e) * 0.5) / 1000.0) * 1000.0;
        si.bandZeroNarrowCenter = c;
        k = round_to_int(c / 800000.0);
        m = round_to_int(c / 1000.0);
        f0 = m * 1000.0 - half / dsRatio;
        si.initialCenter = k * 800000.0;
    } else if (set.m_imageReject) {
        si.initialCenter = std::floor(s / 10000000.0) * 10000000.0;
        f0 = si.initialCenter + si.IFOffset * bin0;
    } else {
        si.initialCenter = std::floor((s + step * 0.5) / 20e6) * 20e6;
        f0 = si.initialCenter - half + si.IFOffset * bin0;
    }

    double x = si.initialCenter;
    if (!set.m_imageReject) x += step * 0.5;
    int stepCount = static_cast<int>(std::ceil((e - x) / step)) + 1;

    int t = round_to_int(set.m_sweepTime / stepCount / kPacketSeconds);
    if (t < 1) t = 1;

    int p = static_cast<int>(std::ceil(static_cast<float>(need) / static_cast<float>(QS_SAMPLES_PER_PACKET)));
    if (p < 1) p = 1;
    if (dsRatio > 1) {
        if (p < 24) p = 32;
        p += 4;
    } else if (set.m_rbw < 800.0) {
        p += 4;
    }

    si.binSize = bin0 * m_oscRatio;
    si.traceLen = round_to_int(set.m_span / si.binSize) + 2;

    const double f1 = f0 * m_oscRatio;
    si.firstPatchSkipCnt = round_to_int((set.m_start - f1) / si.binSize + 0.5) - 1;
    if (si.firstPatchSkipCnt < 0) si.firstPatchSkipCnt = 0;
    si.actualStart = si.firstPatchSkipCnt * si.binSize + f1;

    // The two points past the span can fall beyond the last patch (a span
    // that ends on a patch edge, 2.19 to 2.21 GHz say); one more step then
    // measures them, where the trace would otherwise read past its data.
    if (dsRatio == 1 && !set.m_imageReject)
        while (si.firstPatchSkipCnt + si.traceLen > stepCount * q) ++stepCount;

    int ppf = std::max(p, t);
    solve_ppf_step(&ppf, &stepCount);
    si.ppf = ppf;
    si.stepCount = stepCount;
    si.chunkSize = ppf * QS_SAMPLES_PER_PACKET;

    // A narrow sweep stays at its one LO position (two looks with
    // rejection). Its ppf, at least 36 before the solver, is a multiple of
    // 16 by then, so the shorter pass is still whole blocks.
    if (dsRatio > 1) si.stepCount = set.m_imageReject ? 2 : 1;
    if (!SweepPlanFitsInMemory()) return qsAllocationLimitErr;

    try {
        m_corr->Configure(m_readings.celcius.load(), set, si);
        SetupCommand();
        m_corr->BuildCorrectionArray(m_settings, &si, false);

        if (dsRatio > 1) {
            const Patch& first = si.patchInfo[0];
            int d = m - k * 800;  // kHz from the LO grid to the wanted centre
            int w = 19200;
            if (first.flip_spectrum) {
                d = -d;
                w = 20800;
            }
            if (first.band != 0) {
                si.narrow_center[0] = d + 20000;
                si.narrow_center[1] = d + w;
            } else {
                // The low band samples directly: the RF is the IF.
                si.initialCenter = (s + e) * 0.5;
                si.narrow_center[0] = si.narrow_center[1] = static_cast<int>(si.initialCenter / 1000.0);
            }
        }

        BuildSweepEngine();
    } catch (const std::exception&) {
        return qsAllocationLimitErr;
    }
    m_mode = QS_MODE_SWEEP;
    return qsNoError;
}

qsStatus DeviceMaple::ConfigureRealTime(unsigned) {
    Settings& set = *m_settings;
    SweepInfo& si = m_sweepInfo;
    if (!(set.m_span >= kRealTimeMinSpan && set.m_span <= kRealTimeMaxSpan)) return qsInvalidParameterErr;
    if (!(set.m_rbw >= kRealTimeMinRBW && set.m_rbw <= kRealTimeMaxRBW)) return qsInvalidParameterErr;
    if (set.m_sweepTime < kRealTimeMinSweepTime) set.m_sweepTime = kRealTimeMinSweepTime;

    get_fft_size(m_settings, si.fftSize, si.zeroPadAmount);
    si.stepCount = 1;
    si.step100kSize = 0;
    si.dsRatio = 1;
    si.IFOffsetFraction = 0.0;
    rps.m_residualCount = 0;
    si.binSize = (kSampleRate / si.fftSize) * m_oscRatio;
    si.traceLen = calculateBestRealTimeSweepSize(round_to_int(set.m_span / si.binSize) + 2);

    const double g = round_to_int(set.m_center / kStreamGrid) * kStreamGrid;
    const double delta = set.m_center - g;
    si.initialCenter = g * m_oscRatio;
    si.IFOffset = round_to_int(delta / si.binSize);
    si.actualStart = si.initialCenter + si.IFOffset * si.binSize - (si.traceLen / 2) * si.binSize;

    try {
        m_corr->Configure(m_readings.celcius.load(), set, si);
        SetupRealTimeCommand(g, false);
        VecDouble list;
        m_corr->BuildIFCorrectionArray(m_settings, &si, list);
        if (!set.m_logScale)
            for (double& v : list) v = std::pow(10.0, 0.05 * v);
        // The engine exists before the stream starts: data come at once.
        m_rtie.reset(new RealTimeImageEngine(m_settings, &m_sweepInfo, list, true));
    } catch (const std::exception&) {
        m_rtie.reset();
        return qsAllocationLimitErr;
    }
    m_mode = QS_MODE_REAL_TIME;
    AddCommand();
    return qsNoError;
}

qsStatus DeviceMaple::ConfigureAudioDemod() {
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
        SetupRealTimeCommand(set.Center(), false);
        // Where the tuned row samples directly (row 0, up to 16 MHz), the
        // engine mixes the band itself. The written rule took the band as
        // direct only below 10 MHz: from 10 to 16 MHz the engine then
        // treated directly sampled data as an IF and the audio was silent.
        m_dme.reset(new AudioEngineFast(set.Center(), set.m_audio, si.patchInfo[0].flip_spectrum,
                                        si.patchInfo[0].band == 0));
    } catch (const std::exception&) {
        m_dme.reset();
        return qsAllocationLimitErr;
    }
    // Data start to arrive at once: the engine exists before the command.
    AddCommand();
    m_mode = QS_MODE_AUDIO;
    return qsNoError;
}

int DeviceMaple::SetupCommand() {
    SweepInfo& si = m_sweepInfo;
    const bool imageReject = m_settings->m_imageReject;

    s3Ctrl_t s{};
    s.gain = m_corr->GetGain(-1);
    s.atten = m_corr->GetAtten(-1);
    s.stream = 0;

    m_cmd.headerType = QS_CMD_CONFIGURE;
    m_cmd.commandType = QS_CFG_SWEEP;
    si.activeBandCnt = 0;

    set_packet_size(s, si.ppf);

    double freq = si.initialCenter;
    const int length = si.fftSize / (si.dsRatio * 4);
    // Only a corrupt record could start above the top row.
    int row = std::min(get_band_maple(GetRev(), freq), MAPLE_LO_ROWS - 1);
    si.initialBand = row;

    const double stepHz = si.step100kSize * 100000.0;
    subBand_t bands[QS_MAX_SUBBANDS];
    std::memset(bands, 0, sizeof bands);

    // Rows are walked in order with no new look-up: on the 10 MHz and
    // 20 MHz grids the step after a row's top edge lies in the next row.
    int done = 0;
    while (done < si.stepCount) {
        const bool topRow = row == MAPLE_LO_ROWS - 1;
        const LOLUTMaple& lut = lolutMaple[row];
        subBand_t& sb = bands[si.activeBandCnt];
        si.activeBandCnt += 1;

        const bool row8Shift = !si.manualIFOffset && row == kRow8 && si.dsRatio == 1 && !imageReject;
        const double lo1add = row8Shift ? kRow8LO1Add : 0.0;
        s.band = static_cast<int8_t>(lut.band);
        sb.LO1stepFreq = static_cast<int16_t>(si.step100kSize / 4);
        sb.LO1startFreq =
            static_cast<uint16_t>(round_to_int((freq + lut.lo1c + lo1add + si.secondLOOffset) / kLO1Unit));
        sb.LO2Freq = static_cast<uint16_t>(std::floor((lut.lo2c + si.secondLOOffset) / kLO2Unit + 0.5));
        sb.packetsPerFreq = static_cast<uint16_t>(si.ppf);

        // The steps up to and including the row's top edge. The top row
        // takes whatever remains, so every step has a sub-band and the
        // loop ends by the last row.
        int n = static_cast<int>(std::max((lut.maxRF - freq) / si.step100kSize / 100000.0 + 1.0, 0.0));
        n = topRow ? si.stepCount - done : std::min(n, si.stepCount - done);
        sb.stepCount = static_cast<uint16_t>(n);
        if (sb.stepCount == 0) sb.stepCount = 1;
        PackSettings(&s, sb.settings);

        // One patch per step the device will take in this sub-band.
        for (int i = 0; i < sb.stepCount; ++i) {
            Patch patch;
            patch.length = length;
            patch.band = row;
            patch.center_freq = freq;
            patch.if_center = 0.0;
            patch.flip_spectrum = lut.flip;
            patch.if_offset = si.IFOffset;
            if (row == 0) {
                // The low band is sampled directly: its slice is 0 to 20 MHz.
                patch.if_offset = -(si.fftSize / 8);
                patch.center_freq = 20000000.0;
            } else if (row8Shift) {
                // The 1.6 MHz that the first oscillator moves is 0.02 of the
                // transform in bins, never a whole number: the whole bins go
                // into the offset and the rest into a fractional shift of the
                // transform. Truncated as written, every tone of the row read
                // up to a bin low (0.68 bin at 16384 points).
                const double shift = -si.fftSize * 0.02;
                patch.if_offset = round_to_int(shift);
                patch.if_fraction = shift - patch.if_offset;
            }
            si.patchInfo.Append(patch);
            done += 1;
            freq += stepHz;
        }
        row += 1;
    }

    m_cmd.subBandCount = static_cast<uint16_t>(si.activeBandCnt + rps.m_residualCount);
    const int copied = std::min<int>(m_cmd.subBandCount, QS_MAX_SUBBANDS);
    std::memcpy(m_cmd.subBandArray, bands, sizeof(subBand_t) * static_cast<size_t>(copied));
    CorrMaple().GetRoughGainArray(m_cmd.roughCorrArray, si.patchInfo);
    return 0;
}

qsStatus DeviceMaple::ConfigureIQ(unsigned flag) {
    m_timeStamp = (flag & QS_STREAM_FLAG_TIME_STAMP) && (m_portMask & QS_PORT_TRIGGER_IN);
    const bool low = m_settings->m_center < kBandZeroIQTop;
    SweepInfo& si = m_sweepInfo;
    si.traceLen = 512;
    si.fftSize = 4096;
    si.binSize = 19531.25;
    si.dsRatio = 1;
    si.firstPatchSkipCnt = 0;
    si.step100kSize = 200;
    si.stepCount = 1;
    si.actualStart = 0.0;
    m_settings->m_logScale = false;

    const double c = m_settings->m_center / m_oscRatio;
    const double g = round_to_int(c / kStreamGrid) * kStreamGrid;
    si.if_offset_hz = c - g;
    si.IFOffsetFraction = si.if_offset_hz / 2e7;
    si.IFOffset = round_to_int(si.fftSize * si.IFOffsetFraction * 0.25);
    rps.m_residualCount = 0;

    try {
        m_corr->Configure(m_readings.celcius.load(), *m_settings, si);
        SetupRealTimeCommand(g, (flag & QS_STREAM_FLAG_BAND_ZERO) || low);
        VecDouble list;
        si.mapleBandZeroIQ = low;
        if (low)
            CorrMaple().BuildBandZeroCorrectionArray(list, m_settings->m_center);
        else
            m_corr->BuildIFCorrectionArray(m_settings, &si, list);
        for (double& v : list) v = std::pow(10.0, 0.05 * v);
        if (flag & (QS_STREAM_FLAG_DIRECT | QS_STREAM_FLAG_BAND_ZERO))
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

int DeviceMaple::SetupRealTimeCommand(double center, bool bandZero) {
    m_usb->WaitUntilSent();
    SweepInfo& si = m_sweepInfo;
    const int row = bandZero ? 0 : std::min(get_band_maple(GetRev(), center), MAPLE_LO_ROWS - 1);
    const LOLUTMaple& lut = lolutMaple[row];

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
    si.secondLOOffset = 0.0;
    si.activeBandCnt = 1;

    subBand_t sb{};
    sb.LO1startFreq = static_cast<uint16_t>(round_to_int((center + lut.lo1c) / kLO1Unit));
    sb.LO2Freq = static_cast<uint16_t>(round_to_int(lut.lo2c / kLO2Unit));
    sb.LO1stepFreq = 200;
    sb.packetsPerFreq = 16;
    sb.stepCount = 4096;

    Patch patch;
    patch.length = si.fftSize / 4;
    patch.band = row;
    patch.if_offset = si.IFOffset;
    patch.center_freq = center;
    patch.if_center = 0.0;
    patch.flip_spectrum = lut.flip;
    si.patchInfo.Append(patch);

    PackSettings(&s, sb.settings);
    std::memcpy(&m_cmd.subBandArray[0], &sb, sizeof sb);
    CorrMaple().GetRoughGainArray(m_cmd.roughCorrArray, si.patchInfo);
    return 0;
}

qsStatus DeviceMaple::ConfigureTgMode(unsigned) {
    if (m_firmware_version < TG_MIN_FIRMWARE) return qsNotSupportedErr;
    const int P = PlanTgSweep();
    // Both passes run the command's one gain code (the second command only
    // lowers the attenuation), so the second pass's corrections are built
    // for that gain too, as the Larch's are. Built for gain 0 or 2, a
    // high-range trace read its lower part some 28 dB high.
    const int gain = m_settings->m_tgPassiveDevice ? 3 : 1;
    return StartTgSweep(P, gain, kTgPriAttenIndex, gain, kTgSecAttenIndex, false);
}

int DeviceMaple::SetupTGCommand() {
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
    int row = freq < 15000000.0 ? 0 : std::min(get_band_maple(GetRev(), freq), MAPLE_LO_ROWS - 1);
    si.initialBand = row;

    const double stepHz = si.step100kSize * 100000.0;
    subBand_t bands[QS_MAX_SUBBANDS];
    std::memset(bands, 0, sizeof bands);
    int done = 0;
    while (done < si.stepCount && si.activeBandCnt < QS_MAX_SUBBANDS) {
        const bool topRow = row == MAPLE_LO_ROWS - 1;
        const LOLUTMaple& lut = lolutMaple[row];
        subBand_t& sb = bands[si.activeBandCnt];
        si.activeBandCnt += 1;
        s.band = static_cast<int8_t>(lut.band);
        sb.LO1stepFreq = static_cast<int16_t>(si.step100kSize / 4);
        sb.LO1startFreq = static_cast<uint16_t>(round_to_int((freq + lut.lo1c + si.secondLOOffset) / kLO1Unit));
        sb.LO2Freq = static_cast<uint16_t>(std::floor((lut.lo2c + si.secondLOOffset) / kLO2Unit + 0.5));
        sb.packetsPerFreq = static_cast<uint16_t>(si.ppf);
        int n = static_cast<int>(std::max((lut.maxRF - freq) / si.step100kSize / 100000.0 + 1.0, 0.0));
        n = topRow ? si.stepCount - done : std::min(n, si.stepCount - done);
        if (n == 0) n = 1;
        // The device reads ppf packets per generator point, so a sub-band
        // counts the points of its LO steps; TGCountPerPatch tells the
        // device when to step the LO, and the first step starts
        // TGstartingIndex points in. The block count of the sweep is then
        // that of the points the engine waits for.
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
            patch.flip_spectrum = lut.flip;
            // The low band samples directly; its centre stays the RF one.
            patch.if_offset = row == 0 ? -(si.fftSize / 8) : si.IFOffset;
            si.patchInfo.Append(patch);
            done += 1;
            freq += stepHz;
        }
        row = std::min(row + 1, MAPLE_LO_ROWS - 1);
    }

    m_cmd.subBandCount = static_cast<uint16_t>(si.activeBandCnt + rps.m_residualCount);
    const int copied = std::min<int>(m_cmd.subBandCount, QS_MAX_SUBBANDS);
    std::memcpy(m_cmd.subBandArray, bands, sizeof(subBand_t) * static_cast<size_t>(copied));
    CorrMaple().GetRoughGainArray(m_cmd.roughCorrArray, si.patchInfo);

    // The secondary pass differs only in its attenuation code.
    m_secCmd = m_cmd;
    for (int i = 0; i < copied; ++i) {
        uint8_t* b3 = &bands[i].settings[3];
        *b3 = static_cast<uint8_t>((*b3 & ~0x1F) | kTgSecAttenCode);
    }
    std::memcpy(m_secCmd.subBandArray, bands, sizeof(subBand_t) * static_cast<size_t>(copied));
    return 0;
}

void DeviceMaple::PackSettings(const s3Ctrl_t* s, uint8_t* settings) const {
    uint8_t mode;
    if (s->stream)
        mode = 0;
    else if (s->pktsz_x3d2)
        mode = 3;
    else
        mode = 1;
    settings[0] = static_cast<uint8_t>(mode | (m_portMask & 0xFF));

    const int band = s->band;
    const int a = s->atten == 0 ? 1 : s->atten;
    int code = 0;
    uint8_t byte3;
    if (band < 1) {
        byte3 = static_cast<uint8_t>(a);
    } else {
        switch (band) {
            case 1: case 2: code = 0; break;
            case 3: code = 1; break;
            case 6: case 11: code = 3; break;
            case 7: case 8: code = 4; break;
            default: code = 2; break;
        }
        byte3 = static_cast<uint8_t>(((band + 1) << 5) + a);
    }
    settings[1] = static_cast<uint8_t>((s->pktsz << 4) + code);
    settings[2] = 0;
    settings[3] = byte3;
}

}  // namespace qs
