// The level and frequency accuracy of sweeps on the simulator, as the
// README states it: tones on trace-point centres at random frequencies
// (1.2 MHz to 6.39 GHz, RBW 3 kHz to 300 kHz) on 32 simulated units, eight
// of each kind, read back through the public calls.
//   bench_accuracy [tones per unit, default 150] [file]
// With a file, each tone's unit, frequency, RBW and level read go there, one
// a line: two builds' files compare a change of the signal path tone by
// tone.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"

int main(int argc, char** argv) {
    const int perUnit = argc > 1 ? std::atoi(argv[1]) : 150;
    FILE* dump = argc > 2 ? std::fopen(argv[2], "w") : nullptr;
    if (argc > 2 && !dump) {
        std::perror(argv[2]);
        return 1;
    }
    std::mt19937_64 rng(7);
    std::vector<double> all;
    int offBin = 0, units = 0;
    for (unsigned u = 0; u < 8; ++u) {
        const struct {
            int pid;
            unsigned serial;
        } kinds[] = {{QSSIM_PID_MAPLE_REV1, 20000001 + 7919 * u},
                     {QSSIM_PID_MAPLE_REV2, 12345678 + 7919 * u},
                     {QSSIM_PID_LARCH, 10000001 + 7919 * u},
                     {QSSIM_PID_MAPLE_REV2, 71000005 + u}};
        for (const auto& k : kinds) {
            qssim_reset();
            const int id = qssim_add_device(k.pid, k.serial);
            int h = -1;
            if (qsOpenDeviceBySerialNumber(&h, int(k.serial)) < 0) continue;
            ++units;
            for (int i = 0; i < perUnit; ++i) {
                const double f = 1.2e6 * std::pow(6.39e9 / 1.2e6, std::uniform_real_distribution<double>(0, 1)(rng));
                const double rbws[] = {3e3, 10e3, 30e3, 100e3, 300e3};
                const double rbw = rbws[rng() % 5];
                qssim_clear_signals(id);
                qsConfigureCenterSpan(h, f, std::max(2e6, 40 * rbw));
                qsConfigureLevel(h, -20, QS_ATTEN_AUTO);
                if (qsConfigureSweepCoupling(h, rbw, rbw, 0.001, QS_RBW_SHAPE_NATIVE, QS_REJECTION_NONE) < 0 ||
                    qsInitiate(h, QS_MODE_SWEEP, 0) < 0)
                    continue;
                unsigned len = 0;
                double bin = 0, start = 0;
                qsQueryTraceInfo(h, &len, &bin, &start);
                const int want = int(len / 2) + int(rng() % 21) - 10;
                qssim_set_tone(id, start + want * bin, -30.0);
                qsInitiate(h, QS_MODE_SWEEP, 0);
                std::vector<double> lo(len), hi(len);
                if (qsFetchTrace(h, int(len), lo.data(), hi.data()) < 0) continue;
                offBin += int(std::max_element(hi.begin(), hi.end()) - hi.begin()) != want;
                all.push_back(hi[size_t(want)] + 30.0);
                if (dump) std::fprintf(dump, "%u %.3f %.0f %.6f\n", k.serial, start + want * bin, rbw, hi[size_t(want)]);
            }
            qsCloseDevice(h);
        }
    }
    if (dump) std::fclose(dump);
    std::vector<double> mag;
    double sq = 0;
    for (double e : all) mag.push_back(std::fabs(e)), sq += e * e;
    std::sort(mag.begin(), mag.end());
    if (mag.empty()) return 1;
    std::printf("%zu tones on %d units: level error rms %.2f dB, 95 %% within %.2f dB, largest %.2f dB; "
                "%d peaks off their point\n",
                all.size(), units, std::sqrt(sq / all.size()), mag[size_t(mag.size() * 0.95)], mag.back(), offBin);
    return 0;
}
