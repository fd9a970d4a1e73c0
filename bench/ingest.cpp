// Ingest of one block on one core, as the interface thread does it before
// the engine sees the data: 16 packets unpacked to 16-bit samples (channel
// pairs, in time order) plus Device::ParseHeader and ParseTrailer. Reported
// as blocks per second and as a multiple of the device's own block rate
// (267.6 blocks/s): x_device is the headroom of the interface thread.
#include <benchmark/benchmark.h>

#include <time.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "device/device_maple.h"
#include "dsp/qs_lib.h"
#include "qs_sim.h"
#include "settings/settings.h"
#include "transport/wire_formats.h"

namespace {

double ThreadCpu() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

constexpr double kDeviceBlocksPerSecond = 267.6;
constexpr unsigned kSerial = 20261124;

// A device core with no planning: the parse calls are all the bench needs.
class BareDevice : public qs::DeviceMaple {
public:
    explicit BareDevice(qs::CypressInterface* usb) : qs::DeviceMaple(usb) { InitDevice(); }
    qsStatus OpenDevice() override { return qsNoError; }
};

// Both channels of a block: eight packets each, payload noise, a monitor
// value in the headers and in-step packet counts in the trailers.
struct Block {
    std::vector<uint8_t> ch[2];
    Block() {
        unsigned x = 7;
        for (auto& c : ch) {
            c.assign(qs::QS_TRANSFER_BYTES, 0);
            for (auto& b : c) {
                x = x * 1664525u + 1013904223u;
                b = uint8_t(x >> 24);
            }
        }
        for (int p = 0; p < qs::QS_PACKETS_PER_CHANNEL; ++p)
            for (int c = 0; c < 2; ++c) {
                auto* h = reinterpret_cast<qs::stateHeader_t*>(ch[c].data() + p * qs::QS_PACKET_BYTES);
                *h = qs::stateHeader_t{};
                h->ADCIndex = 4;
                h->ADCValue = 25 * 16;
                auto* t = reinterpret_cast<qs::stateTrailer_t*>(ch[c].data() + p * qs::QS_PACKET_BYTES +
                                                               qs::QS_TRAILER_OFFSET);
                *t = qs::stateTrailer_t{};
                t->TotalPktCount = uint16_t(2 * p + c);
            }
    }
};

void BM_IngestBlock(benchmark::State& state) {
    qssim_reset();
    qssim_add_device(QSSIM_PID_MAPLE_REV2, kSerial);
    auto* usb = new qs::CypressInterface(kSerial);
    if (usb->State() != qs::USB_OPEN) {
        delete usb;
        state.SkipWithError("simulated device did not open");
        return;
    }
    auto device = std::make_unique<BareDevice>(usb);
    Block block;
    std::vector<int16_t> unpacked(size_t(qs::QS_BLOCK_SAMPLES));
    const uint8_t* ch1 = block.ch[0].data();
    const uint8_t* ch2 = block.ch[1].data();
    int64_t taken = 0;
    const double cpu0 = ThreadCpu();
    for (auto _ : state) {
        for (int i = 0; i < qs::QS_PACKETS_PER_CHANNEL; ++i) {
            int16_t* pair = unpacked.data() + 2 * qs::QS_SAMPLES_PER_PACKET * i;
            qs::unpack_to_short(ch1 + qs::QS_PACKET_BYTES * i + qs::QS_PAYLOAD_OFFSET, pair);
            qs::unpack_to_short(ch2 + qs::QS_PACKET_BYTES * i + qs::QS_PAYLOAD_OFFSET,
                                pair + qs::QS_SAMPLES_PER_PACKET);
        }
        taken += device->ParseHeader(ch1, ch2);
        taken += device->ParseTrailer(ch1, ch2);
        benchmark::DoNotOptimize(unpacked.data());
        benchmark::ClobberMemory();
    }
    const double cpu = ThreadCpu() - cpu0;
    // Both parse calls report a taken block with 1; anything else means the
    // block measured was not the one intended.
    if (taken != 2 * int64_t(state.iterations())) state.SkipWithError("header or trailer refused");
    // This thread's CPU time, so that other load on the machine does not
    // count against the ingest.
    const double perSecond = cpu > 0.0 ? double(state.iterations()) / cpu : 0.0;
    state.counters["blocks_per_s"] = perSecond;
    state.counters["x_device"] = perSecond / kDeviceBlocksPerSecond;
    state.SetBytesProcessed(int64_t(state.iterations()) * 2 * qs::QS_TRANSFER_BYTES);
    device.reset();
    qssim_reset();
}
BENCHMARK(BM_IngestBlock)->Unit(benchmark::kMicrosecond)->MinTime(1.0);

}  // namespace

BENCHMARK_MAIN();
