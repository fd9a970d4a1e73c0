// Host cost of a full-range Maple sweep (9 kHz to 6.4 GHz) at RBW 10 kHz
// and 300 kHz, with 1 and 4 engine workers, against the time the device
// itself needs to acquire that sweep (packets x 0.234 ms). The plan is the
// one a simulated Maple makes for the settings; a feeder thread stores
// synthetic blocks as fast as Store takes them while this thread waits in
// GetSweep. ratio = host (wall) time / acquisition time: below 1 the host
// keeps up with the device. cpu_ratio is the CPU time of all threads over
// the acquisition time: the cores a sweep keeps busy, whatever the load;
// best_ratio is the quickest of the timed sweeps over the acquisition time.
// store_ms is the feeder's CPU time per sweep (the interface thread's part).
#include <benchmark/benchmark.h>

#include <time.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "calibration/corrections_maple.h"
#include "device/device_maple.h"
#include "engines/engine_sweep.h"
#include "ippcore.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"
#include "simulated_maple.h"
#include "vectorised_main.h"

namespace {

constexpr double kPacketSeconds = 0.000234;
constexpr double kStart = 9e3;
constexpr double kStop = 6.4e9;
constexpr unsigned kSerial = 20261123;

// The planning device with its correction array in reach.
class PlanningMaple : public qs::DeviceMaple {
public:
    using qs::DeviceMaple::DeviceMaple;
    const qs::VecDouble& Corrections() const { return m_corr->GetCorrections(); }
};

// What a sweep set-up produced for one RBW, copied out of the device so the
// device's own engine can go.
struct Plan {
    qs::SweepInfo info;
    qs::SettingsMaple settings;
    qs::VecDouble corr;
    bool ok = false;
};

std::unique_ptr<PlanningMaple> g_device;

PlanningMaple* Device() { return OpenSimulatedMaple(g_device, kSerial); }

const Plan& PlanFor(double rbw) {
    static std::map<double, Plan> plans;
    auto found = plans.find(rbw);
    if (found != plans.end()) return found->second;
    Plan& p = plans[rbw];
    PlanningMaple* d = Device();
    if (!d) return p;
    qs::SettingsMaple staging;
    staging.ConfigCenterSpan((kStart + kStop) * 0.5, kStop - kStart);
    staging.ConfigSweepCoupling(rbw, rbw, 0.001, QS_RBW_SHAPE_NATIVE, 0);
    const qsStatus st = d->Initiate(&staging, QS_MODE_SWEEP, 0);
    if (st < 0) {
        std::fprintf(stderr, "Initiate at RBW %.0f: %d\n", rbw, int(st));
        return p;
    }
    p.info = d->GetSweepInfo();
    p.settings = static_cast<const qs::SettingsMaple&>(*d->GetSettings());
    p.corr = d->Corrections();
    d->Abort();
    p.ok = p.corr.size() >= size_t(p.info.stepCount) * size_t(p.info.fftSize / 4);
    return p;
}

// A few distinct blocks, so the feeder does not read one cached block.
std::vector<Ipp16s> Blocks(int count) {
    const size_t n = size_t(count) * qs::QS_BLOCK_SAMPLES;
    std::vector<Ipp16s> s(n);
    unsigned x = 12345;
    for (size_t i = 0; i < n; ++i) {
        x = x * 1664525u + 1013904223u;
        s[i] = Ipp16s(4000.0 * std::cos(0.37 * double(i)) + double(int(x >> 22) - 512));
    }
    return s;
}

// CPU seconds of every thread of the process, so the work a sweep costs can
// be told apart from the wall time it gets on a shared machine.
double ProcessCpu() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

// The calling thread's CPU seconds: the feeder's share is the interface
// thread's Store cost.
double ThreadCpu() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

// Host seconds per sweep by (rbw, workers), for the summary.
std::map<std::pair<double, int>, double> g_host;

void BM_FullSweep(benchmark::State& state) {
    const double rbw = double(state.range(0));
    const int workers = int(state.range(1));
    const Plan& p = PlanFor(rbw);
    if (!p.ok) {
        state.SkipWithError("no plan from the simulated device");
        return;
    }
    const qs::SweepInfo& info = p.info;
    const int64_t packets = int64_t(info.stepCount) * info.ppf;
    const int64_t blocks = packets / qs::SweepEngine::BLOCK_PACKETS;
    if (packets % qs::SweepEngine::BLOCK_PACKETS != 0) {
        state.SkipWithError("plan is not whole blocks");
        return;
    }
    const double acquisition = double(packets) * kPacketSeconds;

    qs::SweepEngine engine(&info, &p.settings, nullptr, workers);
    constexpr int kDistinct = 4;
    std::vector<Ipp16s> data = Blocks(kDistinct);
    std::vector<float> mn(size_t(info.traceLen)), mx(size_t(info.traceLen));
    double storeCpu = 0.0;  // the feeder's, joined before it is read
    auto sweep = [&] {
        const auto t0 = std::chrono::steady_clock::now();
        std::thread feeder([&] {
            const double c0 = ThreadCpu();
            int index = 0;
            for (int64_t b = 0; b < blocks; ++b)
                index = engine.Store(qs::Block{data.data() + size_t(b % kDistinct) * qs::QS_BLOCK_SAMPLES, info.ppf, index});
            storeCpu += ThreadCpu() - c0;
        });
        engine.GetSweep(mn.data(), mx.data(), p.corr);
        const double host = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        feeder.join();
        benchmark::DoNotOptimize(mx.data());
        return host;
    };
    // The first sweep of a set-up also pays for the first touch of the
    // engine's buffers; the device repeats sweeps, so the timed ones follow.
    const double first = sweep();
    storeCpu = 0.0;
    double total = 0.0, best = 0.0;
    const double cpu0 = ProcessCpu();
    for (auto _ : state) {
        const double host = sweep();
        state.SetIterationTime(host);
        total += host;
        best = best > 0.0 && best < host ? best : host;
    }
    const double cpu = (ProcessCpu() - cpu0) / double(state.iterations());
    const double host = total / double(state.iterations());
    g_host[{rbw, workers}] = host;
    state.counters["fft"] = info.fftSize;
    state.counters["steps"] = info.stepCount;
    state.counters["ppf"] = info.ppf;
    state.counters["packets"] = double(packets);
    state.counters["acq_ms"] = acquisition * 1e3;
    state.counters["host_ms"] = host * 1e3;
    state.counters["ratio"] = host / acquisition;
    state.counters["best_ratio"] = best / acquisition;  // the quickest sweep: least disturbed by other load
    state.counters["first_ms"] = first * 1e3;
    state.counters["cpu_ms"] = cpu * 1e3;
    state.counters["cpu_ratio"] = cpu / acquisition;
    state.counters["store_ms"] = storeCpu / double(state.iterations()) * 1e3;
    state.counters["workers"] = engine.ThreadCount();
}
BENCHMARK(BM_FullSweep)
    ->Args({10000, 1})
    ->Args({10000, 4})
    ->Args({300000, 1})
    ->Args({300000, 4})
    ->Iterations(5)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (!RunVectorisedBenchmarks(&argc, argv)) return 1;
    for (double rbw : {10000.0, 300000.0}) {
        auto one = g_host.find({rbw, 1}), four = g_host.find({rbw, 4});
        if (one != g_host.end() && four != g_host.end())
            std::printf("RBW %.0f Hz: speed-up 1 -> 4 workers %.2fx\n", rbw, one->second / four->second);
    }
    g_device.reset();
    qssim_reset();
    return 0;
}
