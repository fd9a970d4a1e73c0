// The bandwidths the instrument has: the native RBW table, the low-pass
// shape's transform and cut-off for an RBW, and the I/Q bandwidth limits by
// decimation. The settings check against them; planning sizes with them.
#pragma once

#include "dsp/qs_defs.h"

namespace qs {

extern const RBWLUT rbwlut[bwLutLen];

// Row of rbwlut whose nativerbw is nearest to rbw; the lower row on a tie.
int native_index_from_rbw(double rbw);
double native_fft_from_rbw(double rbw);
double native_bin_from_rbw(double rbw);

// Low-pass RBW shape: *fft_size = 2^ceil(log2(8e7 / (rbw / 3.2))) (0 when
// the exponent is negative or beyond an int), *fc = the filter cut-off in
// bins of that FFT.
void non_native_fft_from_rbw(double rbw, int* fft_size, double* fc);

// --- IQ bandwidth limits, by log2 of the decimation -----------------------

double get_min_iq_bandwidth(int e);
// Decimation 1 (e = 0) has the model's own limit, fullRateMaxHz.
double get_max_iq_bandwidth(double fullRateMaxHz, int e);

}  // namespace qs
