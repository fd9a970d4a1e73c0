// Video processors against a direct reference: a windowed DFT of each
// step of the chunk, detection and unit conversion written out by the
// table, on small transform sizes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "dsp/windows.h"
#include "engines/video_dsiir.h"
#include "engines/video_iir.h"
#include "qs_api.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace {

using cd = std::complex<double>;

double to_out(double v, int videoUnits, int outUnits) {
    if (videoUnits == QS_VIDEO_LOG) {
        if (outUnits == QS_OUT_DBM) return v;
        if (outUnits == QS_OUT_MV) return std::exp((v + 46.9897) * 0.115129255);
        return std::pow(10.0, 0.1 * v);
    }
    if (videoUnits == QS_VIDEO_VOLTAGE) {
        if (outUnits == QS_OUT_DBM) return 10.0 * std::log10(v * v);
        if (outUnits == QS_OUT_MV) return 223.6 * v;
        return v * v;
    }
    if (outUnits == QS_OUT_DBM) return 10.0 * std::log10(v);
    if (outUnits == QS_OUT_MV) return 223.6 * std::sqrt(v);
    return v;
}

double detect(cd x, int videoUnits) {
    const double p = std::norm(x);
    if (videoUnits == QS_VIDEO_LOG) return 10.0 * std::log10(p);
    if (videoUnits == QS_VIDEO_VOLTAGE) return std::sqrt(p);
    return p;
}

struct Out {
    std::vector<double> min, max;
};

// The chain written out plainly; spectra(i) gives the kept bins of step i.
template <typename Spectrum>
Out reference_chain(Spectrum spectra, int steps, int len, int videoUnits, int detector, int outUnits, bool flip,
                    double a0, double b1) {
    Out o{std::vector<double>(size_t(len), 0.0), std::vector<double>(size_t(len), 0.0)};
    if (videoUnits == QS_VIDEO_SAMPLE) {
        std::vector<cd> s = spectra(0);
        for (int k = 0; k < len; ++k) o.min[size_t(k)] = o.max[size_t(k)] = std::norm(s[size_t(k)]);
        videoUnits = QS_VIDEO_POWER;
    } else {
        std::vector<double> filt(size_t(len), 0.0);
        double c = 1.0;
        int n = 2;
        bool first = true;
        for (int i = 0; i < steps; ++i) {
            std::vector<cd> s = spectra(i);
            for (int k = 0; k < len; ++k) {
                const double v = detect(s[size_t(k)], videoUnits);
                if (detector != QS_DETECTOR_MIN_MAX) o.min[size_t(k)] += v;
                else if (c > a0) filt[size_t(k)] = filt[size_t(k)] * (1 - c) + v * c;
                else filt[size_t(k)] = filt[size_t(k)] * b1 + v * a0;
            }
            if (detector != QS_DETECTOR_MIN_MAX) continue;
            if (c > a0) {
                c = 1.0 / n++;
                continue;
            }
            for (int k = 0; k < len; ++k) {
                o.min[size_t(k)] = first ? filt[size_t(k)] : std::min(o.min[size_t(k)], filt[size_t(k)]);
                o.max[size_t(k)] = first ? filt[size_t(k)] : std::max(o.max[size_t(k)], filt[size_t(k)]);
            }
            first = false;
        }
        if (detector == QS_DETECTOR_AVERAGE)
            for (int k = 0; k < len; ++k) o.max[size_t(k)] = o.min[size_t(k)] = o.min[size_t(k)] / steps;
    }
    for (auto* a : {&o.min, &o.max}) {
        for (double& v : *a) v = to_out(v, videoUnits, outUnits);
        if (flip) std::reverse(a->begin(), a->end());
    }
    return o;
}

// Bin k of the windowed real transform, scaled by 1/N; bin 0 as the packed
// pair (X(0), X(N/2)) that the real transform keeps in its first entry.
std::vector<cd> real_bins(const double* x, const std::vector<double>& w, int first, int len) {
    const int n = int(w.size());
    std::vector<cd> out;
    for (int b = first; b < first + len; ++b) {
        auto dft = [&](int k) {
            cd acc = 0;
            for (int i = 0; i < n; ++i) acc += x[i] * w[size_t(i)] * std::polar(1.0, -2 * M_PI * double(k) * i / n);
            return acc / double(n);
        };
        out.push_back(b == 0 ? cd(dft(0).real(), dft(n / 2).real()) : dft(b));
    }
    return out;
}

void expect_close(const std::vector<double>& ref, const double* got, const char* what) {
    for (size_t k = 0; k < ref.size(); ++k) {
        const double tol = 1e-9 * std::max(1.0, std::fabs(ref[k]));
        ASSERT_NEAR(got[k], ref[k], tol) << what << " bin " << k;
    }
}

std::vector<double> noisy_tone(int len, double cyclesPerSample, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(-0.05, 0.05);
    std::vector<double> x(static_cast<size_t>(len));
    for (int i = 0; i < len; ++i) x[size_t(i)] = 0.4 * std::cos(2 * M_PI * cyclesPerSample * i + 0.3) + u(rng);
    return x;
}

struct Plan {
    qs::SettingsMaple settings;
    qs::SweepInfo info;
    Plan(int fft, int zeroPad, int chunk, double vbw, int window = QS_WINDOW_NUTTALL) {
        info.fftSize = fft;
        info.zeroPadAmount = zeroPad;
        info.chunkSize = chunk;
        info.dsRatio = 1;
        settings.SetVBW(vbw);
        settings.SetRBWShape(QS_RBW_SHAPE_NATIVE);
        settings.SetWindow(window);
    }
};

TEST(VideoIIR, MatchesDirectTransformForEveryUnitDetectorAndScale) {
    // x = 0.3: three steps of ramp, then the filter proper.
    for (int zeroPad : {0, 16}) {
        Plan p(64, zeroPad, 400, 0.3 * 3.2e8 / 64, zeroPad ? QS_WINDOW_HAMMING : QS_WINDOW_NUTTALL);
        qs::VideoIIR v(&p.settings, &p.info);
        const int n = 64, f4 = 16, f8 = 8, hop = v.StepSize();
        ASSERT_EQ(hop, (n - zeroPad) / 4);
        ASSERT_EQ(v.Steps(), (400 - n) / hop + 1);
        std::vector<double> w(static_cast<size_t>(n));
        qs::build_window(QS_RBW_SHAPE_NATIVE, w.data(), p.settings.Window(), n, 0.0, zeroPad);
        std::vector<double> x = noisy_tone(400, 13.0 / n, 1);

        // -8 starts at bin 0, the packed pair of the two real end bins.
        for (int offset : {3, -5, -8})
            for (bool flip : {false, true}) {
                // A mirrored row reads from one bin higher: see ToneLandsOnItsBinAndFlipMirrors.
                const int first = f8 + (flip ? 1 - offset : offset);
                std::vector<std::vector<cd>> spectra;
                for (int i = 0; i < v.Steps(); ++i) spectra.push_back(real_bins(x.data() + i * hop, w, first, f4));
                auto spec = [&](int i) { return spectra[size_t(i)]; };
                for (int units : {QS_VIDEO_LOG, QS_VIDEO_VOLTAGE, QS_VIDEO_POWER, QS_VIDEO_SAMPLE})
                    for (int det : {QS_DETECTOR_MIN_MAX, QS_DETECTOR_AVERAGE})
                        for (int out : {QS_OUT_DBM, QS_OUT_MV, QS_OUT_MW}) {
                            SCOPED_TRACE(testing::Message() << "pad " << zeroPad << " offset " << offset << " flip "
                                                            << flip << " units " << units << " det " << det
                                                            << " out " << out);
                            Out ref = reference_chain(spec, v.Steps(), f4, units, det, out, flip, v.A0(), v.B1());
                            std::vector<double> mn(f4, -7.0), mx(f4, -7.0);
                            v.Process(x.data(), mn.data(), mx.data(), offset, units, det, out, flip);
                            expect_close(ref.min, mn.data(), "min");
                            expect_close(ref.max, mx.data(), "max");
                            if (det == QS_DETECTOR_AVERAGE || units == QS_VIDEO_SAMPLE) {
                                EXPECT_EQ(mn, mx);
                            }
                        }
            }
    }
}

TEST(VideoIIR, ToneLandsOnItsBinAndFlipMirrors) {
    Plan p(128, 0, 1024, 1e6);
    qs::VideoIIR v(&p.settings, &p.info);
    const int f4 = 32, f8 = 16, offset = 4, tone = f8 + offset + 9;
    std::vector<double> x = noisy_tone(1024, double(tone) / 128, 2);
    std::vector<double> mn(f4), mx(f4), mn2(f4), mx2(f4);
    v.Process(x.data(), mn.data(), mx.data(), offset, QS_VIDEO_POWER, QS_DETECTOR_MIN_MAX, QS_OUT_DBM, false);
    EXPECT_EQ(std::max_element(mx.begin(), mx.end()) - mx.begin(), 9);
    // A second call starts from a clear filter: the same result.
    v.Process(x.data(), mn2.data(), mx2.data(), offset, QS_VIDEO_POWER, QS_DETECTOR_MIN_MAX, QS_OUT_DBM, false);
    EXPECT_EQ(mn, mn2);
    EXPECT_EQ(mx, mx2);

    // Flipped, the row is mirrored about its IF centre, bin f4 - offset,
    // which stays at point f8: a tone at f8 - offset + j, that is j - f8
    // bins from the centre, lands at point f8 + (f8 - j) = f4 - j.
    std::vector<double> y = noisy_tone(1024, double(f8 - offset + 9) / 128, 2);
    v.Process(y.data(), mn.data(), mx.data(), offset, QS_VIDEO_POWER, QS_DETECTOR_MIN_MAX, QS_OUT_DBM, true);
    EXPECT_EQ(std::max_element(mx.begin(), mx.end()) - mx.begin(), f4 - 9);
    // Flipped is the unflipped row one bin higher with the offset negated,
    // reversed.
    v.Process(y.data(), mn2.data(), mx2.data(), 1 - offset, QS_VIDEO_POWER, QS_DETECTOR_MIN_MAX, QS_OUT_DBM, false);
    std::reverse(mx2.begin(), mx2.end());
    EXPECT_EQ(mx, mx2);
}

TEST(VideoIIR, FilterEdges) {
    const int n = 64, f4 = 16;
    std::vector<double> x = noisy_tone(400, 11.0 / n, 3);
    auto run = [&](double vbw, int det, int bufSize = 400) {
        Plan p(n, 0, bufSize, vbw);
        qs::VideoIIR v(&p.settings, &p.info);
        Out o{std::vector<double>(f4), std::vector<double>(f4)};
        v.Process(x.data(), o.min.data(), o.max.data(), 0, QS_VIDEO_POWER, det, QS_OUT_MW, false);
        return std::make_pair(o, std::make_pair(v.A0(), v.B1()));
    };
    // x above 1 is a pass-through, and x exactly 1 reaches the same filter
    // through the other branch.
    auto over = run(1e9, QS_DETECTOR_MIN_MAX), one = run(5e6, QS_DETECTOR_MIN_MAX);
    EXPECT_EQ(over.second, std::make_pair(1.0, 0.0));
    EXPECT_EQ(one.second, std::make_pair(1.0, 0.0));
    EXPECT_EQ(over.first.min, one.first.min);
    EXPECT_EQ(over.first.max, one.first.max);
    EXPECT_NE(over.first.min, over.first.max);

    // A pass-through min/max is the min/max of the raw powers over all steps.
    std::vector<double> w(static_cast<size_t>(n));
    qs::build_window(QS_RBW_SHAPE_NATIVE, w.data(), QS_WINDOW_NUTTALL, n, 0.0, 0);
    for (int k = 0; k < f4; ++k) {
        double lo = INFINITY, hi = -INFINITY;
        for (int i = 0; i < (400 - n) / 16 + 1; ++i) {
            const double v = std::norm(real_bins(x.data() + i * 16, w, 8 + k, 1)[0]);
            lo = std::min(lo, v);
            hi = std::max(hi, v);
        }
        EXPECT_NEAR(over.first.min[size_t(k)], lo, 1e-12);
        EXPECT_NEAR(over.first.max[size_t(k)], hi, 1e-12);
    }

    // Every step in the ramp (1/22 still above a0): nothing is delivered.
    auto ramp = run(1e3, QS_DETECTOR_MIN_MAX);
    EXPECT_EQ(ramp.first.min, std::vector<double>(f4, 0.0));
    EXPECT_EQ(ramp.first.max, std::vector<double>(f4, 0.0));

    // One step in the steady state: min equals max.
    auto single = run(1e9, QS_DETECTOR_MIN_MAX, n);
    EXPECT_EQ(single.first.min, single.first.max);
    EXPECT_GT(single.first.min[3], 0.0);

    // The average ignores the filter: the same at any VBW.
    EXPECT_EQ(run(1e3, QS_DETECTOR_AVERAGE).first.min, run(1e9, QS_DETECTOR_AVERAGE).first.min);
}

TEST(VideoNarrow, MatchesDirectTransformWithZeroFrequencyInTheMiddle) {
    // dsRatio 16 on a 1024 plan: a 64-point complex transform; one packet
    // after the four of settling gives 1168 samples.
    qs::SettingsMaple s;
    s.SetVBW(0.2 * 3.2e8 / 1024);
    qs::SweepInfo info;
    info.fftSize = 1024;
    info.zeroPadAmount = 0;
    info.chunkSize = 5 * 18688;
    info.dsRatio = 16;
    qs::VideoNarrow v(&s, &info);
    const int n = 64, f4 = 16, f8 = 8;
    ASSERT_EQ(v.BufSize(), 1168);
    ASSERT_EQ(v.Steps(), (1168 - n) / f4 + 1);
    ASSERT_DOUBLE_EQ(v.A0(), 0.2);

    std::mt19937 rng(4);
    std::uniform_real_distribution<double> u(-0.02, 0.02);
    std::vector<cd> x(1168);
    for (int i = 0; i < 1168; ++i)  // a tone 5 bins below zero frequency
        x[size_t(i)] = 0.3 * std::polar(1.0, -2 * M_PI * 5.0 * i / n) + cd(u(rng), u(rng));
    // The complex window carries the real window in both parts, and the
    // samples are multiplied by it as complex numbers: w (1 + j).
    std::vector<double> w(static_cast<size_t>(n));
    qs::build_window(QS_RBW_SHAPE_NATIVE, w.data(), QS_WINDOW_NUTTALL, n, 0.0, 0);
    auto spec = [&](int i) {
        std::vector<cd> full(static_cast<size_t>(n));
        for (int k = 0; k < n; ++k) {
            cd acc = 0;
            for (int j = 0; j < n; ++j)
                acc += x[size_t(i * v.StepSize() + j)] * cd(w[size_t(j)], w[size_t(j)]) *
                       std::polar(1.0, -2 * M_PI * double(k) * j / n);
            full[size_t(k)] = acc / double(n);
        }
        std::vector<cd> kept(static_cast<size_t>(f4));
        for (int k = 0; k < f8; ++k) {
            kept[size_t(f8 + k)] = full[size_t(k)];
            kept[size_t(k)] = full[size_t(7 * n / 8 + k)];
        }
        return kept;
    };
    for (int units : {QS_VIDEO_LOG, QS_VIDEO_VOLTAGE, QS_VIDEO_POWER, QS_VIDEO_SAMPLE})
        for (int det : {QS_DETECTOR_MIN_MAX, QS_DETECTOR_AVERAGE})
            for (int out : {QS_OUT_DBM, QS_OUT_MV, QS_OUT_MW})
                for (bool flip : {false, true}) {
                    SCOPED_TRACE(testing::Message() << "units " << units << " det " << det << " out " << out);
                    Out ref = reference_chain(spec, v.Steps(), f4, units, det, out, flip, v.A0(), v.B1());
                    std::vector<double> mn(f4), mx(f4);
                    v.Process(reinterpret_cast<Ipp64fc*>(x.data()), mn.data(), mx.data(), units, det, out, flip);
                    expect_close(ref.min, mn.data(), "min");
                    expect_close(ref.max, mx.data(), "max");
                    if (!flip && units == QS_VIDEO_POWER) {
                        EXPECT_EQ(std::max_element(mx.begin(), mx.end()) - mx.begin(), f8 - 5);
                    }
                }
}

}  // namespace
