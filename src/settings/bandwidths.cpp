#include "settings/bandwidths.h"

#include <cmath>

namespace qs {

// binsize and nativerbw to the digits the planning has always used; there
// is deliberately no row for 16777216.
const RBWLUT rbwlut[bwLutLen] = {
    {16, 5000000.0, 10100000.0},
    {32, 2500000.0, 5050000.0},
    {64, 1250000.0, 2525000.0},
    {128, 625000.0, 1262500.0},
    {256, 312500.0, 631250.0},
    {512, 156250.0, 315625.0},
    {1024, 78125.0, 157812.5},
    {2048, 39062.5, 78906.25},
    {4096, 19531.25, 39453.125},
    {8192, 9765.625, 19726.5625},
    {16384, 4882.8125, 9863.28125},
    {32768, 2441.40625, 4931.640625},
    {65536, 1220.70313, 2465.820313},
    {131072, 610.351563, 1232.910156},
    {262144, 305.175781, 616.4550781},
    {524288, 152.587891, 308.2275391},
    {1048576, 76.2939453, 154.1137695},
    {2097152, 38.1469727, 77.05688477},
    {4194304, 19.0734863, 38.52844238},
    {8388608, 9.53674316, 19.26422119},
    {33554432, 2.38418579, 4.816055298},
    {67108864, 1.1920929, 2.408027649},
    {134217728, 0.59604645, 1.204013824},
    {268435456, 0.29802322, 0.602006912},
    {536870912, 0.14901161, 0.301003456},
};

int native_index_from_rbw(double rbw) {
    int best = 0;
    double bestDiff = std::fabs(rbwlut[0].nativerbw - rbw);
    for (int i = 1; i < bwLutLen; ++i) {
        const double diff = std::fabs(rbwlut[i].nativerbw - rbw);
        if (diff < bestDiff) {  // strict: a tie keeps the lower row
            best = i;
            bestDiff = diff;
        }
    }
    return best;
}

double native_fft_from_rbw(double rbw) {
    return static_cast<double>(rbwlut[native_index_from_rbw(rbw)].fftsize);
}

double native_bin_from_rbw(double rbw) { return rbwlut[native_index_from_rbw(rbw)].binsize; }

void non_native_fft_from_rbw(double rbw, int* fft_size, double* fc) {
    // 3.2 bins of the low-pass filter's transition make up one RBW.
    const int e = static_cast<int>(std::ceil(std::log(QS_REAL_SAMPLE_RATE / (rbw / 3.2)) * QS_INV_LN2));
    *fft_size = (e < 0 || e > 30) ? 0 : (1 << e);
    *fc = rbw * 0.625 * *fft_size / QS_REAL_SAMPLE_RATE;
}

namespace {

constexpr int kIqTableLen = 14;  // e = 0 to 13

constexpr double kMinIqBandwidth[kIqTableLen] = {
    100.0,   50000.0, 50000.0, 50000.0, 50000.0, 50000.0, 50000.0,
    50000.0, 20000.0, 10000.0, 5000.0,  2000.0,  1000.0,  100.0,
};

// Row 0 depends on the model and is decided in get_max_iq_bandwidth.
constexpr double kMaxIqBandwidth[kIqTableLen] = {
    0.0,      1.78e7,  8e6,     3.75e6,  2e6,    1e6,    500000.0,
    250000.0, 140000.0, 65000.0, 30000.0, 15000.0, 8000.0, 4000.0,
};

}  // namespace

double get_min_iq_bandwidth(int e) {
    if (e < 1 || e > 13) return 100.0;
    return kMinIqBandwidth[e];
}

double get_max_iq_bandwidth(double fullRateMaxHz, int e) {
    if (e < 0 || e > 13) return 2e7;
    if (e > 0) return kMaxIqBandwidth[e];
    return fullRateMaxHz;
}

}  // namespace qs
