#include "engines/engine_sweep.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>

#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace qs {

SweepEngine::SweepEngine(const SweepInfo* info, const Settings* settings, const ResidualInfo* rps,
                         int maxThreads)
    : m_settings(settings), m_sweepInfo(info) {
    if (rps) m_rps = *rps;
    m_fftSize = info->fftSize;
    m_fftDiv4 = m_fftSize / 4;
    m_fftDiv8 = m_fftSize / 8;
    m_chunkSize = info->chunkSize;
    m_chunkCount = info->stepCount;
    m_threadCount = std::max(1, std::min({m_chunkCount, maxThreads, MAX_THREADS}));

    m_inputData.malloc(ring_len(m_chunkCount, m_chunkSize));
    m_outputDataMax.malloc(ring_len(m_chunkCount, m_fftDiv4));
    m_outputDataMin.malloc(ring_len(m_chunkCount, m_fftDiv4));

    m_chunkStorePos = 0;
    m_chunkProcessPos = 0;
    m_rawReady.reset(new semaphore[size_t(m_chunkCount)]);
    m_processedReady.reset(new semaphore[size_t(m_chunkCount)]);

    m_engineRunning = true;
    m_criticalWorkerIndex = 0;

    for (int i = 0; i < m_threadCount; ++i) video_processors.emplace_back(new VideoIIR(settings, info));
    try {
        for (int i = 0; i < m_threadCount; ++i) m_threads[i] = std::thread(&SweepEngine::ProcessThread, this, i);
    } catch (...) {
        // A thread that could not start: end the ones that did before the
        // members go.
        StopWorkers();
        throw;
    }
}

SweepEngine::~SweepEngine() { StopWorkers(); }

void SweepEngine::StopWorkers() {
    m_engineRunning = false;
    for (int c = 0; c < m_chunkCount; ++c) {
        m_rawReady[c].notify();
        m_processedReady[c].notify();
    }
    for (int i = 0; i < MAX_THREADS; ++i)
        if (m_threads[i].joinable()) m_threads[i].join();
}

// Samples of a ring of count x each, or an exception the set-up turns into
// qsAllocationLimitErr when that would not fit smart_ptr's int byte count.
int ring_len(int count, int each) {
    const int64_t n = int64_t(count) * int64_t(each);
    if (count < 1 || each < 1 || n > int64_t(INT32_MAX) / int64_t(sizeof(double)))
        throw qs_exception("Smart Pointer Malloc Error");
    return int(n);
}

int store_block_in_chunks(const Ipp16s* raw, double* ring, int chunkSize, int chunkCount, int& storePos,
                          int ppf, int index, semaphore* ready) {
    constexpr int kPacket = SweepEngine::PACKET_SAMPLES;
    for (int p = 0; p < SweepEngine::BLOCK_PACKETS; ++p) {
        Ipp64f* dst = ring + size_t(storePos) * size_t(chunkSize) + size_t(index) * size_t(kPacket);
        ippsConvert_16s64f_Sfs(raw + size_t(p) * kPacket, dst, kPacket, 15);
        if (++index == ppf) {
            ready[storePos].notify();
            if (++storePos == chunkCount) storePos = 0;
            index = 0;
        }
    }
    return index;
}

int SweepEngine::Store(const Block& block) {
    return store_block_in_chunks(block.samples, m_inputData.ptr, m_chunkSize, m_chunkCount, m_chunkStorePos,
                                 block.ppf, block.index, m_rawReady.get());
}

int SweepEngine::ProcessThread(int thread_num) {
    VideoIIR& video = *video_processors[size_t(thread_num)];
    while (m_engineRunning) {
        int c;
        {
            std::lock_guard<std::mutex> lock(m_position_mutex);
            c = m_criticalWorkerIndex;
            if (++m_criticalWorkerIndex == m_chunkCount) m_criticalWorkerIndex = 0;
        }
        m_rawReady[c].wait();
        if (!m_engineRunning) {
            // Pass the stop on: with as many workers as chunks, a second
            // worker may wait on the same chunk, and one notify frees one.
            m_rawReady[c].notify();
            return 0;
        }
        const Patch& patch = m_sweepInfo->patchInfo[c];
        const size_t out = size_t(c) * size_t(m_fftDiv4);
        video.Process(m_inputData.ptr + size_t(c) * size_t(m_chunkSize), m_outputDataMin.ptr + out,
                      m_outputDataMax.ptr + out, patch.if_offset, m_settings->VideoUnits(), m_settings->Detector(),
                      m_settings->LogScale() ? QS_OUT_DBM : QS_OUT_MV, patch.flip_spectrum, patch.if_fraction);
        m_processedReady[c].notify();
    }
    return 0;
}

void SweepEngine::CorrectChunk(int i, const VecDouble& corr) {
    m_processedReady[i].wait();
    const size_t at = size_t(i) * size_t(m_fftDiv4);
    const double* c = corr.data() + at;
    if (m_settings->LogScale()) {
        ippsAdd_64f(c, m_outputDataMax.ptr + at, m_outputDataMax.ptr + at, m_fftDiv4);
        ippsAdd_64f(c, m_outputDataMin.ptr + at, m_outputDataMin.ptr + at, m_fftDiv4);
    } else {
        ippsMul_64f(c, m_outputDataMax.ptr + at, m_outputDataMax.ptr + at, m_fftDiv4);
        ippsMul_64f(c, m_outputDataMin.ptr + at, m_outputDataMin.ptr + at, m_fftDiv4);
    }
}

void SweepEngine::Deliver(float* min, float* max, int start) {
    ippsConvert_64f32f(m_outputDataMin.ptr + start, min, m_sweepInfo->traceLen);
    ippsConvert_64f32f(m_outputDataMax.ptr + start, max, m_sweepInfo->traceLen);
}

void SweepEngine::Deliver(double* min, double* max, int start) {
    ippsCopy_64f(m_outputDataMin.ptr + start, min, m_sweepInfo->traceLen);
    ippsCopy_64f(m_outputDataMax.ptr + start, max, m_sweepInfo->traceLen);
}

int SweepEngine::TraceStart() const { return m_rps.m_residualCount * m_fftDiv4; }

template <typename T>
qsStatus SweepEngine::Sweep(T* min, T* max, const VecDouble& corr) {
    if (m_settings->ImageReject())
        FinishNoiseRejectSweep(corr);
    else
        FinishStandardSweep(corr);
    Deliver(min, max, TraceStart() + m_sweepInfo->firstPatchSkipCnt);
    return qsNoError;
}

qsStatus SweepEngine::GetSweep(float* min, float* max, const VecDouble& corr) { return Sweep(min, max, corr); }

qsStatus SweepEngine::GetSweep(double* min, double* max, const VecDouble& corr) { return Sweep(min, max, corr); }

void SweepEngine::FinishStandardSweep(const VecDouble& corr) {
    const size_t f4 = size_t(m_fftDiv4), f8 = size_t(m_fftDiv8);
    double* arrays[2] = {m_outputDataMin.ptr, m_outputDataMax.ptr};
    for (int i = 0; i < m_chunkCount; ++i) {
        CorrectChunk(i, corr);
        // A directly sampled patch is clean in its lower half only: that
        // half stands for the whole patch.
        if (m_sweepInfo->patchInfo[i].direct)
            for (double* out : arrays) ippsCopy_64f(out + size_t(i) * f4, out + size_t(i) * f4 + f8, int(f8));
    }
    const size_t e = f4 / 8;
    const size_t end = size_t(m_chunkCount) * f4;
    for (int i = 0; i < m_rps.m_residualCount; ++i) {
        const size_t src = size_t(i) * f4;
        const int loc = m_rps.m_residualLocation[i];
        if (loc < 0 || size_t(loc) * f4 + f4 > end) continue;  // not a patch of this plan
        for (double* out : arrays) {
            if (m_rps.m_residualID[i] != 0) {
                ippsCopy_64f(out + src, out + size_t(loc) * f4, int(f4));
            } else {
                // Read 5 MHz off the spur: bins e..4e-1 of the residual patch
                // hold what bins 3e..6e-1 of the regular patch should.
                ippsCopy_64f(out + src + e, out + size_t(loc) * f4 + 3 * e, int(3 * e));
            }
        }
    }
}

void SweepEngine::FinishNoiseRejectSweep(const VecDouble& corr) {
    for (int i = 0; i < m_chunkCount; ++i) CorrectChunk(i, corr);
    const int R = m_rps.m_residualCount;
    const size_t f4 = size_t(m_fftDiv4), f8 = size_t(m_fftDiv8);
    const size_t B = size_t(R) * f4;
    const int S = m_sweepInfo->stepCount - R;
    const bool directFirst = S > 1 && m_sweepInfo->patchInfo[R].direct;
    double* arrays[2] = {m_outputDataMin.ptr, m_outputDataMax.ptr};
    // Each half-patch was seen by two neighbouring regular chunks with the
    // images in different places; the minimum keeps what both saw. The
    // pairs compact in place from B, the writes always behind the reads.
    for (int i = 1; i < S; ++i)
        for (double* out : arrays) {
            double* at = out + B;
            if (directFirst && i == 1)
                ippsCopy_64f(at + f4, at, int(f8));  // the directly sampled chunk takes no part
            else
                ippsMinEvery_64f(at + size_t(i) * f4 - f8, at + size_t(i) * f4, at + size_t(i - 1) * f8, int(f8));
        }
    // A residual can only lower the bins about its spur here.
    const size_t q = f8 / 4;
    const size_t end = size_t(m_chunkCount) * f4;
    for (int i = 0; i < R; ++i) {
        const long d = long(B) + long(m_rps.m_residualLocation[i] - R) * long(f8) - long(q);
        if (d < 0 || size_t(d) + 2 * q > end) continue;  // not a place of this plan
        const size_t src = size_t(i) * f4 + (m_rps.m_residualID[i] != 0 ? f8 - q : q);
        for (double* out : arrays)
            ippsMinEvery_64f(out + src, out + size_t(d), out + size_t(d), int(2 * q));
    }
}

int SweepEngine::GetCalSweep(double* peakValues) {
    for (int n = 0; n < CAL_SWEEP_POINTS; ++n) {
        m_processedReady[m_chunkProcessPos].wait();
        const double* patch = m_outputDataMax.ptr + size_t(m_chunkProcessPos) * size_t(m_fftDiv4);
        peakValues[n] = *std::max_element(patch, patch + m_fftDiv4);
        if (++m_chunkProcessPos == m_chunkCount) m_chunkProcessPos = 0;
    }
    return 0;
}

// ---- Directly sampled band, raw ----------------------------------------------

qsStatus LowBandRawSweep::GetSweep(double* min, double* max, const VecDouble&) {
    m_processedReady[0].wait();
    try {
        VideoIIR video(m_settings, m_sweepInfo);
        const int units = m_settings->VideoUnits(), detector = m_settings->Detector();
        // Bins 0 .. fftSize/4 - 1, then fftSize/4 .. fftSize/2 - 1.
        video.Process(m_inputData, min, max, -m_fftDiv8, units, detector, QS_OUT_DBM, false);
        video.Process(m_inputData, min + m_fftDiv4, max + m_fftDiv4, m_fftDiv8, units, detector, QS_OUT_DBM,
                      false);
    } catch (const std::exception&) {
        return qsAllocationLimitErr;
    }
    return qsNoError;
}

qsStatus LowBandRawSweep::GetSweep(float* min, float* max, const VecDouble& corr) {
    std::vector<double> dmin, dmax;
    try {
        dmin.resize(size_t(2 * m_fftDiv4));
        dmax.resize(size_t(2 * m_fftDiv4));
    } catch (const std::exception&) {
        m_processedReady[0].wait();
        return qsAllocationLimitErr;
    }
    const qsStatus st = GetSweep(dmin.data(), dmax.data(), corr);
    if (st == qsNoError) {
        ippsConvert_64f32f(dmin.data(), min, 2 * m_fftDiv4);
        ippsConvert_64f32f(dmax.data(), max, 2 * m_fftDiv4);
    }
    return st;
}

}  // namespace qs
