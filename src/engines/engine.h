// The one interface every measurement engine offers the device core.
//
// An engine is built by a mode's set-up on the caller's thread (which
// allocates everything and starts its workers), then:
//  - Store runs on the interface thread, once per block, and only converts
//    or copies into the engine's ring and signals: it never waits on the
//    application and never allocates;
//  - the fetches run on the application's thread and block until the
//    engine has delivered; a mode offers only its own, the others answer
//    qsDeviceNotConfiguredErr (nothing of that kind runs);
//  - the destructor stops: it runs on the caller's thread once Store can no
//    longer be reached, ends and joins the workers without waiting for
//    data, and frees.
// No engine knows which model it runs on: what differs between the models
// comes in through the plan (the patches, the residual steps) and the
// settings.
#pragma once

#include <cstdint>
#include <vector>

#include "qs_api.h"

namespace qs {

struct AudioConfig;
using VecDouble = std::vector<double>;

// One block of the device's output as the device core hands it on.
struct Block {
    // QS_BLOCK_SAMPLES samples, 16 packet pairs (channel 1's packet, then
    // channel 2's) in time order, unpacked at a scale of 2^-15.
    const int16_t* samples = nullptr;
    // Sweep-like modes: packets per chunk, and packets of the current chunk
    // already stored (0 at a sweep's start).
    int ppf = 0;
    int index = 0;
    // Streaming: the trigger positions in the block, ending with a 0 entry;
    // the host time of the first sample; the measured converter rate.
    const int* triggers = nullptr;
    uint32_t seconds = 0;
    uint32_t nanoseconds = 0;
    double samplesPerSecond = 8e7;
};

// What a generator sweep's fetch needs from the device between its passes.
class PassControl {
public:
    // Queues the command of pass 0 (primary) or 1 (secondary) unless the
    // generator went missing (then false, and nothing is sent).
    virtual bool SendPass(int pass) = 0;
    // Whether the generator still answers (an attached one is polled).
    virtual bool GeneratorThere() = 0;
    // Whether the generator is already known to be gone; polls nothing, so
    // a fetch can refuse before it touches the generator.
    virtual bool GeneratorLost() const = 0;

protected:
    ~PassControl() = default;
};

class Engine {
public:
    virtual ~Engine() = default;

    // Interface thread. Sweep-like engines return the index to hand back
    // with the next block (0 when the pass's last chunk completed); the
    // streaming ones 0.
    virtual int Store(const Block& block) = 0;

    // Swept traces (sweep, narrow sweep, generator sweep). corr holds the
    // plan's correction array.
    virtual qsStatus GetSweep(float* min, float* max, const VecDouble& corr);
    virtual qsStatus GetSweep(double* min, double* max, const VecDouble& corr);
    // Real-time frames and the probability-of-intercept time.
    virtual qsStatus GetFrame(float* min, float* max, float* color, float* alpha);
    virtual qsStatus GetPoi(double& seconds) const;
    // Streaming: one output step, or I/Q as a packet (qsNotSupportedErr on
    // a stream that has raw samples only).
    virtual qsStatus GetIQ(float* buffer, int* triggers);
    virtual qsStatus GetIQ(qsIQPacket* packet);
    // Audio: one step of samples; qsDataBreak when it follows a gap.
    virtual qsStatus GetAudio(float* buffer);
    // A new demodulation set for a running audio engine;
    // qsDeviceNotStreamingErr from any other.
    virtual qsStatus UpdateAudio(const AudioConfig& audio);

    // Blocks and transforms this engine had no room for since it started.
    virtual int64_t Lost() const { return 0; }
};

}  // namespace qs
