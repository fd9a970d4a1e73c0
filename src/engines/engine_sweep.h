// The sweep engine: turns the raw packets of a swept measurement (dsRatio 1)
// into a calibrated minimum and maximum trace.
//
// Three parties share one engine:
//  - the interface thread, which hands over each 16-packet block through
//    Device::StoreData -> Store; Store converts to double into the chunk
//    ring and signals each completed chunk, nothing more;
//  - one to four workers of the engine (ProcessThread), each with its own
//    VideoIIR, which claim chunks in ring order, wait for them and turn each
//    into a patch;
//  - the application's thread, in GetSweep through Device::GetSweep, which
//    walks the patches in chunk order as they finish, applies the
//    corrections, pairs or repairs patches, and copies traceLen points out.
//
// Hand-overs: m_rawReady[c] (Store -> the worker that claimed chunk c) and
// m_processedReady[c] (worker -> GetSweep). The only lock besides those is
// m_position_mutex, held for the claim of a chunk index.
//
// The plan and the settings are not owned; they stay fixed while the engine
// lives (a mode set-up runs only after the previous engine is destroyed).
// Construction allocates every buffer (qs_exception "Smart Pointer Malloc
// Error" on failure, with nothing left behind) and starts the workers last.
// A sweep allocates nothing.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "calibration/corrections.h"
#include "dsp/dsp_vector.h"
#include "dsp/qs_lib.h"
#include "engines/video_iir.h"
#include "settings/sweep_info.h"
#include "ipps.h"
#include "qs_api.h"
#include "transport/wire_formats.h"

namespace qs {

class Settings;
struct SweepInfo;

// Samples of a ring of count chunks of each samples; qs_exception (which
// a set-up turns into qsAllocationLimitErr) when the doubles would not fit
// smart_ptr's int byte count.
int ring_len(int count, int each);

// Converts one block of 16 unpacked packets (scale 2^-15) into a ring of
// chunkCount chunks of ppf packets each (chunkSize samples), going on at
// packet `index` of chunk `storePos`, and signals ready[c] for each chunk c
// it completes. For the interface thread: never waits, never allocates.
// Returns the packet index for the next block.
int store_block_in_chunks(Ipp16s* raw, double* ring, int chunkSize, int chunkCount, int& storePos,
                          int ppf, int index, semaphore* ready);

class SweepEngine {
public:
    static constexpr int MAX_THREADS = 4;
    static constexpr int PACKET_SAMPLES = QS_SAMPLES_PER_PACKET;
    static constexpr int BLOCK_PACKETS = 16;

    // Caller's thread, at the end of a sweep set-up. Starts min(stepCount,
    // maxThreads, 4) workers (at least one), which then wait for the first
    // chunks. maxThreads below 4 is for measurement and tests; the device
    // passes the default. Throws qs_exception when a buffer cannot be had
    // (and the transform's std::exception for a size it refuses); the set-up
    // turns either into qsAllocationLimitErr.
    SweepEngine(const SweepInfo* info, const Settings* settings, int maxThreads = MAX_THREADS);
    // Caller's thread, never while a GetSweep runs and only after Store can
    // no longer be reached (Device::Abort clears m_fftReady first). Stops
    // the workers without processing a further chunk (one inside Process
    // finishes it), joins them, then frees. Never blocks on missing data.
    virtual ~SweepEngine();

    // Interface thread only. raw is one block of 16 unpacked packets in time
    // order; ppf is packets per chunk, index the packets of the current chunk
    // already stored (0 at the start of a sweep). Converts each packet to
    // double (scale 2^-15) into the ring and signals every chunk it
    // completes. Never waits (the only lock is the completed chunk's own
    // semaphore, for its notify) and never allocates; returns the index for
    // the next call, 0 when the sweep's last chunk completed.
    int Store(Ipp16s* raw, int ppf, int index);

    // Application's thread, after the sweep's command was queued. Blocks
    // until every chunk of the sweep is processed (no time-out: every planned
    // block reaches Store), corrects and stitches, writes traceLen values to
    // each array and returns qsNoError. corr holds at least stepCount x
    // fftSize/4 values in chunk order (dB with log scale, else linear
    // factors). One caller at a time.
    virtual qsStatus GetSweep(float* min, float* max, const VecDouble& corr) = 0;
    virtual qsStatus GetSweep(double* min, double* max, const VecDouble& corr) = 0;
    virtual void FinishStandardSweep(const VecDouble& corr) = 0;
    virtual void FinishNoiseRejectSweep(const VecDouble& corr) = 0;

    // The rejection pass when the settings ask for image rejection, else the
    // standard one. Application's thread; blocks like GetSweep.
    void FinishSweep(const VecDouble& corr);

    // Body of worker thread_num; returns 0 once the engine stops.
    int ProcessThread(int thread_num);

    int ThreadCount() const { return m_threadCount; }

protected:
    // Waits for patch i, then adds (log scale) or multiplies (linear) its
    // corrections into the maximum and then the minimum array.
    void CorrectChunk(int i, const VecDouble& corr);
    // Copies traceLen values of each output array from position start.
    void Deliver(float* min, float* max, int start);
    void Deliver(double* min, double* max, int start);

    const Settings* m_settings;
    const SweepInfo* m_sweepInfo;
    std::vector<std::unique_ptr<VideoIIR>> video_processors;
    int m_fftSize;
    int m_fftDiv4;
    int m_fftDiv8;
    int m_chunkSize;
    int m_chunkCount;
    smart_ptr<double> m_inputData;
    smart_ptr<double> m_outputDataMax;
    smart_ptr<double> m_outputDataMin;
    int m_chunkStorePos = 0;    // interface thread only
    int m_chunkProcessPos = 0;  // application's thread only
    std::unique_ptr<semaphore[]> m_rawReady;
    std::unique_ptr<semaphore[]> m_processedReady;
    std::atomic<bool> m_engineRunning{false};
    int m_threadCount;
    std::thread m_threads[MAX_THREADS];
    int m_criticalWorkerIndex = 0;  // guarded by m_position_mutex
    std::mutex m_position_mutex;

private:
    SweepEngine(const SweepEngine&);
    SweepEngine& operator=(const SweepEngine&);
    void StopWorkers();
};

// The Maple's wide sweep. Standard pass: a patch on the low band (LO row 0)
// has its first half copied over its second half. Rejection pass: the plan
// steps by half a patch, and each half-patch of the trace is the per-bin
// minimum of the two chunks that saw it (the low band's chunk takes no
// part). The trace starts firstPatchSkipCnt bins into the first patch.
class SweepEngine_Maple : public SweepEngine {
public:
    using SweepEngine::SweepEngine;
    ~SweepEngine_Maple() override = default;

    qsStatus GetSweep(float* min, float* max, const VecDouble& corr) override;
    qsStatus GetSweep(double* min, double* max, const VecDouble& corr) override;
    void FinishStandardSweep(const VecDouble& corr) override;
    void FinishNoiseRejectSweep(const VecDouble& corr) override;
};

// The Larch's wide sweep. Its chunks are the plan's residual steps first
// (m_rps.m_residualCount of them), then the regular steps. Standard pass: a
// residual patch is laid over the regular patch it repairs (residual row 0,
// whose read and write centres differ by 5 MHz, only over the 3/8 of a
// patch about the spur). Rejection pass: the regular half-patches are paired
// by minimum as on the Maple, then each residual can only lower the bins
// about its location. The trace starts firstPatchSkipCnt bins into the
// first regular patch.
class SweepEngine_Larch : public SweepEngine {
public:
    SweepEngine_Larch(const SweepInfo* info, const Settings* settings, const ResidualInfo* rps,
                      int maxThreads = MAX_THREADS);
    ~SweepEngine_Larch() override = default;

    qsStatus GetSweep(float* min, float* max, const VecDouble& corr) override;
    qsStatus GetSweep(double* min, double* max, const VecDouble& corr) override;
    void FinishStandardSweep(const VecDouble& corr) override;
    void FinishNoiseRejectSweep(const VecDouble& corr) override;

    // The IF self-calibration's pass: for each of the 288 chunks in turn
    // (the plan has 288 steps of one packet), waits for its patch and
    // writes the largest value of the maximum array into peakValues[n]. No
    // correction. Application's thread; blocks like GetSweep. Returns 0.
    int GetCalSweep(double* peakValues);

    static constexpr int CAL_SWEEP_POINTS = 288;

private:
    // Position of the first regular patch in the output arrays.
    int TraceStart() const;

    ResidualInfo m_rps;
};

// The Maple's low-band-only sweep (one chunk): delivers bins 0 to
// fftSize/2 - 1 of the chunk's transform in dBm, uncorrected, through a
// VideoIIR of its own built for the call (this engine's sweep allocates).
class BandZeroCalEngine_Maple : public SweepEngine {
public:
    using SweepEngine::SweepEngine;
    ~BandZeroCalEngine_Maple() override = default;

    // fftSize/2 values into each array; qsAllocationLimitErr if the
    // processor cannot be built. The float form narrows the double one.
    qsStatus GetSweep(float* min, float* max, const VecDouble& corr) override;
    qsStatus GetSweep(double* min, double* max, const VecDouble& corr) override;
    void FinishStandardSweep(const VecDouble&) override {}
    void FinishNoiseRejectSweep(const VecDouble&) override {}
};

}  // namespace qs
