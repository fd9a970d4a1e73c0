// The tracking-generator sweep engine: a scalar frequency response. The
// generator steps through the sweep's points while the analyser captures
// one chunk per point; each chunk is reduced to one number, the level of the
// generator's tone in it. A primary pass runs the generator at -30 dBm and,
// for a high dynamic range, a secondary pass at -10 dBm; the trace is given
// relative to a stored through measurement.
//
// Three parties, as in the sweep engine:
//  - the interface thread, in Store (through Device::StoreData): converts
//    each block into the point ring and signals every completed point;
//  - one worker (ProcessThread) with its VideoIIR, which claims points in
//    order, finds the tone's level and signals the point;
//  - the application's thread, in GetSweep (through Device::GetSweep):
//    per pass InitiateSweep, the pass's command through the device's
//    PassControl, the wait for the pass's points; then the trace.
//
// Hand-overs: m_rawReady[i] (Store -> worker), m_processedReady[i]
// (worker -> GetPrimaryData/GetSecondaryData); the pass in progress goes to
// the worker through the atomic m_WorkingOnSec, set before the pass's
// command goes out. The through-calibration state is the device's; the
// application's thread writes it (qsStoreTgThru and the fetch), the worker
// only reads it.
//
// All memory is taken at construction (qs_exception "Smart Pointer Malloc
// Error" on failure); a sweep allocates nothing.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "calibration/corrections.h"
#include "dsp/dsp_vector.h"
#include "dsp/semaphore.h"
#include "engines/engine.h"
#include "settings/sweep_info.h"
#include "engines/video_iir.h"
#include "ipps.h"
#include "qs_api.h"
#include "transport/wire_formats.h"

namespace qs {

class Settings;
class TGInterface;
struct SweepInfo;

enum TGCalState {
    tgNoThruStored = 0,
    tg0dBRequested = 1,
    tg0dBInProgress = 2,
    tg0dBStored = 3,
    tg20dBRequested = 4,
    tg20dBInProgress = 5,
    tg20dBStored = 6,
};

class TGSweepEngine : public Engine {
public:
    static constexpr int MAX_THREADS = 1;
    static constexpr int PACKET_SAMPLES = QS_SAMPLES_PER_PACKET;
    static constexpr int BLOCK_PACKETS = 16;

    // Caller's thread. Resets *state to tgNoThruStored, allocates and builds
    // the generator's two ALC buffers; no thread runs until Start. passes
    // sends the passes' commands and checks the generator for GetSweep.
    // Throws qs_exception when a buffer cannot be had.
    TGSweepEngine(const SweepInfo* info, const Settings* settings, TGInterface* tg,
                  std::atomic<TGCalState>* state, PassControl* passes, const TgPeakRules& rules);
    // Stops the worker without waiting for data, joins it, then frees.
    ~TGSweepEngine() override;
    TGSweepEngine(const TGSweepEngine&) = delete;
    TGSweepEngine& operator=(const TGSweepEngine&) = delete;

    // Copy the sweep's M corrections of each pass; before Start.
    void LoadPriCorrData(VecDouble data);
    void LoadSecCorrData(VecDouble data);
    // Builds the video processor and starts the worker.
    void Start();
    void GenerateTGConstants();

    // Application's thread, before the pass's command: 0 primary, 1
    // secondary. Moves the through-calibration state on and starts the
    // generator's hardware sweep. Returns 0.
    int InitiateSweep(int range);
    // Interface thread only; as SweepEngine::Store, with one chunk per point.
    int Store(const Block& block) override;
    // Application's thread: wait for every point of the pass, then apply
    // the pass's corrections and through reference. corr is not used.
    qsStatus GetPrimaryData(const VecDouble& corr);
    qsStatus GetSecondaryData(const VecDouble& corr);
    // Application's thread: the fetch. Refuses at once a generator already
    // gone; runs the primary pass and, for a high dynamic range, the
    // secondary one, each sent through the PassControl and waited for; then
    // writes traceLen values into each array (both the same). A generator
    // that goes missing on the way ends it with qsTrackingGeneratorNotFound
    // and the through forgotten. corr is not used.
    qsStatus GetSweep(float* min, float* max, const VecDouble& corr) override;
    qsStatus GetSweep(double* min, double* max, const VecDouble& corr) override;

    // Application's thread, between fetches: back to the nominal references
    // and a full search, as before any through (a through measured while
    // the generator went missing is no reference).
    void ForgetThrough();

    int ProcessThread(int thread_num);
    // The largest bin of buf from minValid (by magnitude, at least 6) up to
    // maxValid (-1: the last bin), or next to the point's known peak.
    double FindValidPeak(const double* buf, int point, int minValid, int maxValid);
    void ProcState();

    int SweepSize() const { return m_sweepSize; }
    int ThreadCount() const { return m_threadCount; }
    int PeakIndex(int point) const { return peakIndex[size_t(point)]; }
    double ThruPri(int point) const { return m_thruDataPri[size_t(point)]; }
    double ThruSec(int point) const { return m_thruDataSec[size_t(point)]; }

private:
    // Fills dst (M values) from the pass's results: corrected and made
    // relative to the through reference.
    void FinishPass(VecDouble& data, const VecDouble& corr, const VecDouble& thru);
    template <typename T>
    void Deliver(T* min, T* max);
    template <typename T>
    qsStatus Sweep(T* min, T* max);
    // One pass: started, sent, waited for. False when the generator went
    // missing.
    bool RunPass(int pass);
    void StopWorker();
    // The frequency above which no point is measured, and the trace's limit.
    double MeasureCeiling() const;
    double TraceLimit() const;

    const Settings* m_settings;
    const SweepInfo* m_sweepInfo;
    TGInterface* tgi;
    std::atomic<TGCalState>* m_state;
    PassControl* m_passes;
    TgPeakRules m_rules;
    std::vector<std::unique_ptr<VideoIIR>> video_processors;
    int m_fftSize;
    int m_fftDiv4;
    int m_fftDiv8;
    int m_chunkSize;
    int m_sweepSize;
    smart_ptr<double> m_inputData;
    VecDouble m_sweepDataPri;
    VecDouble m_sweepDataSec;
    VecDouble m_corrDataPri;
    VecDouble m_corrDataSec;
    VecDouble m_thruDataPri;
    VecDouble m_thruDataSec;
    VecDouble m_20dBPadData;
    std::vector<int> peakIndex;  // worker only
    int zeroIdx = 0;
    smart_ptr<double> m_FFTDataMin[MAX_THREADS];
    smart_ptr<double> m_FFTDataMax[MAX_THREADS];
    int m_chunkStorePos = 0;  // interface thread only
    std::unique_ptr<semaphore[]> m_rawReady;
    std::unique_ptr<semaphore[]> m_processedReady;
    std::atomic<bool> m_engineRunning{false};
    int m_threadCount;
    std::thread m_threads[MAX_THREADS];
    int m_criticalWorkerIndex = 0;  // guarded by m_position_mutex
    std::mutex m_position_mutex;
    std::atomic<bool> m_WorkingOnSec{false};
    int m_TGStepsPer20M;
    int m_TGInitialStepCount;
    int m_lastPatch = 0;  // the plan's last patch, for points past the last step
};

}  // namespace qs
