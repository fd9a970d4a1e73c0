#include "settings/sweep_info.h"

namespace qs {

void SweepInfo::LoadDefaults() {
    traceLen = 0;
    fftSize = 16384;
    zeroPadAmount = 0;
    chunkSize = QS_SAMPLES_PER_PACKET;
    ppf = 0;
    stepCount = 32;
    binSize = 4882.8125;
    actualStart = 0.0;
    dsRatio = 0;
    initialCenter = 0.0;
    bandZeroNarrowCenter = 0.0;
    initialBand = 0;
    activeBandCnt = 0;
    firstPatchSkipCnt = 0;
    step100kSize = 0;
    IFOffsetFraction = 0.0;
    IFOffset = 0;
    manualIFOffsetFractionVal = 0.0;
    manualIFOffset = false;
    secondLOOffset = 0.0;
    idealIFOffset = 0.0;
    directIQ = false;
}

}  // namespace qs
