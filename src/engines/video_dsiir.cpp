#include "engines/video_dsiir.h"

#include <algorithm>

#include "dsp/qs_lib.h"
#include "dsp/windows.h"
#include "engines/video_iir.h"
#include "qs_api.h"
#include "transport/wire_formats.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace qs {

namespace {
constexpr int PACKET_SAMPLES = QS_SAMPLES_PER_PACKET;
// Packets at the head of each narrow step that hold the filters' settling.
constexpr int SETTLING_PACKETS = 4;
}  // namespace

VideoNarrow::VideoNarrow(const Settings* settings, const SweepInfo* sweep_info) {
    const int r = sweep_info->dsRatio;
    fftSize = sweep_info->fftSize / r;
    fftDiv4 = fftSize / 4;
    fftDiv8 = fftSize / 8;
    const int zp = sweep_info->zeroPadAmount / r;
    bufSize = ((sweep_info->chunkSize / PACKET_SAMPLES - SETTLING_PACKETS) * PACKET_SAMPLES) / r;
    stepSize = int((fftSize - zp) * 0.25);
    // The count divides by a quarter transform, not by the hop.
    steps = std::max((bufSize - fftSize) / fftDiv4 + 1, 1);
    video::FilterCoefficients(fftSize / 320000000.0 * (r * settings->VBW()), iir_fc, a0, b1);

    window.malloc(fftSize);
    windowedBuf.malloc(fftSize);
    complexBuf.malloc(fftSize);
    filtered.malloc(fftDiv4);
    ampBuf.malloc(fftDiv4 + 128);
    fftSpec.reset(new fft_C_64fc(mylog2(fftSize), IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast));
    build_cplx_window_fc(window, settings->RBWShape(), settings->Window(), fftSize, settings->WindowFC(), zp);
}

VideoNarrow::~VideoNarrow() = default;

void VideoNarrow::KeepRuns(Ipp64f* dst, bool magnitude) {
    // Zero frequency is bin 0: bins 0..f8-1 are the upper half of the kept
    // band, bins 7N/8.. its lower half.
    const int h = (7 * fftSize) / 8;
    if (magnitude) {
        ippsMagnitude_64fc(complexBuf.ptr, dst + fftDiv8, fftDiv8);
        ippsMagnitude_64fc(complexBuf.ptr + h, dst, fftDiv8);
    } else {
        ippsPowerSpectr_64fc(complexBuf.ptr, dst + fftDiv8, fftDiv8);
        ippsPowerSpectr_64fc(complexBuf.ptr + h, dst, fftDiv8);
    }
}

void VideoNarrow::Process(Ipp64fc* in, Ipp64f* outMin, Ipp64f* outMax, int videoUnits, int detector,
                          int outUnits, bool flip_spectrum) {
    ippsZero_64f(outMin, fftDiv4);
    ippsZero_64f(outMax, fftDiv4);
    ippsZero_64f(filtered, fftDiv4);

    int averageOver = 0;
    if (videoUnits == QS_VIDEO_SAMPLE) {
        ippsMul_64fc(in, window, windowedBuf, fftSize);
        fftSpec->FwdFFT(windowedBuf.ptr, complexBuf.ptr);
        KeepRuns(outMin, false);
        ippsCopy_64f(outMin, outMax, fftDiv4);
        videoUnits = QS_VIDEO_POWER;
    } else {
        if (detector == QS_DETECTOR_AVERAGE) averageOver = steps;
        video::DetectState st;
        for (int i = 0; i < steps; ++i) {
            ippsMul_64fc(in + size_t(i) * size_t(stepSize), window, windowedBuf, fftSize);
            fftSpec->FwdFFT(windowedBuf.ptr, complexBuf.ptr);
            KeepRuns(ampBuf, videoUnits == QS_VIDEO_VOLTAGE);
            if (videoUnits == QS_VIDEO_LOG) {
                ippsLn_64f(ampBuf, ampBuf, fftDiv4);
                ippsMulC_64f(ampBuf, video::DB_PER_LN, ampBuf, fftDiv4);
            }
            video::Accumulate(ampBuf, filtered, outMin, outMax, fftDiv4, detector, a0, b1, st);
        }
    }
    video::Finish(outMin, outMax, fftDiv4, averageOver, videoUnits, outUnits, flip_spectrum);
}

}  // namespace qs
