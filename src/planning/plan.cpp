#include "planning/plan.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "dsp/math_helpers.h"
#include "planning/sizing.h"
#include "settings/settings.h"

namespace qs {

namespace {

constexpr double kSampleRate = 80e6;
constexpr double kPacketSeconds = 0.000234;  // a packet's duration as planning counts it
constexpr double kPatchHz = 2e7;
constexpr double kHalfPatchHz = 1e7;
constexpr double kMinRealTimeSweepTime = 0.001;
// The streaming modes' fixed transform: 4096 points, 19.53 kHz bins.
constexpr int kStreamFft = 4096;
constexpr double kStreamBin = 19531.25;
constexpr double kAudioSpan = 2e7;

// Frequency steps of a generator sweep, finest first.
constexpr double kTgSteps[] = {1000.0,    2000.0,    5000.0,    10000.0,    20000.0,
                               50000.0,   100000.0,  200000.0,  500000.0,   1000000.0,
                               2000000.0, 5000000.0, 10000000.0, 20000000.0};

// Samples the video bandwidth needs: enough transforms, a quarter apart,
// to cover the video filter's time. Legal settings keep this well inside
// an int; the clamp only guards against a corrupt record.
int SamplesForVideo(int fftSize, double vbw) {
    const double transforms = std::ceil(1.0 / ((fftSize / 3.2e8) * vbw));
    const int64_t v = transforms < 1e9 ? static_cast<int64_t>(transforms) : int64_t{1000000000};
    return static_cast<int>(std::min<int64_t>(fftSize + (v - 1) * (fftSize / 4), INT32_MAX));
}

// The fields every streaming mode's plan sets alike.
void StreamDefaults(SweepInfo& si) {
    si.fftSize = kStreamFft;
    si.binSize = kStreamBin;
    si.dsRatio = 1;
    si.firstPatchSkipCnt = 0;
    si.step100kSize = 200;
}

}  // namespace

qsStatus PlanSweep(const Settings& set, const ModelRecord& model, const Tuner& tuner, double oscRatio,
                   SweepInfo& si, ResidualInfo& rps, NarrowTuning& narrow) {
    if (set.m_rbw > set.m_span) return qsBandwidthErr;

    get_fft_size(set.m_rbw, set.m_rbwShape, si.fftSize, si.zeroPadAmount);
    const int fftSize = si.fftSize;
    const int q = fftSize / 4;  // 20 MHz of bins, and the step between transforms
    const double bin0 = kSampleRate / fftSize;
    const int need = SamplesForVideo(fftSize, set.m_vbw);

    int dsRatio = 1;
    if (set.m_start >= model.narrowMinStartHz) {
        if (set.m_span < 25100.0 && bin0 < 25.0)
            dsRatio = 256;
        else if (set.m_span < 499000.0 && bin0 < 400.0)
            dsRatio = 16;
    }
    si.dsRatio = dsRatio;

    // A manual offset moves the slices by what it says (truncated to bins);
    // otherwise a wide sweep centres its slices where the IF band's middle
    // was measured (0 on a model that measures none) and a narrow sweep
    // tunes its own centre.
    double shift;
    if (model.manualIFOffset && si.manualIFOffset) {
        si.IFOffsetFraction = si.manualIFOffsetFractionVal;
        shift = kPatchHz * si.IFOffsetFraction;
        si.IFOffset = static_cast<int>(q * si.IFOffsetFraction);
    } else {
        si.IFOffset = dsRatio > 1 ? 0 : round_to_int(q * si.idealIFOffset);
        si.IFOffsetFraction = static_cast<double>(si.IFOffset) / q;
        shift = si.IFOffsetFraction * kPatchHz;
    }

    const double s = (set.m_start - shift) / oscRatio;
    const double e = (set.m_stop - shift) / oscRatio;

    double step;
    if (dsRatio > 1) {
        step = model.narrowGridHz;
        si.step100kSize = static_cast<int>(step / 100000.0);
    } else if (set.m_imageReject) {
        si.step100kSize = 100;
        step = 10000000.0;
    } else {
        si.step100kSize = 200;
        step = 20000000.0;
    }

    double f0;  // nominal frequency of the first bin of the first patch
    if (dsRatio > 1) {
        const double c = std::floor(((s + e) * 0.5) / 1000.0) * 1000.0;
        si.bandZeroNarrowCenter = c;
        narrow.gridIndex = round_to_int(c / model.narrowGridHz);
        narrow.centreKHz = round_to_int(c / 1000.0);
        narrow.lowHz = s;
        narrow.highHz = e;
        si.initialCenter = narrow.gridIndex * model.narrowGridHz;
        f0 = narrow.centreKHz * 1000.0 - kHalfPatchHz / dsRatio;
    } else if (set.m_imageReject) {
        si.initialCenter = std::floor(s / 10000000.0) * 10000000.0;
        f0 = si.initialCenter + si.IFOffset * bin0;
    } else {
        const double grid = set.m_fullScale && model.fullScaleTenMHzGrid ? 10000000.0 : 20000000.0;
        si.initialCenter = std::floor((kHalfPatchHz + s) / grid) * grid;
        f0 = si.initialCenter - kHalfPatchHz + si.IFOffset * bin0;
    }

    // A spur strictly above the start and not above the stop gets a step
    // of its own; a narrow sweep stays clear of them.
    rps.m_residualCount = 0;
    if (dsRatio == 1) {
        const Tuner::Spurs spurs = tuner.Residuals();
        for (int row = 0; row < spurs.count; ++row) {
            const double at = spurs.spur[row].writeCentre;
            if (at <= set.m_start) continue;
            if (at > set.m_stop) break;
            if (rps.m_residualCount >= ResidualInfo::MAX_RESIDUALS) break;
            rps.m_residualID[rps.m_residualCount] = row;
            rps.m_residualCount += 1;
        }
    }
    const int residuals = rps.m_residualCount;

    double x = si.initialCenter;
    if (!set.m_imageReject) x += step * 0.5;
    int stepCount = static_cast<int>(std::ceil((e - x) / step)) + 1 + residuals;

    int t = round_to_int(set.m_sweepTime / stepCount / kPacketSeconds);
    if (t < 1) t = 1;

    int p = static_cast<int>(std::ceil(static_cast<float>(need) / static_cast<float>(QS_SAMPLES_PER_PACKET)));
    if (p < 1) p = 1;
    if (dsRatio > 1 && p < 24) p = 32;
    if (set.m_rbw < 800.0 || (dsRatio > 1 && model.narrowExtraPackets)) p += 4;

    si.binSize = bin0 * oscRatio;
    si.traceLen = round_to_int(set.m_span / si.binSize) + model.sweepExtraPoints;

    const double f1 = f0 * oscRatio;
    if (model.sweepSkipRoundsDown)
        si.firstPatchSkipCnt = std::max(round_to_int((set.m_start - f1) / si.binSize + 0.5) - 1, 0);
    else
        si.firstPatchSkipCnt = static_cast<int>(std::floor((set.m_start - f1) / si.binSize + 0.5));
    si.actualStart = si.firstPatchSkipCnt * si.binSize + f1;

    // The points past the span can fall beyond the last patch (a span that
    // ends on a patch edge, 2.19 to 2.21 GHz say); one more step then
    // measures them, where the trace would otherwise read past its data.
    if (dsRatio == 1 && !set.m_imageReject)
        while (si.firstPatchSkipCnt + si.traceLen > (stepCount - residuals) * q) ++stepCount;

    int ppf = std::max(p, t);
    solve_ppf_step(&ppf, &stepCount);
    si.ppf = ppf;
    si.stepCount = stepCount;
    si.chunkSize = ppf * QS_SAMPLES_PER_PACKET;
    // A narrow sweep stays at its one LO position (two looks with
    // rejection). Its ppf, at least 36 before the solver, is a multiple of
    // 16 by then, so the shorter pass is still whole blocks.
    if (dsRatio > 1) si.stepCount = set.m_imageReject ? 2 : 1;
    return qsNoError;
}

void PlanNarrowCentres(const ModelRecord& model, const Patch& first, const NarrowTuning& narrow, SweepInfo& si) {
    if (first.direct) {
        // The low band samples directly: the RF is the IF.
        si.initialCenter = (narrow.lowHz + narrow.highHz) * 0.5;
        si.narrow_center[0] = si.narrow_center[1] = static_cast<int>(si.initialCenter / 1000.0);
        return;
    }
    // The IF sees the wanted centre this far from its middle, and one grid
    // step further at the second look; a mirrored row turns both round.
    const int grid = round_to_int(model.narrowGridHz / 1000.0);
    int d = narrow.centreKHz - narrow.gridIndex * grid;
    int second = 20000 - grid;
    if (first.flip_spectrum) {
        d = -d;
        second = 20000 + grid;
    }
    si.narrow_center[0] = d + 20000;
    si.narrow_center[1] = d + second;
}

void PlanLowBandRawSweep(const Settings& set, double oscRatio, SweepInfo& si) {
    get_fft_size(set.m_rbw, set.m_rbwShape, si.fftSize, si.zeroPadAmount);
    si.binSize = (kSampleRate / si.fftSize) * oscRatio;
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
}

bool SweepFitsInMemory(const SweepInfo& si, double memoryBytes) {
    const double ds = si.dsRatio > 0 ? si.dsRatio : 1;
    const double steps = std::max(si.stepCount, 1);
    // Per step: the correction, minimum and maximum rows and the engine's
    // own row of doubles, and the step's raw samples of both channels.
    const double bytes = steps * (si.fftSize / (4.0 * ds) * 8.0 * 4.0 + double(si.chunkSize) * 4.0);
    return memoryBytes <= 0 || bytes <= memoryBytes / 4;
}

qsStatus PlanRealTime(Settings& set, const ModelRecord& model, double oscRatio, SweepInfo& si, double* loHz) {
    if (!(set.m_span >= model.realTimeMinSpanHz && set.m_span <= model.realTimeMaxSpanHz))
        return qsInvalidParameterErr;
    if (!(set.m_rbw >= model.realTimeMinRbwHz && set.m_rbw <= model.realTimeMaxRbwHz))
        return qsInvalidParameterErr;
    if (set.m_sweepTime < kMinRealTimeSweepTime) set.m_sweepTime = kMinRealTimeSweepTime;

    // The zero padding is set here too: left as a narrow sweep's plan had
    // it (larger than this transform's window), every frame read -inf.
    get_fft_size(set.m_rbw, set.m_rbwShape, si.fftSize, si.zeroPadAmount);
    si.stepCount = 1;
    si.step100kSize = 0;
    si.dsRatio = 1;
    si.IFOffsetFraction = 0.0;
    si.binSize = (kSampleRate / si.fftSize) * oscRatio;
    si.traceLen = calculateBestRealTimeSweepSize(round_to_int(set.m_span / si.binSize) + model.realTimeExtraPoints);

    const double g = round_to_int(set.m_center / model.streamGridHz) * model.streamGridHz;
    si.initialCenter = g * oscRatio;
    si.IFOffset = round_to_int((set.m_center - g) / si.binSize);
    // The engine centres the trace's traceLen points on the slice, so the
    // first lies half of them below it.
    si.actualStart = si.initialCenter + si.IFOffset * si.binSize - (si.traceLen / 2) * si.binSize;
    *loHz = g;
    return qsNoError;
}

double PlanStream(Settings& set, const ModelRecord& model, double oscRatio, SweepInfo& si, bool* direct) {
    *direct = set.m_center < model.directIQTopHz;
    StreamDefaults(si);
    si.traceLen = 512;
    si.stepCount = 1;
    si.actualStart = 0.0;
    si.directIQ = *direct;
    set.m_logScale = false;

    const double c = set.m_center / oscRatio;
    const double g = round_to_int(c / model.streamGridHz) * model.streamGridHz;
    si.if_offset_hz = c - g;
    si.IFOffsetFraction = si.if_offset_hz / kPatchHz;
    si.IFOffset = round_to_int(si.fftSize * si.IFOffsetFraction * 0.25);
    return g;
}

double PlanAudio(Settings& set, const ModelRecord& model, double oscRatio, SweepInfo& si) {
    set.SetSpan(kAudioSpan);
    StreamDefaults(si);
    si.traceLen = 1024;
    si.IFOffset = 0;
    si.chunkSize = QS_BLOCK_SAMPLES;

    const double g = round_to_int(set.m_audio.freq / oscRatio / model.streamGridHz) * model.streamGridHz;
    set.SetCenter(g);
    si.initialCenter = g;
    set.SetStart(g - 0.5 * set.Span());
    set.SetStop(g + 0.5 * set.Span());
    si.actualStart = set.Start() * oscRatio;
    return g;
}

int PlanTgSweep(Settings& set, SweepInfo& si) {
    const double S = set.m_span;
    const int W = set.m_tgSweepSize;

    // The step whose point count comes nearest to the wanted one; a tie
    // keeps the finer step, and a step must fit twice into the span.
    int best = 0;
    double err = std::fabs(S / kTgSteps[0] - W);
    for (int i = 1; i < int(sizeof kTgSteps / sizeof kTgSteps[0]); ++i) {
        const double step = kTgSteps[i];
        if (2.0 * step > S) continue;
        if (err > std::fabs(S / step - W)) {
            best = i;
            err = std::fabs(S / step - W);
        }
    }
    const double step = kTgSteps[best];
    si.binSize = step;
    si.traceLen = static_cast<int>(std::floor(S / step + 1.5));
    const int P = static_cast<int>(std::floor(TG_PATCH_HZ / step + 0.5));  // points per patch
    const int padded = (si.traceLen + 7) / 8 * 8;  // whole blocks at two packets a point
    si.lastPatchSkipCnt = padded - si.traceLen;
    const int r = padded % P;
    si.tgInitialCount = r == 0 ? 0 : P - r;
    const int r1 = r == 0 ? P : r;
    const double k = ((r1 - 0.5) - 0.5 * P) * TG_PATCH_HZ / P;
    const double first = std::floor((k + set.m_start) / TG_LO_GRID_HZ + 0.5);
    si.actualStart = set.m_start;

    // The receiver only has to see one tone at a time.
    double rbw = 2.0 * step > 16000.0 ? 16000.0 : std::max(8000.0, 2.0 * step);
    double vbw = 0.5 * rbw;
    if (set.m_start < 20000.0) {
        rbw = 8000.0;
        vbw = 4000.0;
    }
    set.m_rbw = rbw;
    set.m_vbw = vbw;
    set.m_rbwShape = QS_RBW_SHAPE_LOWPASS;
    // The low-pass window needs its cut-off for this RBW, as a sweep
    // coupling of that shape would have computed it.
    int lowpassFft = 0;
    double fc = 0.0;
    non_native_fft_from_rbw(rbw, &lowpassFft, &fc);
    set.SetWindowFC(fc);

    si.initialCenter = TG_LO_GRID_HZ * first;
    get_fft_size(set.m_rbw, set.m_rbwShape, si.fftSize, si.zeroPadAmount);
    si.dsRatio = 1;
    si.IFOffsetFraction = 0.0;
    si.IFOffset = 0;
    si.step100kSize = 200;
    si.stepCount = (padded + P - 1) / P;

    // Each point's chunk holds enough transforms for the video filter, in
    // pairs of packets.
    const int need = SamplesForVideo(si.fftSize, set.m_vbw);
    const int w = static_cast<int>(std::ceil(need * 0.5 / QS_SAMPLES_PER_PACKET));
    si.ppf = w * 2;
    si.chunkSize = w * 2 * QS_SAMPLES_PER_PACKET;
    return P;
}

}  // namespace qs
