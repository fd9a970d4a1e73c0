// CorrectionsMaple::BuildCorrectionArray for the full-range (9 kHz to
// 6.4 GHz) plan at RBW 10 kHz that a simulated Maple makes, over a million
// bins, in log and in linear scale: time per build, heap allocations made
// during a build (counted by the malloc family replaced below), and the
// build time as a fraction of the acquisition time of the sweep it serves
// (packets x 0.234 ms). The build runs at every sweep set-up, not per sweep.
#include <benchmark/benchmark.h>

#include <time.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <memory>

#include "calibration/corrections_maple.h"
#include "device/device_maple.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

// Heap requests during a build, counted on the building thread only.
#include "allocation_counter.inc"

namespace {

double ThreadCpu() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

constexpr double kPacketSeconds = 0.000234;
constexpr double kStart = 9e3;
constexpr double kStop = 6.4e9;
constexpr double kRbw = 10000.0;
constexpr unsigned kSerial = 20261125;

class PlanningMaple : public qs::DeviceMaple {
public:
    using qs::DeviceMaple::DeviceMaple;
    qs::CorrectionsMaple& Corr() { return CorrMaple(); }
};

struct Rig {
    std::unique_ptr<PlanningMaple> device;
    qs::SweepInfo info;
    qs::SettingsMaple settings;
    bool ok = false;

    Rig() {
        qssim_reset();
        qssim_add_device(QSSIM_PID_MAPLE_REV2, kSerial);
        auto* usb = new qs::CypressInterface(kSerial);
        if (usb->State() != qs::USB_OPEN) {
            delete usb;
            return;
        }
        device = std::make_unique<PlanningMaple>(usb);
        const qsStatus open = device->OpenDevice();
        if (open < 0 && open != qsUncalibratedDevice) return;
        qs::SettingsMaple staging;
        staging.ConfigCenterSpan((kStart + kStop) * 0.5, kStop - kStart);
        staging.ConfigSweepCoupling(kRbw, kRbw, 0.001, QS_RBW_SHAPE_NATIVE, 0);
        if (device->Initiate(&staging, QS_MODE_SWEEP, 0) < 0) return;
        info = device->GetSweepInfo();
        settings = static_cast<const qs::SettingsMaple&>(*device->GetSettings());
        // The plan is a copy now; the device's engine is not needed.
        device->Abort();
        ok = info.patchInfo.NumPatches() == info.stepCount;
    }
    ~Rig() {
        device.reset();
        qssim_reset();
    }
};

Rig& TheRig() {
    static Rig rig;
    return rig;
}

// The counter must see an ordinary new, or its figures mean nothing.
bool CounterWorks() {
    qs_test::ResetThreadCount();
    qs_test::ArmThreadCount();
    int* p = new int(1);
    benchmark::DoNotOptimize(p);
    qs_test::DisarmThreadCount();
    delete p;
    return qs_test::ThreadCount() == 1;
}

void BM_BuildCorrectionArray(benchmark::State& state) {
    Rig& rig = TheRig();
    if (!rig.ok) {
        state.SkipWithError("no plan from the simulated device");
        return;
    }
    if (!CounterWorks()) {
        state.SkipWithError("allocation counter does not see operator new");
        return;
    }
    qs::SettingsMaple settings = rig.settings;
    settings.ConfigAcquisition(QS_DETECTOR_MIN_MAX, unsigned(state.range(0)));
    qs::CorrectionsMaple& corr = rig.device->Corr();
    corr.Configure(25.0, settings, rig.info);

    // A fresh object's first build, which has to get its array.
    long first = 0;
    {
        qs::CorrectionsMaple fresh(rig.device->MapleRev());
        fresh.Configure(25.0, settings, rig.info);
        qs_test::ResetThreadCount();
        qs_test::ArmThreadCount();
        fresh.BuildCorrectionArray(&settings, &rig.info, false);
        qs_test::DisarmThreadCount();
        first = qs_test::ThreadCount();
    }

    qs_test::ResetThreadCount();
    const double cpu0 = ThreadCpu();
    for (auto _ : state) {
        qs_test::ArmThreadCount();
        corr.BuildCorrectionArray(&settings, &rig.info, false);
        qs_test::DisarmThreadCount();
        benchmark::DoNotOptimize(corr.GetCorrections().data());
    }
    const double perBuild = (ThreadCpu() - cpu0) / double(state.iterations());
    const double builds = double(state.iterations());
    const double acquisition = double(rig.info.stepCount) * rig.info.ppf * kPacketSeconds;
    state.counters["bins"] = double(corr.GetCorrections().size());
    state.counters["allocs_first"] = double(first);
    state.counters["allocs_per_build"] = double(qs_test::ThreadCount()) / builds;
    state.counters["acq_ms"] = acquisition * 1e3;
    state.counters["build_ms"] = perBuild * 1e3;
    state.counters["build_over_acq"] = perBuild / acquisition;
}
BENCHMARK(BM_BuildCorrectionArray)
    ->Arg(QS_SCALE_LOG)
    ->Arg(QS_SCALE_LINEAR)
    ->Iterations(10)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
