// Shared numeric vocabulary of the signal code: rates, window widths, the
// RBW table's row type and the model tag of the IQ bandwidth tables.
#pragma once

namespace qs {

// The converter's real sample rate, and the complex rate at decimation 1.
constexpr double QS_REAL_SAMPLE_RATE = 8e7;
constexpr double QS_COMPLEX_SAMPLE_RATE = 4e7;

// Main-lobe widths in bins, as the FFT size rules use them.
constexpr double NUTTALL_WINDOW_BW = 2.02;
constexpr double CONFINED_GAUSSIAN_BW = 2.65;

// 1 / ln(2): log2 is taken as ln(x) times this throughout, so results at
// exact powers of two match the planning's own arithmetic.
constexpr double QS_INV_LN2 = 1.4426950408889634;

// One row of the native RBW table: binsize = 8e7 / fftsize, nativerbw =
// 2.02 x binsize.
struct RBWLUT {
    unsigned fftsize;
    double binsize;
    double nativerbw;
};

constexpr int bwLutLen = 25;

// Declared for thread priorities; the real-time threads set SCHED_FIFO
// directly on this platform.
enum thread_priority {
    ABOVE_NORMAL = 0,
    TIME_CRITICAL = 1,
};

}  // namespace qs
