// The plan of a measurement: FFT size, LO steps, packets per step, the
// trace's length and start, and the frequency map of the steps.
//
// Filled once by a mode set-up on the caller's thread, then read by the
// engines for their whole life; it stays at one address inside its device
// and is not rewritten while an engine runs.
#pragma once

#include <cstddef>
#include <vector>

#include "transport/wire_formats.h"

namespace qs {

// One LO step. Every producer sets the first six fields.
struct Patch {
    int length;          // bins this step adds to the trace
    int band;            // row of the model's LO table
    int if_offset;       // shift of the kept slice from the pass band's centre, bins
    double center_freq;  // nominal RF centre, Hz (a directly sampled sweep step: 2e7)
    double if_center;    // 0, or 1e7 on a step moved for a residual spur
    bool flip_spectrum;  // the step's mixing inverts the spectrum
    // The part of a bin that if_offset could not hold (a step whose
    // oscillator moved by no whole number of bins): the slice is read that
    // much higher. Unflipped steps only.
    double if_fraction = 0.0;
    // The step is sampled directly (RF = IF, no mixing): only the lower half
    // of its transform is clean, and a tone's bin follows from its RF.
    bool direct = false;
};

// The patches of a plan in step order; appended to, never replaced.
class PatchInfo {
public:
    const std::vector<Patch>& Patches() const { return patches; }
    const Patch& operator[](int i) const { return patches[static_cast<std::size_t>(i)]; }
    void Append(const Patch& patch) { patches.push_back(patch); }
    int NumPatches() const { return static_cast<int>(patches.size()); }
    void Clear() { patches.clear(); }

private:
    std::vector<Patch> patches;
};

// Residual-spur steps of a sweep plan: entry k names the residual table row
// and the sweep step its patch repairs. A model without residual
// spurs plans none; the wide-sweep engine keeps its own copy.
struct ResidualInfo {
    static constexpr int MAX_RESIDUALS = 32;
    int m_residualCount = 0;
    int m_residualLocation[MAX_RESIDUALS] = {};
    int m_residualID[MAX_RESIDUALS] = {};
};

// Where the kept slice goes and where the tone's search starts: what tells
// one receiver's generator sweeps from another's, set by the model.
struct TgPeakRules {
    // Within this distance of a patch's centre a tone is read from the
    // centred slice (0: the slice always moves half way to the tone's side).
    double centredSliceHz = 0.0;
    // Patches centred at or below this hold the tone next to the zero bin:
    // coarse steps keep the slice centred and the search starts past zero
    // (0: none).
    double lowPatchHz = 0.0;
};

struct SweepInfo {
    int traceLen = 0;
    int fftSize = 16384;
    int zeroPadAmount = 0;
    int chunkSize = QS_SAMPLES_PER_PACKET;
    int ppf = 0;
    int stepCount = 32;
    double binSize = 4882.8125;  // true frequency
    double actualStart = 0.0;    // true frequency
    int dsRatio = 0;
    double initialCenter = 0.0;
    double bandZeroNarrowCenter = 0.0;
    int initialBand = 0;
    int activeBandCnt = 0;
    int firstPatchSkipCnt = 0;
    int lastPatchSkipCnt = 0;  // meaningful in tracking-generator mode only
    int step100kSize = 0;
    double IFOffsetFraction = 0.0;
    int IFOffset = 0;
    double manualIFOffsetFractionVal = 0.0;
    bool manualIFOffset = false;
    double secondLOOffset = 0.0;
    double idealIFOffset = 0.0;
    int narrow_center[2] = {0, 0};  // kHz; narrow sweeps only
    PatchInfo patchInfo;
    double if_offset_hz = 0.0;  // streaming only
    int tgInitialCount = 0;     // tracking-generator mode only
    bool directIQ = false;      // streaming from the directly sampled low band

    // The open-time values of every field that has one; leaves the patch
    // list and the mode-only fields alone.
    void LoadDefaults();
};

}  // namespace qs
