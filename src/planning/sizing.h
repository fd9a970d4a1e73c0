// Sizing rules of a plan: RBW to FFT size, the packets-per-step solver,
// the I/Q bandwidth limits by decimation and the real-time sweep size.
// Pure functions of their arguments and the native RBW table.
#pragma once

#include "dsp/qs_defs.h"

namespace qs {

class Settings;

extern const RBWLUT rbwlut[bwLutLen];

// Row of rbwlut whose nativerbw is nearest to rbw; the lower row on a tie.
int native_index_from_rbw(double rbw);
double native_fft_from_rbw(double rbw);
double native_bin_from_rbw(double rbw);

// Low-pass RBW shape: *fft_size = 2^ceil(log2(8e7 / (rbw / 3.2))) (0 when
// the exponent is negative or beyond an int), *fc = the filter cut-off in
// bins of that FFT.
void non_native_fft_from_rbw(double rbw, int* fft_size, double* fc);

// FFT size and zero padding of a measurement from m_rbw and m_rbwShape.
// No guard for a zero RBW: the public range check keeps it positive.
void get_fft_size(const Settings* s, int& fftSize, int& zeroPadAmount);

// --- Packets per LO step --------------------------------------------------

// The nearest packets-per-step count the device can do, at or above min:
// powers of two, and above 32 also 1.5 times a power of two. min > 0.
int get_min_ppf(int min);
// Raises *min_ppf to a legal count and both until ppf x steps is a whole
// number of 16-packet blocks.
void solve_ppf_step(int* min_ppf, int* min_steps);

// --- IQ bandwidth limits, by log2 of the decimation -----------------------

double get_min_iq_bandwidth(int e);
// Decimation 1 (e = 0) has the model's own limit, fullRateMaxHz.
double get_max_iq_bandwidth(double fullRateMaxHz, int e);

// --- Real time ------------------------------------------------------------

// Halves (rounding up) until at most 1023, scales back, rounds up to a
// multiple of 4.
int calculateBestRealTimeSweepSize(int startSize);

}  // namespace qs
