#include "dsp/windows.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <utility>
#include <vector>

#include "dsp/math_helpers.h"
#include "ipps.h"
#include "qs_api.h"

namespace qs {

namespace {

// Value of the Chebyshev polynomial of degree n at x, inside and outside
// [-1, 1].
double cheby_poly(double n, double x) {
    if (std::fabs(x) <= 1.0) return std::cos(n * std::acos(x));
    const double v = std::cosh(n * qs::acosh(std::fabs(x)));
    return (x < 0.0 && std::fmod(n, 2.0) == 1.0) ? -v : v;
}

// Cosine-sum windows of the native RBW shape, by window type. The
// multiples of the angle come from cos(d) by the Chebyshev recurrence
// cos(kd) = 2 cos(d) cos((k-1)d) - cos((k-2)d): one cosine a point instead
// of up to four (a 2^21-point window took most of a sweep's set-up), with
// results within a few units in the last place of the direct form.
double cosine_window(int windowType, double d) {
    const double c1 = std::cos(d);
    const double c2 = 2.0 * c1 * c1 - 1.0;
    const double c3 = 2.0 * c1 * c2 - c1;
    switch (windowType) {
        case QS_WINDOW_BLACKMAN:
            return 0.42659 - 0.49656 * c1 + 0.076849 * c2;
        case QS_WINDOW_HAMMING:
            return 0.54 - 0.46 * c1;
        case QS_WINDOW_FLAT_TOP:
            return 1.0 - 1.93 * c1 + 1.29 * c2 - 0.388 * c3 + 0.028 * (2.0 * c1 * c3 - c2);
        default:
            return 0.355768 - 0.487396 * c1 + 0.144232 * c2 - 0.012604 * c3;
    }
}

// Angle step of a cosine window of m points; a single point sits at 0.
double angle_step(int m) { return m > 1 ? 2.0 * M_PI / double(m - 1) : 0.0; }

template <typename T>
void normalize(T* window, int len) {
    if (len < 1) return;
    double sum = 0.0;
    for (int i = 0; i < len; ++i) sum += double(window[i]);
    if (sum == 0.0) return;
    const double k = double(len) / sum;
    for (int i = 0; i < len; ++i) window[i] = T(double(window[i]) * k);
}

}  // namespace

double confinedGaussianHelper(int x, double sigma, int len) {
    const double t = (double(x) - double(len - 1) * 0.5) / (2.0 * sigma);
    return std::exp(-(t * t));
}

void genConfinedGaussian(double* dst, double sigma, int len) {
    if (len < 1) return;
    const double s = sigma * len;
    auto G = [s, len](int x) { return confinedGaussianHelper(x, s, len); };
    // The arguments -0.5, len - 0.5 and -0.5 - len of the continuous form,
    // truncated toward zero.
    const double a = G(0);
    const double b = G(len - 1) + G(-len);
    for (int i = 0; i < len; ++i) dst[i] = G(i) - (G(i + len) + G(i - len)) * a / b;
}

void normalizeWindow(double* window, int len) { normalize(window, len); }
void normalizeWindow(float* window, int len) { normalize(window, len); }

namespace {

// The last windows built, by everything that shapes them: every worker of a
// sweep builds the same window, and a restart with the same settings builds
// it again. Set-up time only; the lock never meets the data path.
struct WindowKey {
    int rbwType, windowType, n, zeroPad;
    double fc;
    bool operator==(const WindowKey& o) const {
        return rbwType == o.rbwType && windowType == o.windowType && n == o.n && zeroPad == o.zeroPad && fc == o.fc;
    }
};

class WindowCache {
public:
    bool Find(const WindowKey& key, double* window) {
        std::lock_guard<std::mutex> hold(m_lock);
        for (const auto& e : m_entries)
            if (e.first == key) {
                std::copy(e.second.begin(), e.second.end(), window);
                return true;
            }
        return false;
    }
    void Keep(const WindowKey& key, const double* window) {
        std::lock_guard<std::mutex> hold(m_lock);
        if (m_entries.size() == kKept) m_entries.erase(m_entries.begin());
        m_entries.emplace_back(key, std::vector<double>(window, window + key.n));
    }

private:
    static constexpr size_t kKept = 2;
    std::mutex m_lock;
    std::vector<std::pair<WindowKey, std::vector<double>>> m_entries;
};

WindowCache g_windows;

void compute_window(int rbwType, double* window, int windowType, int n, double fc, int zeroPad) {
    if (rbwType == QS_RBW_SHAPE_LOWPASS) {
        // Zeroed first: a cut-off the design refuses leaves zeros, not
        // whatever the array held.
        ippsZero_64f(window, n);
        ippsFIRGenLowpass_64f(fc / n, window, n, ippWinBlackman, ippFalse, nullptr);
    } else if (rbwType == QS_RBW_SHAPE_GAUSSIAN) {
        ippsZero_64f(window, n);
        genConfinedGaussian(window, 0.1, n - zeroPad);
    } else {
        ippsZero_64f(window, n);
        const int m = n - zeroPad;
        const double step = angle_step(m);
        for (int i = 0; i < m; ++i) window[i] = cosine_window(windowType, step * i);
    }
    normalizeWindow(window, n);
}

}  // namespace

void build_window(int rbwType, double* window, int windowType, int n, double fc, int zeroPad) {
    if (n < 1) return;
    const WindowKey key{rbwType, windowType, n, zeroPad, fc};
    if (g_windows.Find(key, window)) return;
    compute_window(rbwType, window, windowType, n, fc, zeroPad);
    g_windows.Keep(key, window);
}

void build_rt_window(float* window, int n, int zeroPad) {
    if (n < 1) return;
    ippsZero_32f(window, n);
    const int m = n - zeroPad;
    const double step = angle_step(m);
    for (int i = 0; i < m; ++i) window[i] = float(cosine_window(QS_WINDOW_NUTTALL, step * i));
    normalizeWindow(window, n);
}

void build_cplx_window_f(double* window, int rbwType, int windowType, int n, double fc, int zeroPad) {
    if (n < 1) return;
    std::vector<double> tmp(size_t(n), 0.0);
    build_window(rbwType, tmp.data(), windowType, n, fc, zeroPad);
    for (int i = 0; i < n; ++i) {
        window[2 * i] = tmp[size_t(i)];
        window[2 * i + 1] = tmp[size_t(i)];
    }
}

void build_cplx_window_fc(Ipp64fc* window, int rbwType, int windowType, int n, double fc, int zeroPad) {
    build_cplx_window_f(reinterpret_cast<double*>(window), rbwType, windowType, n, fc, zeroPad);
}

void cheby_win(float* out, int N, float atten) {
    if (N < 2) {
        if (N == 1) out[0] = 1.0f;
        return;
    }
    const double tg = std::pow(10.0, double(atten) / 20.0);
    const double x0 = std::cosh(qs::acosh(tg) / (N - 1));
    double M = double((N - 1) / 2);
    if (N % 2 == 0) M += 0.5;
    for (int k = 0; k <= N / 2; ++k) {
        const double n = k - M;
        double sum = 0.0;
        for (int i = 1; i <= M; ++i) {
            const double x = x0 * std::cos(M_PI * i / N);
            sum += cheby_poly(N - 1, x) * std::cos(2.0 * n * M_PI * i / N);
        }
        out[k] = out[N - 1 - k] = float(tg + 2.0 * sum);
    }
    double peak = 0.0;
    for (int k = 0; k < N; ++k) peak = std::max(peak, double(out[k]));
    if (peak == 0.0) return;
    for (int k = 0; k < N; ++k) out[k] = float(double(out[k]) / peak);
}

void build_cheby_window(float* window, int n) {
    if (n < 1) return;
    const double x0 = std::cosh(qs::acosh(100000.0) / n);
    const double denom = std::cosh(qs::acosh(x0) * n);
    std::vector<double> t(static_cast<size_t>(n));
    // The spectrum T_n(x0 cos(pi i / n)), where x0 cos(...) leaves [-1, 1]
    // near i = 0 and the polynomial continues as cosh.
    for (int i = 0; i < n; ++i) t[size_t(i)] = cheby_poly(n, x0 * std::cos(i * M_PI / n)) / denom;
    for (int k = 0; k < n; ++k) {
        double sum = 0.0;
        for (int j = 0; j < n; ++j) sum += t[size_t(j)] * std::cos(j * (6.2831853071796 * k) / n);
        window[k] = float(sum / n);
    }
}

}  // namespace qs
