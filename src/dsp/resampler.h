// A rational resampler: up by U (zero-stuffed), one low-pass FIR, down by
// D, computed polyphase. Only the outputs kept are made, and only from the
// taps that meet a sample that is not a stuffed zero: about L / U
// multiplies a kept output, where the plain chain (SampleUp, FIR,
// SampleDown) spends L x D. Each block's stuffed length must be a whole
// number of D, so every block starts on output phase 0.
//
// Build (SetTaps, allocates), Reset (clears the history), Process. One
// thread at a time; Process neither allocates nor locks.
#pragma once

#include <vector>

#include "dsp/dsp_vector.h"

namespace qs {

class Resampler_32f {
public:
    // taps: the FIR at the stuffed rate. maxSrcLen: the longest block
    // Process takes. Throws qs_exception (allocation) or std::bad_alloc.
    void SetTaps(const Ipp32f* taps, int tapsLen, int up, int down, int maxSrcLen);
    void Reset();
    // srcLen x up must be a multiple of down and srcLen at most maxSrcLen;
    // writes srcLen x up / down outputs and returns their count, or -1 (and
    // writes nothing) for a length it can't take. src and dst must not
    // overlap.
    int Process(const Ipp32f* src, int srcLen, Ipp32f* dst);

private:
    int up = 1, down = 1;
    int history = 0;    // input samples kept: the longest phase's taps less one
    int maxSrc = 0;
    std::vector<std::vector<Ipp32f>> phases;  // per output phase, taps reversed
    smart_ptr<Ipp32f> line;                   // history, then the block
};

}  // namespace qs
