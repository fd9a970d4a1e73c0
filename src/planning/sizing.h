// Sizing rules of a plan: RBW to FFT size, the packets-per-step solver and
// the real-time sweep size. Pure functions of their arguments.
#pragma once

#include "settings/bandwidths.h"

namespace qs {

// FFT size and zero padding of a measurement at an RBW of a shape. No
// guard for a zero RBW: the settings' range check keeps it positive.
void get_fft_size(double rbw, int rbwShape, int& fftSize, int& zeroPadAmount);

// --- Packets per LO step --------------------------------------------------

// The nearest packets-per-step count the device can do, at or above min:
// powers of two, and above 32 also 1.5 times a power of two. min > 0.
int get_min_ppf(int min);
// Raises *min_ppf to a legal count and both until ppf x steps is a whole
// number of 16-packet blocks.
void solve_ppf_step(int* min_ppf, int* min_steps);

// --- Real time ------------------------------------------------------------

// Halves (rounding up) until at most 1023, scales back, rounds up to a
// multiple of 4.
int calculateBestRealTimeSweepSize(int startSize);

}  // namespace qs
