// Video processors: turn the samples of one chunk into the spectrum of one
// patch. The chunk is cut into overlapping windowed transforms, each bin is
// detected through all of them (min/max through a one-pole video filter, or
// the average), and both arrays leave in the units the caller asks for.
//
// VideoIIR takes real samples at the full rate (sweep and tracking-generator
// engines); VideoNarrow (video_dsiir.h) takes complex, already decimated
// samples. Both share the detection and unit conversion declared below.
//
// Threads: one object per engine thread. Process takes no lock, allocates
// nothing and keeps no state from one call to the next. Construction
// allocates (smart_ptr throws qs_exception "Smart Pointer Malloc Error")
// and reads the settings and the plan; Process reads neither.
#pragma once

#include <memory>

#include "dsp/dsp_vector.h"
#include "dsp/ipps_states.h"
#include "ipps.h"

namespace qs {

class Settings;
struct SweepInfo;

namespace video {

// 10 / ln 10: natural logarithm of a power to dB.
constexpr double DB_PER_LN = 4.342944819032518;

// Running state of the detection over the transforms of one chunk.
struct DetectState {
    double c = 1.0;  // weight of the next transform while the filter ramps up
    int n = 2;
    bool first = true;  // the next filtered value seeds the outputs
};

// Video filter coefficients from the ratio x of the video bandwidth to the
// rate of transforms at a hop of a quarter transform.
void FilterCoefficients(double x, double& iir_fc, double& a0, double& b1);

// Folds the detected values of one transform (amp, len values; used as
// scratch) into the outputs: summed into outMin for the average detector,
// through the video filter into outMin/outMax for min/max.
void Accumulate(Ipp64f* amp, Ipp64f* filtered, Ipp64f* outMin, Ipp64f* outMax, int len, int detector,
                double a0, double b1, DetectState& st);

// Accumulate for the power spectrum of len bins and the min/max detector,
// the spectrum, the filter and the detection in one pass a transform.
void AccumulatePower(const Ipp64fc* bins, Ipp64f* filtered, Ipp64f* outMin, Ipp64f* outMax, int len, double a0,
                     double b1, DetectState& st);
// Converts len values from the detected domain of videoUnits (dB for
// QS_VIDEO_LOG, a magnitude for QS_VIDEO_VOLTAGE, a power otherwise) to
// QS_OUT_DBM, QS_OUT_MV or QS_OUT_MW, in place.
void ToOutputUnits(Ipp64f* v, int len, int videoUnits, int outUnits);

// The end of a chunk's detection, shared by both processors: the mean of
// averageOver summed transforms into both outputs (none for 0), the output
// units, and the reversal of a flipped row.
void Finish(Ipp64f* outMin, Ipp64f* outMax, int len, int averageOver, int videoUnits, int outUnits,
            bool flip);

}  // namespace video

// What both video processors keep: the transform's sizes, the hop and
// number of transforms in a chunk, the video filter and the detection
// buffers.
class VideoLayout {
public:
    int Steps() const { return steps; }
    int StepSize() const { return stepSize; }
    int BufSize() const { return bufSize; }
    int FftSize() const { return fftSize; }
    int FftDiv4() const { return fftDiv4; }
    double A0() const { return a0; }
    double B1() const { return b1; }

protected:
    VideoLayout() = default;
    ~VideoLayout() = default;

    smart_ptr<Ipp64fc> complexBuf;
    smart_ptr<Ipp64f> filtered;
    smart_ptr<Ipp64f> ampBuf;
    double iir_fc = 0.0;
    double a0 = 1.0;
    double b1 = 0.0;
    int bufSize = 0;
    int fftSize = 0;
    int fftDiv4 = 0;
    int fftDiv8 = 0;
    int steps = 0;
    int stepSize = 0;
};

class VideoIIR : public VideoLayout {
public:
    // Sizes from the plan's fftSize, zeroPadAmount and chunkSize, the video
    // filter from Settings::VBW, the window from the RBW shape and window.
    VideoIIR(const Settings* settings, const SweepInfo* sweep_info);
    ~VideoIIR();

    // in: bufSize samples (only the first fftSize for QS_VIDEO_SAMPLE).
    // outMin, outMax: fftDiv4 values each, the bins from fftDiv8 + offset
    // (offset negated and the arrays reversed when flip is set), read
    // fraction of a bin higher when the plan has a step with that fraction.
    void Process(Ipp64f* in, Ipp64f* outMin, Ipp64f* outMax, int offset, int videoUnits, int detector,
                 int outUnits, bool flip, double fraction = 0.0);

    // The window with the transform's 1/N in it.
    const Ipp64f* Window() const { return window.ptr; }

private:
    VideoIIR(const VideoIIR&);
    VideoIIR& operator=(const VideoIIR&);

    // One windowed frame into complexBuf as bins; shifted by the plan's
    // fraction when shift is set.
    void Transform(const Ipp64f* frame, bool shift);
    // Frames frame and frame + stepSize through one complex transform; their
    // bins first .. first + fftDiv4 - 1 into pairBins, one frame after the
    // other.
    void TransformPair(const Ipp64f* frame, int first);
    static constexpr int kMaxPairedSize = 2048;

    smart_ptr<Ipp64f> window;
    smart_ptr<Ipp64f> windowedBuf;
    std::unique_ptr<fft_R_64f> fftSpec;
    // A fractional shift: a complex transform of the frame windowed and
    // turned by exp(-2 pi j fraction n / fftSize) (shiftTable holds both),
    // made ready before any data come.
    double shiftFraction = 0.0;
    std::unique_ptr<fft_C_64fc> pairSpec;  // null: every frame alone
    smart_ptr<Ipp64fc> pairIn;
    smart_ptr<Ipp64fc> pairBins;
    std::unique_ptr<fft_C_64fc> shiftSpec;
    smart_ptr<Ipp64fc> shiftTable;
    smart_ptr<Ipp64fc> shiftIn;
};

}  // namespace qs
