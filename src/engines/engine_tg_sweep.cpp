#include "engines/engine_tg_sweep.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "engines/engine_sweep.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"
#include "tg/tg_interface.h"

namespace qs {

namespace {

constexpr double kPatchHz = 20000000.0;
constexpr double kPriLevelDbm = -30.0;
constexpr double kSecLevelDbm = -10.0;
constexpr double kUnmeasured = -200.0;


}  // namespace

TGSweepEngine::TGSweepEngine(const SweepInfo* info, const Settings* settings, TGInterface* tg,
                             std::atomic<TGCalState>* state, PassControl* passes, const TgPeakRules& rules)
    : m_settings(settings), m_sweepInfo(info), tgi(tg), m_state(state), m_passes(passes), m_rules(rules) {
    *m_state = tgNoThruStored;
    m_fftSize = info->fftSize;
    m_fftDiv4 = m_fftSize / 4;
    m_fftDiv8 = m_fftSize / 8;
    m_chunkSize = info->chunkSize;
    m_sweepSize = info->traceLen + info->lastPatchSkipCnt;
    m_threadCount = info->stepCount < 1 ? info->stepCount : 1;
    if (m_threadCount < 0) m_threadCount = 0;
    const size_t M = size_t(std::max(m_sweepSize, 0));

    m_inputData.malloc(ring_len(m_sweepSize, m_chunkSize));
    m_sweepDataPri.assign(M, 0.0);
    m_sweepDataSec.assign(M, 0.0);
    m_corrDataPri.assign(M, 0.0);
    m_corrDataSec.assign(M, 0.0);
    m_20dBPadData.assign(M, 0.0);

    m_TGStepsPer20M = int(std::floor(kPatchHz / info->binSize + 0.5));
    if (m_TGStepsPer20M < 1) m_TGStepsPer20M = 1;
    m_TGInitialStepCount = info->tgInitialCount;

    // Taken here: Device::Abort empties the patch list before it destroys
    // the engine, so the worker reads the list only for a point it got.
    m_lastPatch = std::max(info->patchInfo.NumPatches() - 1, 0);
    zeroIdx = info->patchInfo.NumPatches() > 0
                  ? int(m_fftDiv8 - m_fftDiv4 * info->patchInfo[0].center_freq / kPatchHz)
                  : 0;

    ForgetThrough();

    for (int i = 0; i < MAX_THREADS; ++i) {
        m_FFTDataMin[i].malloc(m_fftDiv4);
        m_FFTDataMax[i].malloc(m_fftDiv4);
    }
    m_chunkStorePos = 0;
    m_rawReady.reset(new semaphore[M]);
    m_processedReady.reset(new semaphore[M]);

    m_engineRunning = true;
    m_criticalWorkerIndex = 0;
    GenerateTGConstants();
}

TGSweepEngine::~TGSweepEngine() { StopWorker(); }

void TGSweepEngine::StopWorker() {
    m_engineRunning = false;
    for (int i = 0; i < m_sweepSize; ++i) {
        m_rawReady[i].notify();
        m_processedReady[i].notify();
    }
    for (std::thread& t : m_threads)
        if (t.joinable()) t.join();
}

void TGSweepEngine::GenerateTGConstants() {
    const double start = m_settings->Start();
    const double step = m_sweepInfo->binSize;
    tgi->LoadALC(0, kPriLevelDbm, start, step, m_sweepSize);
    tgi->LoadALC(1, kSecLevelDbm, start, step, m_sweepSize);
}

void TGSweepEngine::LoadPriCorrData(VecDouble data) {
    std::copy_n(data.begin(), std::min(data.size(), m_corrDataPri.size()), m_corrDataPri.begin());
}

void TGSweepEngine::LoadSecCorrData(VecDouble data) {
    std::copy_n(data.begin(), std::min(data.size(), m_corrDataSec.size()), m_corrDataSec.begin());
}

void TGSweepEngine::Start() {
    for (int i = 0; i < m_threadCount; ++i)
        video_processors.emplace_back(new VideoIIR(m_settings, m_sweepInfo));
    try {
        for (int i = 0; i < m_threadCount; ++i) m_threads[i] = std::thread(&TGSweepEngine::ProcessThread, this, i);
    } catch (...) {
        StopWorker();
        throw;
    }
}

void TGSweepEngine::ForgetThrough() {
    const size_t M = static_cast<size_t>(std::max(m_sweepSize, 0));
    m_thruDataPri.assign(M, kPriLevelDbm);
    m_thruDataSec.assign(M, kSecLevelDbm);
    peakIndex.assign(M, -1);
    *m_state = tgNoThruStored;
}

int TGSweepEngine::InitiateSweep(int range) {
    m_WorkingOnSec = range == 1;
    int b = range;
    if (range == 0) {
        const TGCalState s = m_state->load();
        if (s == tg20dBRequested) {
            m_20dBPadData = m_sweepDataPri;
            *m_state = tg20dBInProgress;
            b = 1 - range;
        } else if (s == tg0dBRequested) {
            *m_state = tg0dBInProgress;
        }
    } else if (m_state->load() == tg20dBInProgress) {
        // With the 20 dB pad in the path the two levels swap places.
        b = 1 - range;
    }
    tgi->WriteALC(b);
    tgi->TGSweep(m_settings->Start(), m_sweepInfo->binSize, m_sweepSize);
    return 0;
}

int TGSweepEngine::Store(const Block& block) {
    return store_block_in_chunks(block.samples, m_inputData.ptr, m_chunkSize, m_sweepSize, m_chunkStorePos,
                                 block.ppf, block.index, m_rawReady.get());
}

double TGSweepEngine::MeasureCeiling() const { return tgi->IsRowan() ? 12980000000.0 : 4420000000.0; }

double TGSweepEngine::TraceLimit() const { return tgi->IsRowan() ? 12980000000.0 : 4410000000.0; }

int TGSweepEngine::ProcessThread(int thread_num) {
    VideoIIR& video = *video_processors[size_t(thread_num)];
    const int P = m_TGStepsPer20M;
    const int f4 = m_fftDiv4, f8 = m_fftDiv8;
    while (m_engineRunning) {
        int c;
        {
            std::lock_guard<std::mutex> lock(m_position_mutex);
            c = m_criticalWorkerIndex;
            if (++m_criticalWorkerIndex == m_sweepSize) m_criticalWorkerIndex = 0;
        }
        m_rawReady[c].wait();
        double& dst = m_WorkingOnSec ? m_sweepDataSec[size_t(c)] : m_sweepDataPri[size_t(c)];
        if (!m_engineRunning) return 0;

        // Where the point lies in its patch.
        const int s = m_TGInitialStepCount + c;
        const int p = std::min(s / P, m_lastPatch);
        const int d = s % P - P / 2;
        const Patch& patch = m_sweepInfo->patchInfo[p];
        const double x = d * kPatchHz / P;
        const double F = patch.center_freq;

        // Move the kept slice towards the tone so that it stays inside it.
        const double W = m_rules.centredSliceHz;
        const bool low = m_rules.lowPatchHz > 0.0 && F <= m_rules.lowPatchHz;
        int o;
        if (W > 0.0)
            o = x > W ? f8 / 8 : x < -W ? -(f8 / 8) : 0;
        else
            o = d > 0 ? f8 / 8 : -(f8 / 8);
        if (low && P < 8) o = 0;
        if (patch.direct) o = x + F > 14900000.0 ? 0 : -f8;

        if (F > MeasureCeiling()) {
            dst = kUnmeasured;
        } else {
            video.Process(m_inputData.ptr + size_t(c) * size_t(m_chunkSize), m_FFTDataMin[thread_num],
                          m_FFTDataMax[thread_num], o, m_settings->VideoUnits(), m_settings->Detector(),
                          m_settings->LogScale() ? QS_OUT_DBM : QS_OUT_MV, patch.flip_spectrum);
            int v = 0, top = -1;
            if (low) {
                v = zeroIdx + 10;
            } else if (patch.direct && o != 0) {
                // Direct sampling: the tone's bin is known from its frequency,
                // and bounds the search.
                v = int(std::floor(f4 * (c * kPatchHz / P + m_settings->Start()) / kPatchHz + 0.5));
                if (v > 0) top = v;
            }
            dst = FindValidPeak(m_FFTDataMax[thread_num], c, v, top);
        }
        m_processedReady[c].notify();
    }
    return 0;
}

double TGSweepEngine::FindValidPeak(const double* buf, int point, int minValid, int maxValid) {
    int lo = std::max(std::abs(minValid), 6);
    int hi = maxValid >= 0 ? maxValid : m_fftDiv4 - 1;
    const bool locating = m_state->load() == tg0dBInProgress;
    const int known = peakIndex[size_t(point)];
    if (known >= 0 && !locating) {
        lo = known - 1;
        hi = known + 1;
    }
    // A tone in the outermost bin would put the one-bin search past the
    // array; the search stops at its ends.
    lo = std::min(std::max(lo, 0), m_fftDiv4 - 1);
    hi = std::min(hi, m_fftDiv4 - 1);
    int best = lo;
    for (int i = lo + 1; i <= hi; ++i)
        if (buf[i] >= buf[best]) best = i;
    if (locating) peakIndex[size_t(point)] = best;
    return buf[best];
}

void TGSweepEngine::FinishPass(VecDouble& data, const VecDouble& corr, const VecDouble& thru) {
    for (int i = 0; i < m_sweepSize; ++i) m_processedReady[i].wait();
    const size_t M = data.size();
    if (m_settings->LogScale()) {
        for (size_t i = 0; i < M; ++i) data[i] = data[i] + corr[i] - thru[i];
    } else {
        for (size_t i = 0; i < M; ++i) data[i] = data[i] * corr[i] / thru[i];
    }
}

qsStatus TGSweepEngine::GetPrimaryData(const VecDouble&) {
    FinishPass(m_sweepDataPri, m_corrDataPri, m_thruDataPri);
    if (m_state->load() == tg0dBInProgress) {
        // The result was relative to the old reference; added to it, it is
        // the new absolute one.
        for (size_t i = 0; i < m_thruDataPri.size(); ++i) {
            m_thruDataPri[i] += m_sweepDataPri[i];
            m_thruDataSec[i] = m_thruDataPri[i] + 20.0;
        }
        *m_state = tg0dBStored;
    }
    return qsNoError;
}

qsStatus TGSweepEngine::GetSecondaryData(const VecDouble&) {
    FinishPass(m_sweepDataSec, m_corrDataSec, m_thruDataSec);
    return qsNoError;
}

void TGSweepEngine::ProcState() {
    if (m_state->load() != tg20dBInProgress) return;
    for (size_t i = 0; i < m_thruDataSec.size(); ++i) {
        const double pri = m_sweepDataPri[i], sec = m_sweepDataSec[i];
        const double thruPri = m_thruDataPri[i], thruSec = m_thruDataSec[i], pad = m_20dBPadData[i];
        m_thruDataSec[i] = (pri + thruPri) + (sec + thruSec) - (thruPri + pad) - pad;
    }
    *m_state = tg20dBStored;
}

template <typename T>
void TGSweepEngine::Deliver(T* min, T* max) {
    ProcState();
    // Below the crossover the primary pass has sunk into the noise and the
    // secondary one takes over, over a 10 dB blend.
    double t = -55.0 - m_thruDataPri[size_t(m_sweepSize / 2)];
    if (m_settings->m_tgPassiveDevice) t -= 20.0;
    const double limit = TraceLimit();
    const bool high = m_settings->m_tgHighDynamicRange;
    for (int i = 0; i < m_sweepInfo->traceLen; ++i) {
        double v = m_sweepDataPri[size_t(i)];
        if (high) {
            if (v < t) {
                v = m_sweepDataSec[size_t(i)];
            } else if (v < t + 10.0) {
                const float w = float((v - t) * 0.1);
                v = v * w + (1.0 - w) * m_sweepDataSec[size_t(i)];
            }
        }
        if (i * m_sweepInfo->binSize + m_settings->Start() > limit) v = kUnmeasured;
        min[i] = max[i] = T(v);
    }
}

bool TGSweepEngine::RunPass(int pass) {
    // The pass's flag reaches the worker before the pass's command goes out.
    InitiateSweep(pass);
    if (!m_passes->SendPass(pass)) return false;
    if (pass == 0)
        GetPrimaryData({});
    else
        GetSecondaryData({});
    return m_passes->GeneratorThere();
}

template <typename T>
qsStatus TGSweepEngine::Sweep(T* min, T* max) {
    // A generator that went missing ends the fetch with a status rather
    // than a trace of the analyser's noise.
    if (m_passes->GeneratorLost()) return qsTrackingGeneratorNotFound;
    bool there = RunPass(0);
    if (there && m_settings->m_tgHighDynamicRange) there = RunPass(1);
    if (!there) {
        ForgetThrough();
        return qsTrackingGeneratorNotFound;
    }
    Deliver(min, max);
    return qsNoError;
}

qsStatus TGSweepEngine::GetSweep(float* min, float* max, const VecDouble&) { return Sweep(min, max); }

qsStatus TGSweepEngine::GetSweep(double* min, double* max, const VecDouble&) { return Sweep(min, max); }

}  // namespace qs
