// Sweep engine figures: Store per block (the interface thread's budget is
// 3.7 ms a block), VideoIIR::Process per chunk (one worker's throughput),
// and whole sweeps with 1, 2 and 4 workers.
#include <benchmark/benchmark.h>

#include <cmath>
#include <thread>
#include <vector>

#include "engines/engine_sweep.h"
#include "engines/video_iir.h"
#include "ippcore.h"
#include "qs_api.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"
#include "vectorised_main.h"

namespace {

constexpr int PKT = 18688;
constexpr int BLOCK = 16 * PKT;

struct Rig {
    qs::SettingsMaple settings;
    qs::SweepInfo info;
    Rig(int fft, int ppf, int steps) {
        info.fftSize = fft;
        info.ppf = ppf;
        info.chunkSize = ppf * PKT;
        info.stepCount = steps;
        info.dsRatio = 1;
        info.traceLen = steps * fft / 4;
        for (int i = 0; i < steps; ++i) info.patchInfo.Append(qs::Patch{fft / 4, i + 1, 0, 0.0, 0.0, false});
        settings.SetVBW(settings.RBW());
    }
};

std::vector<Ipp16s> samples(size_t n) {
    std::vector<Ipp16s> s(n);
    unsigned x = 1;
    for (size_t i = 0; i < n; ++i) {
        x = x * 1664525u + 1013904223u;
        s[i] = Ipp16s(4000.0 * std::cos(0.37 * double(i)) + double(int(x >> 22) - 512));
    }
    return s;
}

// One block into a running engine (ppf 4: four chunks complete per block,
// and the workers pick them up meanwhile, competing for the cores).
// Wall time per block; CPU time is Store's own work.
void BM_StoreBlock(benchmark::State& state) {
    Rig r(8192, 4, 32);
    qs::SweepEngine e(&r.info, &r.settings, nullptr, int(state.range(0)));
    std::vector<Ipp16s> block = samples(BLOCK);
    int index = 0;
    for (auto _ : state) {
        index = e.Store(qs::Block{block.data(), 4, index});
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * BLOCK);
}
BENCHMARK(BM_StoreBlock)->Arg(1)->Arg(4)->Unit(benchmark::kMicrosecond)->UseRealTime();

// One chunk through one video processor: what a single worker sustains.
void BM_ProcessChunk(benchmark::State& state) {
    const int fft = int(state.range(0)), ppf = int(state.range(1));
    Rig r(fft, ppf, 1);
    qs::VideoIIR v(&r.settings, &r.info);
    std::vector<Ipp16s> raw = samples(size_t(r.info.chunkSize));
    std::vector<double> in(raw.size()), mn(size_t(fft / 4)), mx(size_t(fft / 4));
    for (size_t i = 0; i < raw.size(); ++i) in[i] = raw[i] / 32768.0;
    for (auto _ : state) {
        v.Process(in.data(), mn.data(), mx.data(), 0, int(state.range(2)), QS_DETECTOR_MIN_MAX, QS_OUT_DBM, false);
        benchmark::DoNotOptimize(mx.data());
    }
    state.SetItemsProcessed(state.iterations() * r.info.chunkSize);
    state.counters["transforms"] = v.Steps();
}
BENCHMARK(BM_ProcessChunk)
    ->Args({1024, 1, QS_VIDEO_POWER})
    ->Args({8192, 4, QS_VIDEO_POWER})
    ->Args({8192, 4, QS_VIDEO_LOG})
    ->Args({65536, 4, QS_VIDEO_POWER})
    ->Unit(benchmark::kMicrosecond);

// A whole sweep: a feeding thread stores the blocks while this thread waits
// in GetSweep. Items are raw samples, so items/s is the sweep throughput.
void BM_Sweep(benchmark::State& state) {
    const int workers = int(state.range(0));
    Rig r(8192, 4, 32);
    qs::SweepEngine e(&r.info, &r.settings, nullptr, workers);
    std::vector<Ipp16s> s = samples(size_t(r.info.stepCount) * size_t(r.info.chunkSize));
    std::vector<double> corr(size_t(r.info.stepCount * r.info.fftSize / 4), 0.0);
    std::vector<float> mn(size_t(r.info.traceLen)), mx(size_t(r.info.traceLen));
    for (auto _ : state) {
        std::thread feeder([&] {
            int index = 0;
            for (size_t at = 0; at < s.size(); at += BLOCK) index = e.Store(qs::Block{s.data() + at, r.info.ppf, index});
        });
        e.GetSweep(mn.data(), mx.data(), corr);
        feeder.join();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(s.size()));
}
BENCHMARK(BM_Sweep)->Arg(1)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    if (!RunVectorisedBenchmarks(&argc, argv)) return 1;
    return 0;
}
