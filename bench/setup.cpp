// qsInitiate of a Maple sweep whose transform has 2^21 points (RBW 100 Hz
// with the native shape), through the public calls on a simulated device.
// The first start of a size plans the transforms; the timed ones are the
// restarts a program makes after each settings change, which find the
// plans of the previous set-up retired to the pool.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>

#include "qs_api.h"
#include "qs_sim.h"

namespace {

constexpr unsigned kSerial = 20261126;

void BM_InitiateSweep2e21(benchmark::State& state) {
    qssim_reset();
    qssim_add_device(QSSIM_PID_MAPLE_REV2, kSerial);
    int dev = -1;
    if (qsOpenDeviceBySerialNumber(&dev, int(kSerial)) < 0) {
        state.SkipWithError("simulated device did not open");
        return;
    }
    qsConfigureCenterSpan(dev, 1e9, 1e6);
    qsConfigureSweepCoupling(dev, 100.0, 100.0, 0.001, QS_RBW_SHAPE_NATIVE, 0);
    unsigned traceLen = 0;
    double binSize = 0.0, start = 0.0;
    qsStatus st = qsInitiate(dev, QS_MODE_SWEEP, 0);
    if (st >= 0) st = qsQueryTraceInfo(dev, &traceLen, &binSize, &start);
    for (auto _ : state) {
        if (st < 0) break;
        const auto t0 = std::chrono::steady_clock::now();
        st = qsInitiate(dev, QS_MODE_SWEEP, 0);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
    }
    // The bin of a 2^21-point transform at 80 MS/s is 38.15 Hz: any other
    // bin means another transform size was timed.
    if (st < 0)
        state.SkipWithError(qsGetErrorString(st));
    else if (std::fabs(binSize - 8e7 / 2097152.0) > 1e-3)
        state.SkipWithError("the plan's transform is not 2^21 points");
    state.counters["bin_hz"] = binSize;
    qsAbort(dev);
    qsCloseDevice(dev);
    qssim_reset();
}
BENCHMARK(BM_InitiateSweep2e21)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
