// The video processor of the narrow (down-sampled) sweep: the same
// detection as VideoIIR (video_iir.h) on complex samples that the narrow
// engine has already tuned to zero and decimated.
//
// Differences from VideoIIR: a complex window and transform; no offset;
// the kept quarter of the band is the one around zero frequency, reordered
// so that zero frequency lands in the middle of the output; the chunk
// leaves out the four packets of filter settling that the narrow engine
// skips.
//
// Threads: one object per user thread; Process takes no lock, allocates
// nothing and keeps no state between calls. Construction allocates
// (qs_exception "Smart Pointer Malloc Error").
#pragma once

#include <memory>

#include "dsp/dsp_vector.h"
#include "dsp/ipps_states.h"
#include "engines/video_iir.h"
#include "ipps.h"

namespace qs {

class Settings;
struct SweepInfo;

class VideoNarrow : public VideoLayout {
public:
    // Sizes are the plan's divided by SweepInfo::dsRatio; the VBW is scaled
    // up by the same ratio.
    VideoNarrow(const Settings* settings, const SweepInfo* sweep_info);
    ~VideoNarrow();

    // in: bufSize complex samples. outMin, outMax: fftDiv4 values each;
    // negative frequencies in the first half, zero frequency at fftDiv8.
    // flip_spectrum reverses both arrays at the end.
    void Process(Ipp64fc* in, Ipp64f* outMin, Ipp64f* outMax, int videoUnits, int detector, int outUnits,
                 bool flip_spectrum);

    const Ipp64fc* Window() const { return window.ptr; }

private:
    VideoNarrow(const VideoNarrow&);
    VideoNarrow& operator=(const VideoNarrow&);

    // Detects the two kept runs of complexBuf into dst (power or magnitude).
    void KeepRuns(Ipp64f* dst, bool magnitude);

    smart_ptr<Ipp64fc> window;
    smart_ptr<Ipp64fc> windowedBuf;
    std::unique_ptr<fft_C_64fc> fftSpec;
};

}  // namespace qs
