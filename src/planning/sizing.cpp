#include "planning/sizing.h"

#include <cmath>

#include "dsp/math_helpers.h"
#include "qs_api.h"
#include "settings/bandwidths.h"

namespace qs {

void get_fft_size(double rbw, int rbwShape, int& fftSize, int& zeroPadAmount) {
    zeroPadAmount = 0;
    switch (rbwShape) {
        case QS_RBW_SHAPE_NATIVE: {
            const int n = static_cast<int>(NUTTALL_WINDOW_BW * QS_REAL_SAMPLE_RATE / rbw);
            fftSize = static_cast<int>(round_up_power_two(static_cast<unsigned>(n)));
            zeroPadAmount = fftSize - n;
            break;
        }
        case QS_RBW_SHAPE_LOWPASS: {
            double fc = 0.0;
            non_native_fft_from_rbw(rbw, &fftSize, &fc);
            break;
        }
        default: {
            const int n = static_cast<int>(CONFINED_GAUSSIAN_BW * QS_REAL_SAMPLE_RATE / rbw);
            fftSize = 2 * static_cast<int>(round_up_power_two(static_cast<unsigned>(n)));
            zeroPadAmount = fftSize - n;
            break;
        }
    }
}

// ---------------------------------------------------------------------------

int get_min_ppf(int min) {
    if (min == 1) return 1;
    const int p = static_cast<int>(round_up_power_two(static_cast<unsigned>(min)));
    if (p <= 32) return p;
    const int threeQuarters = p / 4 * 3;
    return min < threeQuarters ? threeQuarters : p;
}

void solve_ppf_step(int* min_ppf, int* min_steps) {
    int ppf = get_min_ppf(*min_ppf);
    const int s = *min_steps;
    const int p = static_cast<int>(round_up_power_two(static_cast<unsigned>(s)));
    while (ppf * p < 16) ppf *= 2;
    *min_ppf = ppf;
    int a = 16 / ppf;
    if (a < 1) a = 1;
    *min_steps = (s + a - 1) / a * a;
}

// ---------------------------------------------------------------------------

// ---------------------------------------------------------------------------

int calculateBestRealTimeSweepSize(int startSize) {
    int v = startSize;
    int k = 0;
    while (v > 1023) {
        v = (v & 1) ? (v + 1) / 2 : v / 2;
        ++k;
    }
    v <<= k;
    if (v % 4) v += 4 - v % 4;
    return v;
}

}  // namespace qs
