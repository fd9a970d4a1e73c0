// The simulator's receiver against the device it stands for: packets made
// (noise and three tones, quantised and packed) per second, over the
// device's 4281 packets a second (a pair every 467.2 us). The end-to-end
// tests can only show an engine as fast as the simulator feeds it.
#include <benchmark/benchmark.h>

#include <vector>

#include "qs_sim.h"
#include "sim_calibration.h"
#include "sim_packing.h"
#include "sim_receiver.h"

namespace {

void BM_SimulatorPackets(benchmark::State& state) {
    using namespace qssim;
    FactoryCalibration factory(QSSIM_PID_MAPLE_REV2, 12345678);
    ReceiverSource source(&factory);
    Command command{};
    command.headerType = 0;
    command.commandType = 1;  // a sweep
    command.subBandCount = 1;
    command.subBands[0].settings[3] = 10;  // the direct path, 10 dB
    command.subBands[0].packetsPerFreq = 16;
    command.subBands[0].stepCount = 1;
    Scene scene;
    scene.tones = {{1e6, -40.0}, {5e6, -50.0}, {12e6, -60.0}};
    std::vector<int16_t> samples(kSamplesPerPacket);
    std::vector<uint8_t> packed(kPacketBytes);
    PacketContext ctx{&command, 0, 0, 0, 0, 38.0, 1234};
    int64_t packets = 0;
    for (auto _ : state) {
        ctx.runSample = packets * kSamplesPerPacket;
        source.FillPacket(ctx, scene, samples.data(), kSamplesPerPacket);
        PackSamples(samples.data(), kSamplesPerPacket, packed.data());
        benchmark::DoNotOptimize(packed.data());
        ++packets;
    }
    const double devicePacketsPerSecond = 2.0 / 467.2e-6;
    state.counters["x_device"] =
        benchmark::Counter(static_cast<double>(packets) / devicePacketsPerSecond, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SimulatorPackets)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
