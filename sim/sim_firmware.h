// The firmware of a simulated analyser: decodes the 1024-byte command
// blocks, answers them on the two data endpoints as the instrument does, and
// keeps the device's own counters and its flash.
//
// Output is made one 32768-byte packet at a time into a FIFO of kFifoBlocks
// blocks per channel, which the host's reads empty. A device runs a thread of
// its own that makes the packets (sim_device.h), as a device has its own
// clock, so the host's interface thread only moves ready packets; standing
// alone (tests of the firmware itself), the firmware makes what is ready
// when a read finds its FIFO empty. Pacing decides when a packet is ready:
//  - free: as soon as the FIFO has room (back-pressure: nothing is lost);
//  - real time: packet pair k of a run is ready (k + 1) x 467.2 us after the
//    run's command, one block per 3.7376 ms as on the wire, and a host that
//    falls more than kFifoBlocks behind loses whole blocks and sees
//    GPIFOverflowCount step;
//  - streams (a device's default): streams in real time, counted runs free.
// A device thread that falls behind the real-time clock (a loaded machine)
// moves the run's clock on rather than blame the host: only a host that
// leaves the FIFO full loses blocks.
//
// Answers: a sweep, tracking-generator sweep or capture sends its counted
// blocks; a stream sends blocks until a stream command with bit 0 of its
// first control byte set, then the rest of the block begun, then one block
// whose headers echo the stop, then nothing; a flash read sends one packet
// per channel. Any command that answers with data, and a preset, drops what
// the previous one had still to send; port, flash write and clear commands
// leave a run alone. Counters run for the life of the device.
//
// Threads: every call is made with the world's lock held (sim_world.h) and
// none blocks, except FillPacket, which the maker of packets calls without
// it (the receiver's work is the slow part).
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "sim_scene.h"

namespace qssim {

using Clock = std::chrono::steady_clock;

constexpr int kCommandBytes = 1024;
constexpr int kPacketBytes = 32768;
constexpr int kSamplesPerPacket = 18688;
constexpr int kPayloadOffset = 32;
constexpr int kTrailerOffset = 32736;
constexpr int kPacketsPerChannel = 8;  // in one block
constexpr int kBlockSamples = 2 * kPacketsPerChannel * kSamplesPerPacket;
constexpr int kMaxSubBands = 32;
constexpr int kFlashPages = 49;
constexpr int kFlashPageBytes = 65536;
constexpr int kFlashWriteBytes = 256;
constexpr int kRoughCorrOffset = 528;
constexpr int kRoughCorrBytes = 256;
constexpr int kFlashBytes = kFlashPages * kFlashPageBytes;
constexpr uint16_t kFlashUnlock = 0x5AC3;
// A packet pair of 2 x 18688 samples at 8e7 samples a second.
constexpr std::chrono::nanoseconds kPairPeriod{467200};
// What the device buffers before it overruns, in blocks.
constexpr int kFifoBlocks = 4;
constexpr int kFifoPackets = kFifoBlocks * 8;  // per channel

enum Pacing { kPaceFree = 0, kPaceRealTime = 1, kPaceStreams = 2 };

enum : uint8_t {
    kCmdConfigure = 0,
    kCmdCapture = 5,
    kCmdReadFlash = 0x11,
    kCmdWriteFlash = 0x12,
    kCmdClearFlash = 0x13,
    kCmdPreset = 0x14,
    kCmdSetPorts = 0x15,
};

enum : uint16_t {
    kCfgSweep = 1,
    kCfgStream = 2,
    kCfgStreamForce = 3,
    kCfgTgSweep = 6,
};

struct SubBand {
    uint8_t settings[4];
    uint16_t LO2Freq;
    uint16_t LO1startFreq;
    int16_t LO1stepFreq;
    uint16_t packetsPerFreq;
    uint16_t stepCount;
};

// A command block as the firmware reads it.
struct Command {
    uint8_t headerType = 0;
    uint16_t commandType = 0;
    uint16_t subBandCount = 0;
    uint16_t TGstartingIndex = 0;
    uint16_t TGCountPerPatch = 0;
    SubBand subBands[kMaxSubBands] = {};
    uint8_t data[kFlashWriteBytes] = {};  // bytes 16 to 271: flash data, port mask
    uint8_t roughCorrArray[kRoughCorrBytes] = {};  // Maple: (count, gain) pairs per step
};

// Decodes a command block; false when it is not exactly 1024 bytes.
bool DecodeCommand(const uint8_t* bytes, int len, Command* out);

// Sub-bands the firmware honours: subBandCount, at most 32.
int ValidSubBands(const Command& command);

// Blocks a sweep or capture answers with: the packets of the valid
// sub-bands, 16 to a block, the remainder dropped.
int64_t CountedBlocks(const Command& command);

// Where one packet of sample data stands in what the device was told to do.
struct PacketContext {
    const Command* command;  // the sweep, capture or stream in force
    int subBand;             // its sub-band
    int step;                // LO step within the sub-band
    int64_t runSample;       // first sample, in the run's time order of samples
    int channel;             // 0 for endpoint 0x81, 1 for 0x82
    double temperature;      // the device's, Celsius
    uint64_t noiseKey;       // the run's own noise: the seed and the run's number
    bool stimulusOn = false;  // a cabled source reaches the input
    Tone stimulus{0.0, 0.0};
};

// The seam between the firmware and the receiver: fills the samples of one
// packet. Called with the world's lock held; must not block.
class SampleSource {
public:
    virtual ~SampleSource() = default;
    virtual void FillPacket(const PacketContext& ctx, const Scene& scene, int16_t* out,
                            int count) = 0;
    // Whether the converter overflowed in the packet last filled; each such
    // packet steps ADCOverflowCount of its channel.
    virtual bool LastPacketClipped() const { return false; }
};

// Deterministic low noise, about +-32 LSB of 14 bits, a function of the run's
// sample position only, so that tests can predict every sample.
class TestPatternSource : public SampleSource {
public:
    void FillPacket(const PacketContext& ctx, const Scene& scene, int16_t* out,
                    int count) override;
};
int16_t TestPatternSample(int64_t runSample);

// One packet being made: reserved in its channel's FIFO under the world's
// lock, filled without it, committed under it again.
struct PacketJob {
    int channel = 0;
    int64_t pair = 0;
    uint64_t generation = 0;  // the run it belongs to
    uint8_t* dst = nullptr;   // its FIFO slot
    PacketContext ctx{};
    int pktInStep = 0;
    bool clipped = false;
};

class Firmware {
public:
    Firmware(int productId, unsigned serial, const Scene* scene);

    // Endpoint 0x01: one command block.
    void OnCommand(const uint8_t* data, int len, Clock::time_point now);

    // Endpoint 0x81 (channel 0) or 0x82 (channel 1): writes the whole packets
    // that are ready, at most len bytes; sets *shortPacket when the last one
    // was short. Returns the bytes written.
    int Read(int channel, uint8_t* dst, int len, bool* shortPacket, Clock::time_point now);

    // The maker of packets. PrepareNext reserves the next packet that is due
    // and has room, writes its header and returns true; otherwise false, with
    // *wakeAt the time the next one falls due (time_point::max() for none).
    // FillPacket makes its samples (without the world's lock); CommitPacket
    // writes its trailer and hands it to the host, unless a new command has
    // ended its run meanwhile.
    bool PrepareNext(Clock::time_point now, PacketJob* job, Clock::time_point* wakeAt);
    void FillPacket(PacketJob* job);
    void CommitPacket(PacketJob* job);
    // Makes packets in line until the channel has one ready, or none is
    // due; what a read does on a firmware with no thread of its own.
    void MakeFor(int channel, Clock::time_point now);
    // Set by a device that makes packets on its own thread: reads then only
    // take what is made, and a late maker moves the run's clock on.
    void SetThreaded(bool threaded) { m_threaded = threaded; }

    // A transfer on the channel ended by its time-out.
    void OnReadTimedOut(int channel);
    // Whether the channel has data on its way now: made, being made, or still
    // to come in the run. A read that waits for such data has not timed out:
    // a slow simulator (a loaded machine, a sanitizer) is not a slow device,
    // and a device clocks out its run at its own pace.
    bool DataComing(int channel, Clock::time_point now) const;

    // Faults and controls.
    void SetPacing(int pacing) { m_pacing = pacing; }
    // The device's clock runs `factor` times slower than the instrument's
    // (1 or more): real-time pacing at a rate a slowed host can follow.
    void SetSlowdown(double factor) {
        m_pairPeriod = std::chrono::nanoseconds(
            static_cast<int64_t>(kPairPeriod.count() * (factor > 1.0 ? factor : 1.0)));
    }
    void SetSeed(uint64_t seed) { m_seed = seed; }
    void StallNextTransfer(int channel) { ++m_stalls[channel]; }
    void ShortenNextFlashPage(int bytes) { m_shortFlashBytes = bytes; }
    void SlipChannel2() { AddEvent(kSlip); }
    void StepGpifOverflow() { AddEvent(kGpif); }
    void StepAdcOverflow() { AddEvent(kAdc); }
    bool AddTrigger(int64_t runSample);
    // Triggers put into every stream run as it starts (positions as for
    // AddTrigger): the scene a whole program meets, which cannot time its
    // calls to the device's runs.
    void SetStreamTriggers(std::vector<int64_t> runSamples) { m_streamTriggers = std::move(runSamples); }
    void SetTemperature(double celsius) { m_temperature = celsius; }
    void SetSampleSource(std::unique_ptr<SampleSource> source) { m_source = std::move(source); }
    // What is cabled to the input, or null.
    void SetStimulus(Stimulus* stimulus) { m_stimulus = stimulus; }
    // Writes what the flash holds beyond erased bytes (the factory image)
    // when the flash is made; RewriteFlash runs it again on a made flash.
    void SetFlashInit(std::function<void(uint8_t*)> init) { m_flashInit = std::move(init); }
    void RewriteFlash();
    uint32_t Dna() const { return m_dna; }

    // The whole flash, kFlashBytes; made (erased) at first use, so that a
    // device nobody asks for flash costs nothing.
    uint8_t* Flash();
    uint8_t PortMask() const { return m_portMask; }
    int64_t PacketsServed(int channel) const { return m_packetsServed[channel]; }
    int64_t ReadTimeouts(int channel) const { return m_readTimeouts[channel]; }

private:
    enum Mode { kIdle, kCounted, kStream, kDraining, kFlash };
    enum EventKind { kOverrun, kGpif, kAdc, kSlip };
    // Something that happens to the output at a packet pair of the run.
    struct Event {
        int64_t atPair;
        int64_t skip;  // pairs lost on the channels it touches
        EventKind kind;
    };

    void StartRun(Mode mode, const Command& command, int64_t pairLimit, Clock::time_point now);
    void EndRun();
    void BeginDrain(const Command& stop, Clock::time_point now);
    void AddEvent(EventKind kind);
    void ApplyEvents(int channel);
    int64_t FurthestPair() const;
    int64_t ProducedPairs(Clock::time_point now) const;
    void CheckOverrun(int channel, Clock::time_point now);
    bool Paced() const;
    bool ChannelReady(int channel, Clock::time_point now, Clock::time_point* wakeAt);
    int64_t Consumed(int channel) const { return m_next[channel] - (m_fifoTail[channel] - m_fifoHead[channel]); }
    void FlushFifos();
    void Locate(int64_t packet, int* subBand, int* step, int* pktInStep) const;
    uint16_t MonitorValue(int index, int64_t block) const;
    int64_t TriggersBefore(int64_t packet) const;  // reported in packets before this one

    int m_productId;
    const Scene* m_scene;
    std::unique_ptr<SampleSource> m_source;
    Stimulus* m_stimulus = nullptr;
    std::vector<uint8_t> m_flash;
    std::function<void(uint8_t*)> m_flashInit;
    std::vector<int16_t> m_samples;  // one packet, reused
    // Per channel, kFifoPackets packets; head and tail count packets ever
    // taken and made, so a slot is the count modulo the size.
    std::vector<uint8_t> m_fifo[2];
    int64_t m_fifoHead[2] = {0, 0};
    int64_t m_fifoTail[2] = {0, 0};
    uint64_t m_generation = 0;  // steps at every run's start and end
    Command m_fillRun;          // the maker's copy of the run it fills for
    uint64_t m_fillGeneration = ~uint64_t{0};
    int m_filling = -1;  // the channel whose packet is being made, or -1

    Mode m_mode = kIdle;
    Command m_run;                 // the command whose output is being sent
    uint8_t m_stopSettings[4] = {};
    int64_t m_markerPair = INT64_MAX;  // the stop's echo starts here
    int64_t m_pairLimit = 0;
    Clock::time_point m_runStart{};
    int64_t m_next[2] = {0, 0};     // next pair of the run on each channel
    int64_t m_runBasePair = 0;      // device-lifetime pairs before this run
    std::vector<Event> m_events;
    int64_t m_lost[2] = {0, 0};  // packets a slip left out of each channel's count
    size_t m_applied[2] = {0, 0};
    int m_gpifSeen[2] = {0, 0};
    int m_adcSeen[2] = {0, 0};
    bool m_overrunPending[2] = {false, false};

    int m_flashPage = 0;
    bool m_flashPending[2] = {false, false};
    int m_shortFlashBytes = -1;

    uint16_t m_gpifBase = 0;
    uint16_t m_adcBase = 0;
    uint16_t m_eventBase = 0;
    std::vector<int64_t> m_triggers;  // run sample positions, sorted
    bool m_triggersUsed = false;
    std::vector<int64_t> m_streamTriggers;

    bool m_slipNextRun = false;
    int m_pacing = kPaceFree;
    std::chrono::nanoseconds m_pairPeriod = kPairPeriod;
    bool m_threaded = false;
    int m_stalls[2] = {0, 0};
    uint8_t m_portMask = 0;
    double m_temperature = 38.0;
    uint32_t m_dna;
    int64_t m_packetsServed[2] = {0, 0};
    int64_t m_readTimeouts[2] = {0, 0};
    uint64_t m_seed = 0;
};

}  // namespace qssim
