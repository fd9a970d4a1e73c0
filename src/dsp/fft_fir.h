// A long single-rate FIR by overlap-save fast convolution in double: each
// segment of new samples, behind the last tapsLen - 1 inputs, goes through
// one real transform, a product with the taps' spectrum and one inverse.
// For a 2047-tap filter that is some 30 multiplies a sample where the
// direct form spends 1024 or more. The output is the direct form's to
// double rounding, except that a NaN or infinity in the input reaches the
// whole segment it falls in, not only the next tapsLen outputs.
//
// Build (SetTaps, allocates and plans), then Filter: consecutive calls run
// as over one long signal, from a zero history. One thread at a time;
// Filter neither allocates nor locks.
#pragma once

#include <memory>

#include "dsp/dsp_vector.h"
#include "dsp/ipps_states.h"

namespace qs {

class FftFIR_64f {
public:
    // Throws qs_exception (allocation) or std::invalid_argument (no taps).
    void SetTaps(const Ipp64f* taps, int tapsLen);
    // len samples of src into dst (which may be src); ippStsNullPtrErr
    // before SetTaps or on a null array, ippStsSizeErr for len < 1.
    IppStatus Filter(const Ipp64f* src, Ipp64f* dst, int len);

private:
    int history = 0;  // tapsLen - 1 inputs kept ahead of each segment
    int points = 0;   // transform length
    int hop = 0;      // new samples a segment
    std::unique_ptr<fft_R_64f> fft;
    smart_ptr<Ipp64f> kernel;  // the taps' spectrum over points, n + 2 layout
    smart_ptr<Ipp64f> frame;   // history, then the segment's new samples
    smart_ptr<Ipp64f> spec;    // points + 2
    smart_ptr<Ipp64f> out;     // points
};

}  // namespace qs
