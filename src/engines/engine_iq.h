// Sample streams: the streaming mode's engines, which carry the device's
// endless sample stream from the interface thread to the application.
//
//  - DirectStream: the raw real samples as floats, 1048576 per fetch.
//  - IFStream: the raw real samples as floats, one input block per fetch;
//    the simplest implementation of the interface, built by nothing.
//  - IQStream: filtered, decimated complex I/Q, any number of samples per
//    fetch, through an IQCircularBuffer.
//
// Threads: Store runs on the interface thread (Device::StoreData) and only
// converts or copies a block into the ring and does index arithmetic: no
// allocation, no wait. The GetIQ fetches run on the application's thread and
// block until enough data came. IQStream's filtering runs on its own thread.
// The rings hand over through atomic counters; the semaphores only wake
// the other side. A block that finds its ring full (the reader a whole ring
// behind) is dropped whole, triggers and all, so that nothing is written
// where the reader may be: the reader sees a gap, never torn data.
//
// Positions of triggers and the time accumulators count raw samples (12.5 ns)
// until IQStream turns them into output samples.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "dsp/dsp_vector.h"
#include "dsp/ipps_states.h"
#include "dsp/semaphore.h"
#include "engines/engine.h"
#include "engines/iq_circular_buffer.h"
#include "ipps.h"
#include "qs_api.h"

namespace qs {

class Settings;
struct SweepInfo;

struct qsTime_t {
    uint32_t seconds;
    uint32_t nanosecs;
};

class Stream : public Engine {
public:
    ~Stream() override = default;
    // Interface thread: one block of 299008 raw samples, its trigger list
    // (up to 17 raw positions in the block, ending at a 0 entry), the time
    // of its first sample and the measured converter rate (block's
    // triggers, seconds, nanoseconds, samplesPerSecond). Returns 0.
    int Store(const Block& block) override = 0;
    // Application's thread: one output step into buffer, and its trigger
    // positions into triggers when that is not null (62 entries for a
    // DirectStream, 17 for an IFStream, 64 for an IQStream). Blocks until
    // the step is there.
    qsStatus GetIQ(float* buffer, int* triggers) override = 0;
    // I/Q as a packet: qsNotSupportedErr on a stream of raw samples only.
    qsStatus GetIQ(qsIQPacket*) override { return qsNotSupportedErr; }
    // The time of the last delivered or finished output step; a null
    // pointer is skipped.
    virtual void GetLastTime(uint32_t* seconds, uint32_t* nanoseconds) = 0;
};

// The trigger rows and time entries of a stream whose output steps span
// 1048576 raw samples, filed by Store as blocks of 299008 arrive. Only the
// interface thread writes; the reader takes a row once its step is done.
template <int ROWS>
struct StepRows {
    static constexpr int STEP_RAW = 1048576;
    static constexpr int TRIGS_PER_OUTPUT = 62;

    // Files the block's triggers, each moved by delay raw samples.
    void AddTriggers(const int* triggers, int delay);
    // Notes the time of the step's first raw sample, working back from the
    // block's time; filterDelay more raw samples for a filtered output.
    void AddTime(uint32_t seconds, uint32_t nanosecs, int filterDelay);

    int trigger_list[ROWS][TRIGS_PER_OUTPUT] = {};
    int trig_add_amt = 0;  // raw offset of the block from its row's step
    int trig_loc = 0;
    int trig_pos = 0;
    qsTime_t times[ROWS] = {};
    int time_accum = 0;
    int time_loc = 0;

private:
    void NextRow();
};

class DirectStream : public Stream {
public:
    static constexpr int INPUT_STEP_SZ = 299008;
    static constexpr int INPUT_STEPS = 256;
    static constexpr int STORAGE_LEN = INPUT_STEPS * INPUT_STEP_SZ;  // 76546048
    static constexpr int OUTPUT_STEP_SZ = 1048576;
    static constexpr int OUTPUT_STEPS = STORAGE_LEN / OUTPUT_STEP_SZ;  // 73
    static constexpr int TRIGS_PER_OUTPUT = 62;

    // The arguments are not used. Throws qs_exception when the ring cannot
    // be had.
    DirectStream(const Settings* settings, const SweepInfo* info);
    // Frees a fetch that waits, then releases the ring.
    ~DirectStream() override;

    int Store(const Block& block) override;
    qsStatus GetIQ(float* buffer, int* triggers) override;
    void GetLastTime(uint32_t* seconds, uint32_t* nanoseconds) override;

private:
    std::atomic<int> data_available{0};  // stored and not fetched
    smart_ptr<short> store;
    int input_loc = 0;
    int output_loc = 0;
    semaphore output_ready;
    StepRows<OUTPUT_STEPS> rows;
};

class IFStream : public Stream {
public:
    static constexpr int STEP_SIZE = 299008;
    static constexpr int STEPS = 256;
    static constexpr int STORAGE_LEN = STEPS * STEP_SIZE;
    static constexpr int TRIGS_PER_PKT = 17;

    IFStream(const Settings* settings, const SweepInfo* info);
    ~IFStream() override;

    int Store(const Block& block) override;
    qsStatus GetIQ(float* buffer, int* triggers) override;
    void GetLastTime(uint32_t* seconds, uint32_t* nanoseconds) override;

private:
    std::atomic<int> data_available{0};
    semaphore output_ready;
    smart_ptr<short> store;
    int input_loc = 0;
    int output_loc = 0;
    int trigger_list[STEPS][TRIGS_PER_PKT] = {};
    qsTime_t times[STEPS] = {};
};

class IQStream : public Stream {
public:
    static constexpr int INPUT_STEP_SZ = 299008;
    static constexpr int INPUT_STEPS = 96;
    static constexpr int INPUT_STORAGE_LEN = INPUT_STEPS * INPUT_STEP_SZ;  // 28704768
    static constexpr int PROCESS_IN_STEP_SZ = 393216;
    static constexpr int PROCESS_STEPS = INPUT_STORAGE_LEN / PROCESS_IN_STEP_SZ;  // 73
    static constexpr int OUTPUT_STEPS = 60;
    static constexpr int TRIGS_PER_OUTPUT = 62;

    // Builds the filters for the settings' decimation and band around the
    // plan's IF offset (or the centre itself on the low band), multiplies
    // the per-bin corrections into the first pass (corrections is changed:
    // mirrored for a flipped plan, scaled for 16-bit output), sizes the
    // circular buffer on iqBuf, and starts the filter thread last. Throws
    // qs_exception or std::bad_alloc when memory cannot be had.
    IQStream(const Settings* settings, const SweepInfo* sweep_info,
             std::vector<double>& corrections, IQStorage& iqBuf);
    // Frees a waiting fetch, stops and joins the filter thread, releases.
    ~IQStream() override;

    int Store(const Block& block) override;
    // One output step of 524288 / 2^iqFinalDecimation samples; triggers has
    // room for 64.
    qsStatus GetIQ(float* buffer, int* triggers) override;
    void GetLastTime(uint32_t* seconds, uint32_t* nanoseconds) override;

    // Application's thread: blocks until pkt->iqCount samples came (or the
    // stream ends), fills the packet's arrays, dataRemaining, sampleLoss and
    // the time of its first sample.
    qsStatus GetIQ(qsIQPacket* pkt) override;
    // Delay of the output behind the input, in raw samples, through both
    // passes; triggers are moved by it.
    int TriggerDelay() const;
    int FilterDelay() const;

private:
    void Put(Ipp32fc* buf);
    void FilterThread();

    int PROCESS_OUT_STEP_SZ = 0;
    int OUTPUT_STEP_SZ = 0;
    std::thread filterThreadHandle;
    std::atomic<bool> streaming{false};
    std::unique_ptr<FastFIR_32f> fir_filter;
    smart_ptr<float> input;
    smart_ptr<Ipp32fc> output;
    int input_loc = 0;
    int process_input_loc = 0;
    int output_loc = 0;
    std::atomic<int> input_data_available{0};
    // A block dropped at the input ring since the last read: the reader's
    // sampleLoss, as for a drop at the output ring.
    std::atomic<bool> inputLost{false};
    semaphore inputReady;
    semaphore dataReady;
    StepRows<OUTPUT_STEPS> rows;
    std::atomic<double> measuredSR{8e7};
    bool flipSpectrum = false;
    const Settings* settings;
    const SweepInfo* sweepInfo;
    FIR_32fc finalPassFilter;
    smart_ptr<Ipp32fc> second_pass_output;
    int final_output_size = 0;
    int sampleDownPhase = 0;
    smart_ptr<Ipp32fc> work;  // the filter thread's output assembly, 2 steps
    std::atomic<uint32_t> lastSeconds{0};
    std::atomic<uint32_t> lastNanos{0};
    IQCircularBuffer iqBuffer;
};

}  // namespace qs
