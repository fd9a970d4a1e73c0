// Analysis windows for the video processors and the real-time engine,
// normalised to a mean of 1 so that levels do not depend on the window.
// Stateless; set-up time only (the complex forms allocate a temporary).
#pragma once

#include "ippcore.h"

namespace qs {

// exp(-(((x - (len - 1) / 2) / (2 sigma))^2)); x is an integer.
double confinedGaussianHelper(int x, double sigma, int len);
// Confined Gaussian of len points, sigma as a fraction of len.
void genConfinedGaussian(double* dst, double sigma, int len);

// Scales so that the mean of len values is 1. Nothing for len below 1 or
// a window that sums to 0. The float form computes in double.
void normalizeWindow(double* window, int len);
void normalizeWindow(float* window, int len);

// n doubles by RBW shape: QS_RBW_SHAPE_LOWPASS Blackman low-pass taps of
// cut-off fc / n (zeroPad ignored); QS_RBW_SHAPE_GAUSSIAN a confined
// Gaussian over n - zeroPad; otherwise the windowType over n - zeroPad
// (QS_WINDOW_BLACKMAN, _HAMMING, _FLAT_TOP, anything else Nuttall).
// Entries past the window are 0; the mean over all n is 1.
void build_window(int rbwType, double* window, int windowType, int n, double fc, int zeroPad);
// Nuttall over n - zeroPad in float, mean 1 over n.
void build_rt_window(float* window, int n, int zeroPad);
// build_window with each value as both real and imaginary part (2n doubles).
void build_cplx_window_f(double* window, int rbwType, int windowType, int n, double fc, int zeroPad);
void build_cplx_window_fc(Ipp64fc* window, int rbwType, int windowType, int n, double fc, int zeroPad);

// Dolph-Chebyshev window of N points, sidelobes atten dB down, peak 1.
void cheby_win(float* out, int N, float atten);
// Chebyshev window of n points by an inverse transform of its spectrum
// (sidelobes 100 dB down).
void build_cheby_window(float* window, int n);

}  // namespace qs
