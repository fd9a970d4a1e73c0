#include "dsp/fft_fir.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "dsp/math_helpers.h"

namespace qs {

void FftFIR_64f::SetTaps(const Ipp64f* taps, int tapsLen) {
    if (!taps || tapsLen < 1) throw std::invalid_argument("FIR without taps");
    history = tapsLen - 1;
    // About four times the taps: the transforms per sample then cost
    // little more than at the best size, and the buffers stay in cache.
    points = 64;
    while (points < 4 * tapsLen) points *= 2;
    hop = points - history;
    fft.reset(new fft_R_64f(mylog2(points), IPP_FFT_NODIV_BY_ANY, ippAlgHintFast));
    kernel.malloc(points + 2);
    frame.malloc(points);
    spec.malloc(points + 2);
    out.malloc(points);
    ippsZero_64f(frame.ptr, points);
    ippsCopy_64f(taps, frame.ptr, tapsLen);
    fft->FwdCCS(frame.ptr, reinterpret_cast<Ipp64fc*>(kernel.ptr));
    // The inverse's 1/points, exact (a power of two), in the kernel.
    ippsMulC_64f(kernel.ptr, 1.0 / points, kernel.ptr, points + 2);
    ippsZero_64f(frame.ptr, points);
}

IppStatus FftFIR_64f::Filter(const Ipp64f* src, Ipp64f* dst, int len) {
    if (!fft || !src || !dst) return ippStsNullPtrErr;
    if (len < 1) return ippStsSizeErr;
    Ipp64fc* bins = reinterpret_cast<Ipp64fc*>(spec.ptr);
    for (int done = 0; done < len;) {
        const int m = std::min(hop, len - done);
        ippsCopy_64f(src + done, frame.ptr + history, m);
        // Outputs history .. history + m - 1 of the circular convolution
        // reach no further than the new samples; the rest is zeroed so
        // that no older value can spoil the transform.
        if (history + m < points) ippsZero_64f(frame.ptr + history + m, points - history - m);
        fft->FwdCCS(frame.ptr, bins);
        ippsMul_64fc(bins, reinterpret_cast<const Ipp64fc*>(kernel.ptr), bins, points / 2 + 1);
        spec[1] = spec[points];  // the Nyquist bin where the packed inverse takes it
        fft->InvFFT(spec.ptr, out.ptr);
        // The next segment's history, read before dst (possibly src) is written.
        std::memmove(frame.ptr, frame.ptr + m, size_t(history) * sizeof(Ipp64f));
        ippsCopy_64f(out.ptr + history, dst + done, m);
        done += m;
    }
    return ippStsNoErr;
}

}  // namespace qs
