#include "engines/engine_narrow.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace qs {

namespace {

// Third-order low-pass of every stage: numerator, then denominator.
const Ipp64f kStageTaps[8] = {1.0, 3.0, 3.0, 1.0, 1.0, -2.9742242332, 2.9489610998, -0.9747324599};
// Gains that bring the decimated channels back to the input's scale.
constexpr double kGainOneStage = 3.89495e-7;
constexpr double kGainTwoStages = 2.14545e-13;
constexpr int kStageDecimation = 16;

std::unique_ptr<iir_64f> make_stage() {
    Ipp64f taps[8];
    std::copy(kStageTaps, kStageTaps + 8, taps);
    return std::unique_ptr<iir_64f>(new iir_64f(3, taps));
}

template <typename T>
void resize_or_throw(std::vector<T>& v, size_t n) {
    try {
        v.assign(n, T());
    } catch (const std::exception&) {
        throw qs_exception("Smart Pointer Malloc Error");
    }
}

}  // namespace

NarrowSweep::NarrowSweep(const SweepInfo* info, const Settings* settings)
    : m_sweep_info(info), m_settings(settings) {
    m_downsampleRatio = info->dsRatio;
    m_fftSize = info->fftSize / m_downsampleRatio;
    m_fftDiv4 = m_fftSize / 4;
    m_ChunksToProc = info->chunkSize / PACKET_SAMPLES;
    m_chunkCount = std::max(1, std::min(2, info->stepCount));
    m_flipSpectrum = info->patchInfo.NumPatches() > 0 && info->patchInfo[0].flip_spectrum;

    for (int s = 0; s < m_chunkCount; ++s) {
        resize_or_throw(m_cosBuf[s], LO_TABLE_LEN);
        resize_or_throw(m_sinBuf[s], LO_TABLE_LEN);
    }
    resize_or_throw(m_inputData, size_t(RING_PACKETS) * PACKET_SAMPLES);
    resize_or_throw(m_downsampledInput,
                    size_t(2) * size_t(m_chunkCount) * size_t(info->chunkSize) / size_t(m_downsampleRatio));
    resize_or_throw(m_outputDataMax, size_t(m_chunkCount) * size_t(m_fftDiv4));
    resize_or_throw(m_outputDataMin, size_t(m_chunkCount) * size_t(m_fftDiv4));
    resize_or_throw(IScratchpad, PACKET_SAMPLES);
    resize_or_throw(QScratchpad, PACKET_SAMPLES);
    m_chunkStorePos = 0;

    m_procDataReady.reset(new semaphore[size_t(m_chunkCount)]);
    iState = make_stage();
    qState = make_stage();
    if (m_downsampleRatio == 256) {
        i2State = make_stage();
        q2State = make_stage();
        resize_or_throw(I2Scratchpad, PACKET_SAMPLES);
        resize_or_throw(Q2Scratchpad, PACKET_SAMPLES);
    }
    video_processor.reset(new VideoNarrow(settings, info));
    SetupDownsamplingLOs();

    m_engineRunning = true;
    try {
        m_IThread = std::thread(&NarrowSweep::ProcessI, this);
        m_QThread = std::thread(&NarrowSweep::ProcessQ, this);
        m_workerThread = std::thread(&NarrowSweep::ProcessThreadMT, this);
    } catch (...) {
        Stop();
        throw;
    }
}

NarrowSweep::~NarrowSweep() { Stop(); }

void NarrowSweep::Stop() {
    m_engineRunning = false;
    m_inputReady.notify();
    m_inputChunksReady = 0;
    m_iChunksReady = 0;
    m_qChunksReady = 0;
    m_iSweepStart.notify();
    m_qSweepStart.notify();
    m_iChannelReady.notify();
    m_qChannelReady.notify();
    for (int s = 0; s < m_chunkCount; ++s) m_procDataReady[s].notify();
    for (std::thread* t : {&m_IThread, &m_QThread, &m_workerThread})
        if (t->joinable()) t->join();
}

void NarrowSweep::SetupDownsamplingLOs() {
    for (int s = 0; s < m_chunkCount; ++s) {
        double w = 6.2831853071796 * m_sweep_info->narrow_center[s] / 80000.0;
        if (m_flipSpectrum) w = -w;
        for (int k = 0; k < LO_TABLE_LEN; ++k) {
            m_cosBuf[s][size_t(k)] = std::cos(k * w);
            m_sinBuf[s][size_t(k)] = std::sin(k * w);
        }
    }
}

int NarrowSweep::Store(const Block& block) {
    const Ipp16s* raw = block.samples;
    for (int p = 0; p < BLOCK_PACKETS; ++p) {
        ippsConvert_16s64f_Sfs(raw + size_t(p) * PACKET_SAMPLES,
                               m_inputData.data() + size_t(m_chunkStorePos) * PACKET_SAMPLES, PACKET_SAMPLES, 15);
        if (m_inputChunksReady.fetch_add(1) + 1 > RING_PACKETS) m_currentSweepStatus = qsUncalSweep;
        m_inputReady.notify();
        if (++m_chunkStorePos == RING_PACKETS) m_chunkStorePos = 0;
    }
    return block.index + BLOCK_PACKETS;
}

int NarrowSweep::ProcessThreadMT() {
    const int outUnits = m_settings->LogScale() ? QS_OUT_DBM : QS_OUT_MV;
    const int perSweep = m_ChunksToProc * m_chunkCount;
    Ipp64fc* record = reinterpret_cast<Ipp64fc*>(m_downsampledInput.data());
    const int perPacket = PACKET_SAMPLES / m_downsampleRatio;  // complex samples
    while (m_engineRunning) {
        int count = 0;
        while (count < perSweep) {
            if (!m_engineRunning) return 0;
            m_inputReady.wait();
            while (m_inputChunksReady.load() >= 1) {
                m_inputChunksReady.fetch_sub(1);
                const int i = m_iChunksReady.fetch_add(1) + 1;
                const int q = m_qChunksReady.fetch_add(1) + 1;
                if (i > RING_PACKETS || q > RING_PACKETS) m_currentSweepStatus = qsUncalSweep;
                m_iSweepStart.notify();
                m_qSweepStart.notify();
                if (!m_engineRunning) return 0;
                ++count;
            }
        }
        m_iChannelReady.wait();
        m_qChannelReady.wait();
        if (!m_engineRunning) return 0;
        m_lastSweepStatus = m_currentSweepStatus.exchange(qsNoError);

        const int units = m_settings->VideoUnits(), detector = m_settings->Detector();
        video_processor->Process(record + SETTLING_PACKETS * perPacket, m_outputDataMin.data(),
                                 m_outputDataMax.data(), units, detector, outUnits, false);
        m_procDataReady[0].notify();
        if (m_chunkCount >= 2) {
            video_processor->Process(record + (m_ChunksToProc + SETTLING_PACKETS) * perPacket,
                                     m_outputDataMin.data() + m_fftDiv4, m_outputDataMax.data() + m_fftDiv4,
                                     units, detector, outUnits, false);
            m_procDataReady[1].notify();
        }
    }
    return 0;
}

int NarrowSweep::ProcessI() {
    Channel ch{&m_iSweepStart, &m_iChunksReady, &m_iChannelReady, m_cosBuf, iState.get(), i2State.get(),
               IScratchpad.data(), I2Scratchpad.data(), 1};
    return RunChannel(ch);
}

int NarrowSweep::ProcessQ() {
    Channel ch{&m_qSweepStart, &m_qChunksReady, &m_qChannelReady, m_sinBuf, qState.get(), q2State.get(),
               QScratchpad.data(), Q2Scratchpad.data(), 0};
    return RunChannel(ch);
}

int NarrowSweep::RunChannel(Channel& ch) {
    // Ring slot, packets of this sweep, oscillator position and output
    // position; the oscillator's phase runs on through steps and sweeps.
    int b = 0, n = 0, p = 0, o = 0;
    const int perSweep = m_ChunksToProc * m_chunkCount;
    if (!m_engineRunning) return 0;
    for (;;) {
        ch.start->wait();
        while (ch.chunksReady->load() >= 1) {
            ch.chunksReady->fetch_sub(1);
            if (!m_engineRunning) return 0;
            const int t = n >= m_ChunksToProc ? 1 : 0;
            Downsample(ch, m_inputData.data() + size_t(b) * PACKET_SAMPLES, ch.osc[t].data() + p, o);
            p = p + PACKET_SAMPLES < LO_PERIOD ? p + PACKET_SAMPLES : p + PACKET_SAMPLES - LO_PERIOD;
            if (++b == RING_PACKETS) b = 0;
            if (++n == perSweep) {
                ch.done->notify();
                n = 0;
                o = 0;
            } else {
                o += PACKET_SAMPLES / m_downsampleRatio;
            }
        }
        if (!m_engineRunning) return 0;
    }
}

void NarrowSweep::Downsample(Channel& ch, double* pRaw, double* pOsc, int procIndex) {
    // Q is the real part of each complex sample, I the imaginary part.
    double* out = m_downsampledInput.data() + 2 * size_t(procIndex) + size_t(ch.part);
    ippsMul_64f(pRaw, pOsc, ch.scratch, PACKET_SAMPLES);
    ch.stage1->IIR_I(ch.scratch, PACKET_SAMPLES);
    const int first = PACKET_SAMPLES / kStageDecimation;  // 1168
    // Each stage keeps the last sample of every group of 16.
    if (m_downsampleRatio != 256) {
        for (int k = 0; k < first; ++k) out[2 * k] = ch.scratch[kStageDecimation * k + 15] * kGainOneStage;
        return;
    }
    for (int k = 0; k < first; ++k) ch.scratch2[k] = ch.scratch[kStageDecimation * k + 15];
    ch.stage2->IIR_I(ch.scratch2, first);
    for (int k = 0; k < first / kStageDecimation; ++k)
        out[2 * k] = ch.scratch2[kStageDecimation * k + 15] * kGainTwoStages;
}

void NarrowSweep::CorrectSteps(int steps, const VecDouble& corr) {
    for (int s = 0; s < steps; ++s) m_procDataReady[s].wait();
    const int n = steps * m_fftDiv4;
    if (m_settings->LogScale()) {
        ippsAdd_64f(corr.data(), m_outputDataMin.data(), m_outputDataMin.data(), n);
        ippsAdd_64f(corr.data(), m_outputDataMax.data(), m_outputDataMax.data(), n);
    } else {
        ippsMul_64f(corr.data(), m_outputDataMin.data(), m_outputDataMin.data(), n);
        ippsMul_64f(corr.data(), m_outputDataMax.data(), m_outputDataMax.data(), n);
    }
}

namespace {

void copy_out(const double* src, double* dst, int len) { ippsCopy_64f(src, dst, len); }
void copy_out(const double* src, float* dst, int len) { ippsConvert_64f32f(src, dst, len); }

}  // namespace

template <typename T>
qsStatus NarrowSweep::Deliver(T* min, T* max, const VecDouble& corr, bool reject) {
    CorrectSteps(reject ? 2 : 1, corr);
    const int d = m_sweep_info->firstPatchSkipCnt, len = m_sweep_info->traceLen;
    double* lo = m_outputDataMin.data();
    double* hi = m_outputDataMax.data();
    if (reject) {
        // Each point takes the smaller of the two looks, written in place
        // over the start of step 0 (reads stay ahead of writes).
        ippsMinEvery_64f(lo + d, lo + d + m_fftDiv4, lo, len);
        ippsMinEvery_64f(hi + d, hi + d + m_fftDiv4, hi, len);
    } else {
        lo += d;
        hi += d;
    }
    copy_out(lo, min, len);
    copy_out(hi, max, len);
    return m_lastSweepStatus;
}

qsStatus NarrowSweep::GetSweep(double* min, double* max, const VecDouble& corr) {
    return Deliver(min, max, corr, m_settings->ImageReject());
}
qsStatus NarrowSweep::GetSweep(float* min, float* max, const VecDouble& corr) {
    return Deliver(min, max, corr, m_settings->ImageReject());
}

}  // namespace qs
