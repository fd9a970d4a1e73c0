#include "engines/video_iir.h"

#include <algorithm>
#include <cmath>

#include "dsp/math_helpers.h"
#include "dsp/windows.h"
#include "qs_api.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace qs {
namespace video {

void FilterCoefficients(double x, double& iir_fc, double& a0, double& b1) {
    if (x > 1.0) {
        iir_fc = 1.0;
        a0 = 1.0;
        b1 = 0.0;
    } else {
        iir_fc = x;
        a0 = x;
        b1 = 1.0 - x;
    }
}

void Accumulate(Ipp64f* amp, Ipp64f* filtered, Ipp64f* outMin, Ipp64f* outMax, int len, int detector,
                double a0, double b1, DetectState& st) {
    if (detector != QS_DETECTOR_MIN_MAX) {
        ippsAdd_64f(amp, outMin, outMin, len);
        return;
    }
    if (st.c > a0) {
        // Running mean of the first transforms, so the filter starts settled;
        // nothing is delivered while it ramps.
        ippsMulC_64f(filtered, 1.0 - st.c, filtered, len);
        ippsMulC_64f(amp, st.c, amp, len);
        ippsAdd_64f(amp, filtered, filtered, len);
        st.c = 1.0 / st.n;
        ++st.n;
        return;
    }
    ippsMulC_64f(filtered, b1, filtered, len);
    ippsMulC_64f(amp, a0, amp, len);
    ippsAdd_64f(amp, filtered, filtered, len);
    if (st.first) {
        ippsCopy_64f(filtered, outMin, len);
        ippsCopy_64f(filtered, outMax, len);
        st.first = false;
    } else {
        ippsMinEvery_64f(filtered, outMin, outMin, len);
        ippsMaxEvery_64f(filtered, outMax, outMax, len);
    }
}

void AccumulatePower(const Ipp64fc* bins, Ipp64f* filtered, Ipp64f* outMin, Ipp64f* outMax, int len, double a0,
                     double b1, DetectState& st) {
    if (st.c > a0) {
        ippsPowerVideoFilter_64fc(bins, st.c, 1.0 - st.c, filtered, nullptr, nullptr, len);
        st.c = 1.0 / st.n;
        ++st.n;
        return;
    }
    if (st.first) {
        // Seeds that any value replaces (a NaN too), so the first filtered
        // value goes to both outputs in the same pass.
        std::fill(outMin, outMin + len, HUGE_VAL);
        std::fill(outMax, outMax + len, -HUGE_VAL);
        st.first = false;
    }
    ippsPowerVideoFilter_64fc(bins, a0, b1, filtered, outMin, outMax, len);
}

void Finish(Ipp64f* outMin, Ipp64f* outMax, int len, int averageOver, int videoUnits, int outUnits,
            bool flip) {
    if (averageOver > 0) {
        ippsMulC_64f(outMin, 1.0 / averageOver, outMin, len);
        ippsCopy_64f(outMin, outMax, len);
    }
    ToOutputUnits(outMin, len, videoUnits, outUnits);
    ToOutputUnits(outMax, len, videoUnits, outUnits);
    if (flip) {
        ippsFlip_64f_I(outMin, len);
        ippsFlip_64f_I(outMax, len);
    }
}

void ToOutputUnits(Ipp64f* v, int len, int videoUnits, int outUnits) {
    // The short constants are used as they stand: 223.6 is sqrt(50000) (the
    // step from sqrt(mW) to mV in 50 ohm), 46.9897 the same in dB, and
    // 0.115129255 is ln(10) / 20.
    if (videoUnits == QS_VIDEO_LOG) {
        if (outUnits == QS_OUT_MV) {
            ippsAddC_64f(v, 46.9897, v, len);
            ippsMulC_64f(v, 0.115129255, v, len);
            ippsExp_64f(v, v, len);
        } else if (outUnits == QS_OUT_MW) {
            for (int i = 0; i < len; ++i) v[i] = std::pow(10.0, 0.1 * v[i]);
        }
    } else if (videoUnits == QS_VIDEO_VOLTAGE) {
        if (outUnits == QS_OUT_DBM) {
            ippsSqr_64f(v, v, len);
            ippsLn_64f(v, v, len);
            ippsMulC_64f(v, DB_PER_LN, v, len);
        } else if (outUnits == QS_OUT_MV) {
            ippsMulC_64f(v, 223.6, v, len);
        } else if (outUnits == QS_OUT_MW) {
            ippsSqr_64f(v, v, len);
        }
    } else {
        if (outUnits == QS_OUT_DBM) {
            ippsLn_64f(v, v, len);
            ippsMulC_64f(v, DB_PER_LN, v, len);
        } else if (outUnits == QS_OUT_MV) {
            ippsSqrt_64f(v, v, len);
            ippsMulC_64f(v, 223.6, v, len);
        }
    }
}

}  // namespace video

VideoIIR::VideoIIR(const Settings* settings, const SweepInfo* sweep_info) {
    fftSize = sweep_info->fftSize;
    fftDiv4 = fftSize / 4;
    fftDiv8 = fftSize / 8;
    bufSize = sweep_info->chunkSize;
    const int zeroPad = sweep_info->zeroPadAmount;
    // Zero padding shortens the hop in proportion to the window's true length.
    stepSize = int((fftSize - zeroPad) * 0.25);
    steps = std::max((bufSize - fftSize) / stepSize + 1, 1);
    // Four times the 80 MHz rate: x is the VBW in units of the transform
    // rate at a hop of fftSize / 4.
    video::FilterCoefficients(fftSize / 320000000.0 * settings->VBW(), iir_fc, a0, b1);

    window.malloc(fftSize);
    windowedBuf.malloc(fftSize);
    complexBuf.malloc(fftSize);
    filtered.malloc(fftDiv4);
    ampBuf.malloc(fftDiv4 + 128);
    fftSpec.reset(new fft_R_64f(mylog2(fftSize), IPP_FFT_NODIV_BY_ANY, ippAlgHintFast));
    build_window(settings->RBWShape(), window, settings->Window(), fftSize, settings->WindowFC(), zeroPad);
    // The transforms' 1/N folded into the window (and so into the turn
    // table): a power of two, so exact, and no scaling pass a transform.
    ippsMulC_64f(window, 1.0 / fftSize, window, fftSize);
    for (const Patch& p : sweep_info->patchInfo.Patches())
        if (p.if_fraction != 0.0 && !p.flip_spectrum) shiftFraction = p.if_fraction;
    // One complex transform for two real frames: with FFTW_ESTIMATE plans
    // it took 0.56 to 0.79 of the time of two real ones from 256 to 2048
    // points, and longer from 4096 up.
    if (fftSize <= kMaxPairedSize) {
        pairSpec.reset(new fft_C_64fc(mylog2(fftSize), IPP_FFT_NODIV_BY_ANY, ippAlgHintFast));
        pairIn.malloc(fftSize);
        pairBins.malloc(2 * fftDiv4);
    }
    if (shiftFraction != 0.0) {
        shiftSpec.reset(new fft_C_64fc(mylog2(fftSize), IPP_FFT_NODIV_BY_ANY, ippAlgHintFast));
        shiftTable.malloc(fftSize);
        shiftIn.malloc(fftSize);
        // The window and the turn in one table: one pass a frame.
        for (int n = 0; n < fftSize; ++n) {
            const double ph = -2.0 * M_PI * shiftFraction * n / fftSize;
            shiftTable[n] = Ipp64fc{window[n] * std::cos(ph), window[n] * std::sin(ph)};
        }
    }
}

void VideoIIR::Transform(const Ipp64f* frame, bool shift) {
    if (!shift) {
        ippsMul_64f(frame, window, windowedBuf, fftSize);
        fftSpec->FwdCCS(windowedBuf.ptr, complexBuf.ptr);
        return;
    }
    // Bin k of the turned frame is bin k + fraction of the frame itself.
    const Ipp64fc* t = shiftTable.ptr;
    Ipp64fc* x = shiftIn.ptr;
    for (int n = 0; n < fftSize; ++n) x[n] = Ipp64fc{frame[n] * t[n].re, frame[n] * t[n].im};
    shiftSpec->FwdFFT(shiftIn.ptr, complexBuf.ptr);
}

// Two frames a stepSize apart in one complex transform, the first as the
// real part and the second as the imaginary part, then each frame's kept
// bins separated.
void VideoIIR::TransformPair(const Ipp64f* frame, int first) {
    ippsWindowPair_64f(frame, frame + stepSize, window.ptr, pairIn.ptr, fftSize);
    pairSpec->FwdFFT(pairIn.ptr, complexBuf.ptr);
    ippsSplitPair_64fc(complexBuf.ptr, fftSize, first, pairBins.ptr, pairBins.ptr + fftDiv4, fftDiv4);
}

VideoIIR::~VideoIIR() = default;

void VideoIIR::Process(Ipp64f* in, Ipp64f* outMin, Ipp64f* outMax, int offset, int videoUnits, int detector,
                       int outUnits, bool flip, double fraction) {
    const bool shift = fraction != 0.0 && !flip && shiftSpec && fraction == shiftFraction;
    if (flip) offset = -offset;
    ippsZero_64f(outMin, fftDiv4);
    ippsZero_64f(outMax, fftDiv4);
    ippsZero_64f(filtered, fftDiv4);
    // complexBuf holds the transform's bins as pairs: pair k is bin k, up
    // to the Nyquist bin at pair fftSize / 2 (a mirrored row at the largest
    // offset reads it).
    //
    // Output point j is IF bin fftDiv8 + offset + j, so that point fftDiv8
    // is the IF centre fftDiv4 + offset. A mirrored row is read backwards:
    // point j must then be IF bin fftDiv4 - offset - (j - fftDiv8), which
    // after the flip below means a window starting one bin higher. Reversing
    // the unshifted window mirrored about a half bin and put every tone of
    // a mirrored row one point low.
    const int first = fftDiv8 + offset + (flip ? 1 : 0);
    const Ipp64fc* kept = complexBuf.ptr + first;

    int averageOver = 0;
    if (videoUnits == QS_VIDEO_SAMPLE) {
        Transform(in, shift);
        ippsPowerSpectr_64fc(kept, outMin, fftDiv4);
        ippsCopy_64f(outMin, outMax, fftDiv4);
        videoUnits = QS_VIDEO_POWER;
    } else {
        if (detector == QS_DETECTOR_AVERAGE) averageOver = steps;
        video::DetectState st;
        auto detect = [&](const Ipp64fc* bins) {
            if (videoUnits == QS_VIDEO_LOG) {
                ippsPowerSpectr_64fc(bins, ampBuf, fftDiv4);
                ippsLn_64f(ampBuf, ampBuf, fftDiv4);
                ippsMulC_64f(ampBuf, video::DB_PER_LN, ampBuf, fftDiv4);
            } else if (videoUnits == QS_VIDEO_VOLTAGE) {
                ippsMagnitude_64fc(bins, ampBuf, fftDiv4);
            } else if (detector == QS_DETECTOR_MIN_MAX) {
                video::AccumulatePower(bins, filtered, outMin, outMax, fftDiv4, a0, b1, st);
                return;
            } else {
                ippsPowerSpectr_64fc(bins, ampBuf, fftDiv4);
            }
            video::Accumulate(ampBuf, filtered, outMin, outMax, fftDiv4, detector, a0, b1, st);
        };
        int i = 0;
        if (pairSpec && !shift)
            for (; i + 1 < steps; i += 2) {
                TransformPair(in + size_t(i) * size_t(stepSize), first);
                detect(pairBins.ptr);
                detect(pairBins.ptr + fftDiv4);
            }
        for (; i < steps; ++i) {
            Transform(in + size_t(i) * size_t(stepSize), shift);
            detect(kept);
        }
    }
    video::Finish(outMin, outMax, fftDiv4, averageOver, videoUnits, outUnits, flip);
}

}  // namespace qs
