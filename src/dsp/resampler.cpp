#include "dsp/resampler.h"

#include <algorithm>
#include <cstdint>

namespace qs {

namespace {

// Eight partial sums: without them the reduction is one chain of
// dependent adds, which the compiler may not reorder on its own.
inline float dot(const Ipp32f* g, const Ipp32f* x, int n) {
    float acc[8] = {};
    int i = 0;
    for (; i + 8 <= n; i += 8)
        for (int q = 0; q < 8; ++q) acc[q] += g[i + q] * x[i + q];
    for (; i < n; ++i) acc[0] += g[i] * x[i];
    return ((acc[0] + acc[4]) + (acc[1] + acc[5])) + ((acc[2] + acc[6]) + (acc[3] + acc[7]));
}

}  // namespace

void Resampler_32f::SetTaps(const Ipp32f* taps, int tapsLen, int upFactor, int downFactor, int maxSrcLen) {
    if (tapsLen < 1 || upFactor < 1 || downFactor < 1 || maxSrcLen < 1) throw qs_exception("Resampler out of range");
    up = upFactor;
    down = downFactor;
    maxSrc = maxSrcLen;
    // Output m sits at stuffed position m D, phase r = m D mod U: taps
    // r, r + U, r + 2U... meet real samples, the newest first.
    phases.assign(size_t(up), {});
    int longest = 0;
    for (int r = 0; r < up; ++r) {
        for (int k = r; k < tapsLen; k += up) phases[size_t(r)].push_back(taps[k]);
        std::reverse(phases[size_t(r)].begin(), phases[size_t(r)].end());
        longest = std::max(longest, int(phases[size_t(r)].size()));
    }
    history = std::max(longest - 1, 0);
    line.malloc(history + maxSrc);
    Reset();
}

void Resampler_32f::Reset() {
    if (line.ptr) ippsZero_32f(line.ptr, history);
}

int Resampler_32f::Process(const Ipp32f* src, int srcLen, Ipp32f* dst) {
    if (!line.ptr || srcLen < 0 || srcLen > maxSrc || (int64_t(srcLen) * up) % down != 0) return -1;
    if (srcLen == 0) return 0;
    Ipp32f* x = line.ptr + history;  // x[-history..srcLen)
    std::copy(src, src + srcLen, x);
    const int outLen = int(int64_t(srcLen) * up / down);
    for (int m = 0; m < outLen; ++m) {
        const int n = m * down;
        const int r = n % up;
        const std::vector<Ipp32f>& g = phases[size_t(r)];
        const int taps = int(g.size());
        dst[m] = dot(g.data(), x + n / up - taps + 1, taps);
    }
    std::copy(x + srcLen - history, x + srcLen, line.ptr);
    return outLen;
}

}  // namespace qs
