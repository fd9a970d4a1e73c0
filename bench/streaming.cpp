// The streaming engines fed synthetic blocks as fast as they take them, as
// a multiple of the device's own rate (80 MS/s, 299008 samples a block):
// x_realtime above 1 is headroom. A simulated Maple only plans (settings,
// plan and corrections, copied out); the engines are then built here and
// fed from this process, with no simulator in the data path.
//
// The feeder plays the interface thread: it converts blocks in Store on a
// thread of its own, so its cost counts as it does on the device. An
// engine that has no room drops a block; the feeder then waits a little
// and stores the same block again, so the stream stays whole and no block
// is counted that was not processed. Where the engine would drop work
// further on (real time, I/Q), the feeder keeps a bounded lead over what
// was read instead. Figures count only what reached the output:
//  - real time: frames fetched x transforms a frame x transform step;
//    transforms the engine skipped (lost_fft) are not in a frame's count;
//  - I/Q: complex samples read at 40 MS/s / decimation;
//  - audio: 4096-sample blocks read, 128 ms of signal each.
// x_realtime is the steady state: the clock starts once a warm-up share of
// the output was read (the rings touched once, the pipeline full) and runs
// to the last output read. x_start also counts the start, from the first
// Store. The engine is built before and destroyed after, untimed.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "calibration/corrections.h"
#include "device/device_maple.h"
#include "engines/engine_audio_fast.h"
#include "engines/engine_iq.h"
#include "engines/engine_realtime_image.h"
#include "ippcore.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"
#include "simulated_maple.h"
#include "vectorised_main.h"

namespace {

constexpr double kRate = 8e7;
constexpr int kBlock = 299008;
constexpr unsigned kSerial = 20261125;
constexpr double kCenter = 1e9;

class PlanningMaple : public qs::DeviceMaple {
public:
    using qs::DeviceMaple::DeviceMaple;
    // The per-bin IF corrections of the plan in force, in dB.
    qs::VecDouble IFCorrections() {
        qs::VecDouble list;
        m_corr->BuildIFCorrectionArray(m_settings, &m_sweepInfo, list);
        return list;
    }
};

std::unique_ptr<PlanningMaple> g_device;

PlanningMaple* Device() { return OpenSimulatedMaple(g_device, kSerial); }

struct Plan {
    qs::SweepInfo info;
    qs::SettingsMaple settings;
    qs::VecDouble corr;  // dB
    bool ok = false;
};

// Plans once per key; staging is filled by the caller's set-up.
template <typename Setup>
const Plan& PlanFor(int key, unsigned mode, Setup setup) {
    static std::map<int, Plan> plans;
    auto found = plans.find(key);
    if (found != plans.end()) return found->second;
    Plan& p = plans[key];
    PlanningMaple* d = Device();
    if (!d) return p;
    qs::SettingsMaple staging;
    setup(staging);
    const qsStatus st = d->Initiate(&staging, mode, 0);
    if (st < 0) {
        std::fprintf(stderr, "Initiate mode %u key %d: %d\n", mode, key, int(st));
        return p;
    }
    p.info = d->GetSweepInfo();
    p.settings = static_cast<const qs::SettingsMaple&>(*d->GetSettings());
    p.corr = d->IFCorrections();
    d->Abort();
    p.ok = true;
    return p;
}

// Blocks of a tone and noise; a few distinct ones so no single block stays
// cached.
constexpr int kDistinct = 4;
const std::vector<short>& Blocks() {
    static std::vector<short> s = [] {
        std::vector<short> v(size_t(kDistinct) * kBlock);
        unsigned x = 12345;
        for (size_t i = 0; i < v.size(); ++i) {
            x = x * 1664525u + 1013904223u;
            v[i] = short(4000.0 * std::cos(0.37 * double(i)) + double(int(x >> 22) - 512));
        }
        return v;
    }();
    return s;
}

// Stores blocks until told to stop. store(block) returns false when the
// engine dropped it; the same block then goes again after a pause. ahead()
// may hold the feeder back instead, for an engine whose drops this side
// cannot see.
template <typename Store, typename Ahead>
std::thread Feeder(std::atomic<bool>& stop, std::atomic<int64_t>& stored, Store store, Ahead ahead) {
    return std::thread([&stop, &stored, store, ahead] {
        const std::vector<short>& b = Blocks();
        int64_t i = 0;
        while (!stop.load(std::memory_order_relaxed)) {
            if (ahead() || !store(const_cast<short*>(b.data()) + size_t(i % kDistinct) * kBlock)) {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
                continue;
            }
            ++i;
            stored.store(i, std::memory_order_relaxed);
        }
    });
}

double Seconds(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// ---- real time ---------------------------------------------------------------

void BM_RealTime(benchmark::State& state) {
    const double rbw = double(state.range(0));
    const Plan& p = PlanFor(int(rbw), QS_MODE_REAL_TIME, [rbw](qs::SettingsMaple& s) {
        s.ConfigCenterSpan(kCenter, 20e6);
        s.ConfigSweepCoupling(rbw, rbw, 0.001, QS_RBW_SHAPE_NATIVE, 0);
        s.ConfigRealTimeOverlap(0.5);
    });
    if (!p.ok) {
        state.SkipWithError("no real-time plan from the simulated device");
        return;
    }
    constexpr int kWarm = 6, kFrames = 24;  // 0.2 s and 0.8 s of signal at 30 frames a second
    double signal = 0.0, wall = 0.0, signalAll = 0.0, wallAll = 0.0;
    int64_t lostFft = 0;
    int fftSize = 0, traceLen = 0;
    for (auto _ : state) {
        qs::RealTimeImageEngine e(&p.settings, &p.info, p.corr);
        fftSize = p.info.fftSize;
        traceLen = e.TraceLen();
        std::vector<float> mn(size_t(e.TraceLen())), mx(size_t(e.TraceLen()));
        std::vector<float> color(size_t(e.ImageWidth()) * 256), alpha(size_t(e.ImageWidth()) * 256);
        std::atomic<bool> stop{false};
        std::atomic<int64_t> stored{0}, framesRead{0};
        // A frame is about 9 blocks at any RBW (a thirtieth of a second).
        // The feeder stays at most kAhead blocks past the last frame read:
        // less than the input ring, and little enough that the transform
        // stage never fills the result ring. A flood would make the engine
        // skip transforms (lost_fft), and a stage that skips work spends its
        // time differently from one that keeps up.
        const double frameBlocks = double(e.FFTsPerUpdate()) * e.FFTStepSize() / kBlock;
        constexpr double kAhead = 12.0;
        const auto t0 = std::chrono::steady_clock::now();
        std::thread feeder = Feeder(
            stop, stored,
            [&e](short* b) {
                const int64_t lost = e.LostBlocks();
                e.Store(qs::Block{b});
                return e.LostBlocks() == lost;
            },
            [&] { return double(stored.load()) - double(framesRead.load()) * frameBlocks >= kAhead; });
        auto fetch = [&] {
            e.GetFrame(mn.data(), mx.data(), color.data(), alpha.data());
            framesRead.fetch_add(1);
        };
        for (int f = 0; f < kWarm; ++f) fetch();
        const auto t1 = std::chrono::steady_clock::now();
        for (int f = 0; f < kFrames; ++f) fetch();
        const double t = Seconds(t1);
        wallAll += Seconds(t0);
        stop = true;
        feeder.join();
        state.SetIterationTime(t);
        wall += t;
        const double frame = double(e.FFTsPerUpdate()) * e.FFTStepSize() / kRate;
        signal += kFrames * frame;
        signalAll += (kWarm + kFrames) * frame;
        lostFft += e.LostTransforms();
        benchmark::DoNotOptimize(mx.data());
    }
    state.counters["x_realtime"] = signal / wall;
    state.counters["x_start"] = signalAll / wallAll;
    state.counters["fft"] = fftSize;
    state.counters["trace"] = traceLen;
    state.counters["lost_fft"] = double(lostFft);
}
BENCHMARK(BM_RealTime)
    ->Arg(631250)
    ->Arg(300000)
    ->Arg(100000)
    ->Arg(30000)
    ->Arg(10000)
    ->Arg(3000)
    ->Iterations(2)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// ---- I/Q ------------------------------------------------------------------

void BM_IQ(benchmark::State& state) {
    const int decimation = int(state.range(0));
    const Plan& p = PlanFor(decimation, QS_MODE_STREAMING, [decimation](qs::SettingsMaple& s) {
        s.ConfigCenterSpan(kCenter, 20e6);
        s.ConfigIQ(decimation, 40e6 / decimation);
    });
    if (!p.ok) {
        state.SkipWithError("no I/Q plan from the simulated device");
        return;
    }
    const double outRate = kRate / 2 / decimation;
    constexpr int kRead = 524288;
    // 0.5 s of output at decimation 1 to warm up (the input ring is 0.36 s),
    // then 1.6 s.
    const int warm = int(std::max(2.0, 0.5 * outRate / kRead));
    const int reads = int(std::max(4.0, 1.6 * outRate / kRead));
    // The input ring holds 96 blocks; the feeder stays half of that ahead
    // of what was read (the filter thread's drops are not visible here).
    const int64_t maxAhead = qs::IQStream::INPUT_STEPS / 2;
    double signal = 0.0, wall = 0.0, signalAll = 0.0, wallAll = 0.0;
    int losses = 0;
    std::vector<Ipp32fc> out(kRead);
    for (auto _ : state) {
        qs::VecDouble corr = p.corr;
        for (double& v : corr) v = std::pow(10.0, 0.05 * v);
        qs::IQStorage storage;
        qs::IQStream e(&p.settings, &p.info, corr, storage);
        std::atomic<bool> stop{false};
        std::atomic<int64_t> stored{0}, readRaw{0};
        static const int kNoTriggers[1] = {0};
        const auto t0 = std::chrono::steady_clock::now();
        std::thread feeder = Feeder(
            stop, stored,
            [&e](short* b) {
                qs::Block block{b};
                block.triggers = kNoTriggers;
                block.samplesPerSecond = kRate;
                return e.Store(block) == 0;
            },
            [&] { return stored.load() - readRaw.load() / kBlock >= maxAhead; });
        auto t1 = t0;
        for (int r = 0; r < warm + reads; ++r) {
            if (r == warm) t1 = std::chrono::steady_clock::now();
            qsIQPacket pkt{};
            pkt.iqData = out.data();
            pkt.iqCount = kRead;
            e.GetIQ(&pkt);
            losses += pkt.sampleLoss != 0;
            readRaw.store(int64_t(r + 1) * kRead * 2 * decimation);
        }
        const double t = Seconds(t1);
        wallAll += Seconds(t0);
        stop = true;
        feeder.join();
        state.SetIterationTime(t);
        wall += t;
        signal += double(reads) * kRead / outRate;
        signalAll += double(warm + reads) * kRead / outRate;
        benchmark::DoNotOptimize(out.data());
    }
    if (losses) state.SkipWithError("samples lost: the feeder ran too far ahead");
    state.counters["x_realtime"] = signal / wall;
    state.counters["x_start"] = signalAll / wallAll;
}
BENCHMARK(BM_IQ)->Arg(1)->Iterations(2)->UseManualTime()->Unit(benchmark::kMillisecond);

// Set-up of an I/Q stream at decimation 1, as qsInitiate makes it: filters,
// corrections and the output ring; then the destructor, untimed.
void BM_IQConstruct(benchmark::State& state) {
    const Plan& p = PlanFor(1, QS_MODE_STREAMING, [](qs::SettingsMaple& s) {
        s.ConfigCenterSpan(kCenter, 20e6);
        s.ConfigIQ(1, 40e6);
    });
    if (!p.ok) {
        state.SkipWithError("no I/Q plan from the simulated device");
        return;
    }
    for (auto _ : state) {
        qs::VecDouble corr = p.corr;
        qs::IQStorage storage;
        const auto t0 = std::chrono::steady_clock::now();
        auto e = std::make_unique<qs::IQStream>(&p.settings, &p.info, corr, storage);
        state.SetIterationTime(Seconds(t0));
        e.reset();
    }
}
BENCHMARK(BM_IQConstruct)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);

// ---- audio ----------------------------------------------------------------

void BM_Audio(benchmark::State& state) {
    qs::AudioConfig cfg;
    cfg.modulation = int(state.range(0));
    cfg.freq = 97.1e6;
    cfg.if_bw = cfg.modulation == QS_DEMOD_FM ? 160000.0 : 10000.0;
    cfg.low_pass_freq = cfg.modulation == QS_DEMOD_FM ? 12000.0 : 3000.0;
    state.SetLabel(cfg.modulation == QS_DEMOD_FM ? "FM" : cfg.modulation == QS_DEMOD_AM ? "AM" : "USB");
    constexpr int kWarm = 4, kGets = 8;  // 0.5 s (the input ring is 0.36 s), then 1 s of signal
    constexpr double kGetSeconds = 0.128;
    double signal = 0.0, wall = 0.0, signalAll = 0.0, wallAll = 0.0;
    long dropped = 0;
    std::vector<float> audio(qs::AudioEngineFast::RETURN_SZ);
    for (auto _ : state) {
        // The channel at the band's centre, on an IF path.
        qs::AudioEngineFast e(cfg.freq, cfg, false, false);
        std::atomic<bool> stop{false};
        std::atomic<int64_t> stored{0};
        const auto t0 = std::chrono::steady_clock::now();
        std::thread feeder = Feeder(
            stop, stored,
            [&e](short* b) {
                const long before = e.DroppedSteps();
                e.Store(qs::Block{b});
                return e.DroppedSteps() == before;
            },
            [] { return false; });
        for (int g = 0; g < kWarm; ++g) e.Get(audio.data());
        const auto t1 = std::chrono::steady_clock::now();
        for (int g = 0; g < kGets; ++g) e.Get(audio.data());
        const double t = Seconds(t1);
        wallAll += Seconds(t0);
        signalAll += (kWarm + kGets) * kGetSeconds;
        stop = true;
        feeder.join();
        dropped += e.DroppedSteps();
        state.SetIterationTime(t);
        wall += t;
        signal += kGets * kGetSeconds;
        benchmark::DoNotOptimize(audio.data());
    }
    state.counters["x_realtime"] = signal / wall;
    state.counters["x_start"] = signalAll / wallAll;
    state.counters["retried"] = double(dropped);
}
BENCHMARK(BM_Audio)
    ->Arg(QS_DEMOD_FM)
    ->Arg(QS_DEMOD_AM)
    ->Arg(QS_DEMOD_USB)
    ->Iterations(2)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (!RunVectorisedBenchmarks(&argc, argv)) return 1;
    g_device.reset();
    qssim_reset();
    return 0;
}
