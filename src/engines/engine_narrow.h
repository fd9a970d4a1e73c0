// The narrow sweep engine: narrow spans at fine resolution (dsRatio 16 or
// 256). Instead of transforming the full-rate samples it tunes the wanted IF
// to zero with a table oscillator, low-passes and decimates the I and Q
// channels on two threads of their own, and hands the short complex record
// of each step to one VideoNarrow. A sweep has one step, or two when image
// rejection is on.
//
// Threads and hand-overs:
//  - the interface thread, in Store: converts each packet into the 256-slot
//    ring, counts it in m_inputChunksReady and notifies m_inputReady;
//  - the coordinator (ProcessThreadMT): passes packets on to the channel
//    threads, and at a sweep's end, once both channels are done, runs the
//    video processor on each step and notifies m_procDataReady[s];
//  - the I and Q threads (ProcessI, ProcessQ): mix, filter and decimate
//    their half of every complex sample of m_downsampledInput;
//  - the application's thread, in GetStandardSweep/GetNoiseRejectSweep:
//    waits for the steps, corrects and delivers.
// qs::semaphore keeps one bit, so notifies may fold together: the atomic
// counters carry the true number of packets, and each consumer drains its
// counter after waking. More than 256 packets waiting anywhere means the
// ring was overwritten; the sweep then reports qsUncalSweep.
//
// Construction allocates everything (qs_exception "Smart Pointer Malloc
// Error" on failure) and starts the threads last; a sweep allocates nothing.
// Filters and the oscillator run on across steps and sweeps.
#pragma once

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "calibration/corrections.h"
#include "dsp/ipps_states.h"
#include "dsp/qs_lib.h"
#include "engines/video_dsiir.h"
#include "ipps.h"
#include "qs_api.h"
#include "transport/wire_formats.h"

namespace qs {

class Settings;
struct SweepInfo;

class NarrowSweep {
public:
    static constexpr int PACKET_SAMPLES = QS_SAMPLES_PER_PACKET;
    static constexpr int BLOCK_PACKETS = 16;
    static constexpr int RING_PACKETS = 256;
    // One period of a kHz-grid oscillator at 80 MHz, plus one packet, so a
    // packet starting anywhere in the period stays inside the table.
    static constexpr int LO_PERIOD = 80000;
    static constexpr int LO_TABLE_LEN = LO_PERIOD + PACKET_SAMPLES;
    // Packets of filter settling at the start of each step, left out.
    static constexpr int SETTLING_PACKETS = 4;

    // Caller's thread, at the end of a narrow sweep's set-up.
    NarrowSweep(const SweepInfo* info, const Settings* settings);
    // Caller's thread, once Store can no longer be reached. Ends all three
    // threads, also in the middle of a sweep, and releases a caller waiting
    // in a Get call.
    ~NarrowSweep();

    // Interface thread: one block of 16 unpacked packets. Never waits and
    // never allocates. Returns index + 16 (ppf is not needed here).
    int Store(Ipp16s* raw, int ppf, int index);

    // Application's thread, after the sweep's command went out: blocks until
    // the sweep is processed, corrects it with corr (stepCount x fftSize/
    // (4 dsRatio) values, dB in log scale, else linear factors) and writes
    // traceLen values to each array. The sweep's status: qsNoError, or
    // qsUncalSweep when the ring overflowed.
    qsStatus GetStandardSweep(float* min, float* max, const VecDouble& corr);
    qsStatus GetStandardSweep(double* min, double* max, const VecDouble& corr);
    // The same for two steps seen from opposite mixing positions: each
    // point takes the smaller of the two, so an image in one step goes.
    qsStatus GetNoiseRejectSweep(float* min, float* max, const VecDouble& corr);
    qsStatus GetNoiseRejectSweep(double* min, double* max, const VecDouble& corr);

    // Thread bodies; each returns 0 once the engine stops.
    int ProcessI();
    int ProcessQ();
    int ProcessThreadMT();

private:
    NarrowSweep(const NarrowSweep&);
    NarrowSweep& operator=(const NarrowSweep&);

    void SetupDownsamplingLOs();

    // What sets the I thread apart from the Q thread.
    struct Channel;
    // The body both channel threads share.
    int RunChannel(Channel& ch);
    // One packet of one channel: mixes pRaw with the oscillator table from
    // pOsc, filters, decimates into the channel's half of the complex
    // samples from procIndex on.
    void Downsample(Channel& ch, double* pRaw, double* pOsc, int procIndex);
    // Waits for the steps and applies the corrections over steps x f4 values.
    void CorrectSteps(int steps, const VecDouble& corr);
    // The body of the four Get calls: one step, or the per-point minimum
    // of two (reject).
    template <typename T>
    qsStatus Deliver(T* min, T* max, const VecDouble& corr, bool reject);
    void Stop();

    int m_fftSize;
    int m_fftDiv4;
    int m_ChunksToProc;
    int m_downsampleRatio;
    std::vector<double> m_cosBuf[2];
    std::vector<double> m_sinBuf[2];
    std::vector<double> m_inputData;
    std::vector<double> m_downsampledInput;
    int m_chunkCount;
    int m_chunkStorePos = 0;
    std::vector<double> m_outputDataMax;
    std::vector<double> m_outputDataMin;
    std::atomic<bool> m_engineRunning{false};
    std::thread m_workerThread;
    std::thread m_IThread;
    std::thread m_QThread;
    std::unique_ptr<semaphore[]> m_procDataReady;
    semaphore m_inputReady;
    std::atomic<int> m_inputChunksReady{0};
    semaphore m_iSweepStart;
    semaphore m_qSweepStart;
    semaphore m_iChannelReady;
    semaphore m_qChannelReady;
    std::atomic<int> m_iChunksReady{0};
    std::atomic<int> m_qChunksReady{0};
    std::atomic<qsStatus> m_currentSweepStatus{qsNoError};
    qsStatus m_lastSweepStatus = qsNoError;
    std::unique_ptr<iir_64f> iState;
    std::unique_ptr<iir_64f> qState;
    std::unique_ptr<iir_64f> i2State;
    std::unique_ptr<iir_64f> q2State;
    std::vector<double> IScratchpad;
    std::vector<double> QScratchpad;
    std::vector<double> I2Scratchpad;
    std::vector<double> Q2Scratchpad;
    std::unique_ptr<VideoNarrow> video_processor;
    bool m_flipSpectrum;
    const SweepInfo* m_sweep_info;
    const Settings* m_settings;

    struct Channel {
        semaphore* start;
        std::atomic<int>* chunksReady;
        semaphore* done;
        std::vector<double>* osc;  // the two steps' tables
        iir_64f* stage1;
        iir_64f* stage2;
        double* scratch;
        double* scratch2;
        int part;  // 1: imaginary (I), 0: real (Q)
    };
};

}  // namespace qs
