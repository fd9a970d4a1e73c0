#include "planning/command.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "dsp/qs_lib.h"
#include "planning/plan.h"

namespace qs {

namespace {

// A residual step reads its spur 10 MHz up the IF; a stream this close to
// a spur is moved the same way.
constexpr double kResidualIFCenter = 10000000.0;
constexpr double kStreamResidualReach = 9900000.0;
// Generator sweeps below this start on the low band.
constexpr double kTgLowBandTop = 15000000.0;

// The steps of a sub-band that starts at freqHz: up to and including the
// row's top edge, all that remain on the top row, and at least one.
int StepsInRow(const Tuner& tuner, int row, const LoRow& lut, double freqHz, int step100k, int remaining) {
    int n = static_cast<int>(std::max((lut.maxRF - freqHz) / step100k / 100000.0 + 1.0, 0.0));
    n = row == tuner.RowCount() - 1 ? remaining : std::min(n, remaining);
    return n == 0 ? 1 : n;
}

Patch MakePatch(int length, int row, double centerHz, const LoRow& lut, int ifOffset) {
    Patch patch;
    patch.length = length;
    patch.band = row;
    patch.if_offset = ifOffset;
    patch.center_freq = centerHz;
    patch.if_center = 0.0;
    patch.flip_spectrum = lut.flip;
    return patch;
}

void CopyBands(DeviceCommand& cmd, const subBand_t* bands, int count) {
    cmd.subBandCount = static_cast<uint16_t>(count);
    const int copied = std::min<int>(count, QS_MAX_SUBBANDS);
    std::memcpy(cmd.subBandArray, bands, sizeof(subBand_t) * static_cast<size_t>(copied));
}

}  // namespace

void set_packet_size(s3Ctrl_t& s, int ppf) {
    const double l = std::log(static_cast<double>(ppf)) / std::log(2.0);
    const int a = static_cast<int>(std::floor(l + 0.01));
    const int b = static_cast<int>(std::floor(l + 0.99));
    s.pktsz = static_cast<uint8_t>(a);
    s.pktsz_x3d2 = b > a ? 1 : 0;
}

void BuildSweepCommand(SweepInfo& si, ResidualInfo& rps, const Tuner& tuner, bool imageReject, unsigned portMask,
                       const GainOfRow& gainOf, DeviceCommand& cmd) {
    cmd.headerType = QS_CMD_CONFIGURE;
    cmd.commandType = QS_CFG_SWEEP;
    si.activeBandCnt = 0;

    s3Ctrl_t s{};
    s.stream = 0;
    set_packet_size(s, si.ppf);

    const int length = si.fftSize / (si.dsRatio * 4);
    int row = tuner.RowIn(si.initialCenter);
    si.initialBand = row;
    double freq = si.initialCenter;
    const double stepHz = si.step100kSize * 100000.0;

    subBand_t bands[QS_MAX_SUBBANDS];
    std::memset(bands, 0, sizeof bands);
    int used = 0;

    // The residual steps come first: one sub-band and one patch each, read
    // with their own LO pair.
    const Tuner::Spurs spurs = tuner.Residuals();
    for (int k = 0; k < rps.m_residualCount && used < QS_MAX_SUBBANDS; ++k) {
        const ResidualSpur& r = spurs.spur[rps.m_residualID[k]];
        subBand_t& sb = bands[used++];
        const int b = tuner.RowIn(r.readCentre);
        const RowGain g = gainOf(b);
        s.band = static_cast<int8_t>(r.band);
        s.gain = g.gain;
        s.atten = g.atten;
        tuner.SetResidualWords(sb, r);
        sb.packetsPerFreq = static_cast<uint16_t>(si.ppf);
        sb.stepCount = 1;
        tuner.Pack(s, portMask, sb.settings);

        Patch patch = MakePatch(length, b, r.readCentre, LoRow{}, si.IFOffset);
        patch.if_center = kResidualIFCenter;
        si.patchInfo.Append(patch);
        rps.m_residualLocation[k] = rps.m_residualCount + round_to_int((r.writeCentre - si.initialCenter) / stepHz);
    }

    // Then one sub-band per LO row, walked in order: on the plan's grids
    // the step after a row's top edge lies in the next row.
    int remaining = si.stepCount - rps.m_residualCount;
    while (remaining > 0 && used < QS_MAX_SUBBANDS) {
        const LoRow lut = tuner.Row(row);
        subBand_t& sb = bands[used++];
        si.activeBandCnt += 1;
        const RowGain g = gainOf(row);
        s.band = static_cast<int8_t>(lut.band);
        s.gain = g.gain;
        s.atten = g.atten;

        const bool shifted = lut.wideLo1Shift != 0.0 && !si.manualIFOffset && si.dsRatio == 1 && !imageReject;
        tuner.SetWords(sb, lut, freq + (shifted ? lut.wideLo1Shift : 0.0), si.secondLOOffset, si.step100kSize);
        sb.packetsPerFreq = static_cast<uint16_t>(si.ppf);
        sb.stepCount = static_cast<uint16_t>(StepsInRow(tuner, row, lut, freq, si.step100kSize, remaining));
        tuner.Pack(s, portMask, sb.settings);

        for (int i = 0; i < sb.stepCount; ++i) {
            Patch patch = MakePatch(length, row, freq, lut, si.IFOffset);
            if (lut.direct) {
                // Sampled directly: the slice is 0 to 20 MHz.
                patch.if_offset = -(si.fftSize / 8);
                patch.center_freq = 20000000.0;
            } else if (shifted) {
                // What the first oscillator moves is no whole number of
                // bins: the whole bins go into the offset and the rest into
                // a fractional shift of the transform. Truncated, every tone
                // of the row read up to a bin low.
                const double shift = -si.fftSize * lut.wideLo1Shift / 80e6;
                patch.if_offset = round_to_int(shift);
                patch.if_fraction = shift - patch.if_offset;
            }
            si.patchInfo.Append(patch);
            freq += stepHz;
        }
        remaining -= sb.stepCount;
        row += 1;
    }
    CopyBands(cmd, bands, used);
}

void BuildStreamCommand(SweepInfo& si, const Tuner& tuner, double center, bool lowBand, unsigned portMask,
                        const GainOfRow& gainOf, DeviceCommand& cmd) {
    const int row = lowBand ? 0 : tuner.RowIn(center);
    const LoRow lut = tuner.Row(row);

    cmd.headerType = QS_CMD_CONFIGURE;
    cmd.commandType = QS_CFG_STREAM;
    cmd.subBandCount = 1;

    const RowGain g = gainOf(row);
    s3Ctrl_t s{};
    s.stream = 1;
    s.band = static_cast<int8_t>(lut.band);
    s.gain = g.gain;
    s.atten = g.atten;
    s.pktsz = 4;

    si.initialBand = row;
    si.activeBandCnt = 1;

    // Near a residual spur both oscillators move up as a sweep's residual
    // step does, so that the spur leaves the band; the corrections then read
    // the IF table there. (Reading the table as if moved but leaving the
    // words where they were left the spur 35 dB over the floor.)
    si.secondLOOffset = 0.0;
    double ifCenter = 0.0;
    const Tuner::Spurs spurs = tuner.Residuals();
    for (int k = 0; k < spurs.count; ++k) {
        if (std::fabs(center - spurs.spur[k].writeCentre) <= kStreamResidualReach) {
            si.secondLOOffset = kResidualIFCenter;
            ifCenter = kResidualIFCenter;
            break;
        }
    }

    subBand_t sb{};
    tuner.SetWords(sb, lut, center, si.secondLOOffset, si.step100kSize);
    sb.LO1stepFreq = 200;
    sb.packetsPerFreq = 16;
    sb.stepCount = 4096;
    tuner.Pack(s, portMask, sb.settings);
    std::memcpy(&cmd.subBandArray[0], &sb, sizeof sb);

    Patch patch = MakePatch(si.fftSize / 4, row, center, lut, si.IFOffset);
    patch.if_center = ifCenter;
    si.patchInfo.Append(patch);
}

void BuildTgCommand(SweepInfo& si, const Tuner& tuner, const ModelRecord& model, int gain, unsigned portMask,
                    DeviceCommand& cmd) {
    s3Ctrl_t s{};
    s.atten = model.tgPrimaryAttenCode;
    s.gain = static_cast<uint8_t>(gain);
    s.stream = 0;
    set_packet_size(s, si.ppf);

    cmd.headerType = QS_CMD_CONFIGURE;
    cmd.commandType = QS_CFG_TG_SWEEP;
    cmd.TGCountPerPatch = static_cast<uint16_t>(std::floor(TG_PATCH_HZ / si.binSize + 0.5));
    cmd.TGstartingIndex = static_cast<uint16_t>(si.tgInitialCount);
    si.activeBandCnt = 0;

    double freq = si.initialCenter;
    int row = freq < kTgLowBandTop ? 0 : tuner.RowIn(freq);
    si.initialBand = row;

    const double stepHz = si.step100kSize * 100000.0;
    subBand_t bands[QS_MAX_SUBBANDS];
    std::memset(bands, 0, sizeof bands);
    int done = 0;
    while (done < si.stepCount && si.activeBandCnt < QS_MAX_SUBBANDS) {
        const LoRow lut = tuner.Row(row);
        subBand_t& sb = bands[si.activeBandCnt];
        si.activeBandCnt += 1;
        s.band = static_cast<int8_t>(lut.band);
        tuner.SetWords(sb, lut, freq, si.secondLOOffset, si.step100kSize);
        sb.packetsPerFreq = static_cast<uint16_t>(si.ppf);
        const int n = StepsInRow(tuner, row, lut, freq, si.step100kSize, si.stepCount - done);
        // The device reads ppf packets per generator point, so a sub-band
        // counts the points of its LO steps; the first step starts
        // TGstartingIndex points in. The block count of the sweep is then
        // that of the points the engine waits for.
        int points = n * cmd.TGCountPerPatch;
        if (done == 0) points -= si.tgInitialCount;
        sb.stepCount = static_cast<uint16_t>(points);
        tuner.Pack(s, portMask, sb.settings);
        for (int i = 0; i < n; ++i) {
            // A directly sampled row keeps its RF centre here.
            si.patchInfo.Append(
                MakePatch(si.fftSize / 4, row, freq, lut, lut.direct ? -(si.fftSize / 8) : si.IFOffset));
            done += 1;
            freq += stepHz;
        }
        row = std::min(row + 1, tuner.RowCount() - 1);
    }
    CopyBands(cmd, bands, si.activeBandCnt);
}

DeviceCommand SecondaryTgCommand(const DeviceCommand& primary, const ModelRecord& model) {
    DeviceCommand secondary = primary;
    const int copied = std::min<int>(primary.subBandCount, QS_MAX_SUBBANDS);
    for (int i = 0; i < copied; ++i) {
        uint8_t& b3 = secondary.subBandArray[i].settings[3];
        b3 = static_cast<uint8_t>((b3 & ~model.tgSecondaryMask) | model.tgSecondaryBits);
    }
    return secondary;
}

}  // namespace qs
