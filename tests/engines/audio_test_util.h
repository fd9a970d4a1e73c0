// Measures on audio blocks, shared by the audio engine and audio mode tests.
#pragma once

#include <cmath>
#include <vector>

namespace audio_test {

inline double Rms(const float* x, int n) {
    double s = 0.0;
    for (int i = 0; i < n; ++i) s += double(x[i]) * x[i];
    return std::sqrt(s / n);
}

inline double Mean(const float* x, int n) {
    double s = 0.0;
    for (int i = 0; i < n; ++i) s += x[i];
    return s / n;
}

// Frequency of a steady tone in Hz from its rising crossings of the mean,
// interpolated between samples; 0 when fewer than two crossings.
inline double ToneFrequency(const float* x, int n, double rateHz) {
    const double m = Mean(x, n);
    double first = -1.0, last = -1.0;
    int count = 0;
    for (int i = 1; i < n; ++i) {
        const double a = x[i - 1] - m, b = x[i] - m;
        if (a < 0.0 && b >= 0.0) {
            const double t = (i - 1) + -a / (b - a);
            if (count == 0) first = t;
            last = t;
            ++count;
        }
    }
    if (count < 2) return 0.0;
    return (count - 1) * rateHz / (last - first);
}

// Amplitude of the component at `hz`: the note itself, without the noise
// and the clicks of a lost block that an rms would count.
inline double Component(const float* x, int n, double hz, double rateHz) {
    double re = 0.0, im = 0.0;
    for (int i = 0; i < n; ++i) {
        re += x[i] * std::cos(2 * M_PI * hz * i / rateHz);
        im -= x[i] * std::sin(2 * M_PI * hz * i / rateHz);
    }
    return 2.0 * std::hypot(re, im) / n;
}

}  // namespace audio_test
