#include "engines/engine_realtime_image.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "dsp/math_helpers.h"
#include "dsp/windows.h"
#include "ippi.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace qs {

namespace {

constexpr float kFloatMax = 3.4028234663852886e+38f;
constexpr float kTenOverLn10 = 4.342944622039795f;
constexpr float kMilliVoltScale = 223.60000610351562f;  // sqrt(50000): mV at 50 ohms
constexpr double kSampleRate = 80000000.0;
constexpr int kSchedPriority = 10;

// Elements of a buffer of count x each, or the allocation error when the
// product would not fit smart_ptr's int.
int checked_len(int64_t count, int64_t each) {
    const int64_t n = count * each;
    if (count < 1 || each < 1 || n > int64_t(INT32_MAX) / int64_t(sizeof(float)))
        throw qs_exception("Smart Pointer Malloc Error");
    return int(n);
}

// A level index 0..255 from a scaled value: nearest, ties to even (the
// default rounding mode); minus infinity and NaN fail "above 0" and give 0.
// Clamped before it is rounded, so adding and taking off 1.5 x 2^23 rounds
// exactly as nearbyint would; without a call the loops over whole images
// vectorise.
inline int to_level(float x) {
    constexpr float kRound = 12582912.0f;
    x = x > 0.0f ? x : 0.0f;
    x = x < 255.0f ? x : 255.0f;
    return int((x + kRound) - kRound);
}

// Real-time priority for a stage; without the privilege it runs as it is.
void raise_priority(std::thread& t) {
    sched_param param{};
    param.sched_priority = kSchedPriority;
    pthread_setschedparam(t.native_handle(), SCHED_FIFO, &param);
}

}  // namespace

RealTimeImageEngine::RealTimeImageEngine(const Settings* settings, const SweepInfo* sweepInfo,
                                         const std::vector<double>& cal_array) {
    const SweepInfo& info = *sweepInfo;
    traceLen = info.traceLen;
    fftSize = info.fftSize;
    if_offset = info.IFOffset;
    fftDiv2 = fftSize / 2;
    fftDiv4 = fftSize / 4;
    fftDiv8 = fftSize / 8;
    detector = settings->Detector();
    logScale = settings->LogScale();
    flip_spectrum = info.patchInfo.NumPatches() > 0 && info.patchInfo[0].flip_spectrum;
    if (traceLen < 1 || fftSize < 16 || traceLen > fftDiv2 || int(cal_array.size()) < fftDiv2)
        throw qs_exception("Real-time plan out of range");

    fftStepSize = int(fftSize * settings->RealTimeAdvanceRate());
    if (fftStepSize < 1) throw qs_exception("Real-time plan out of range");
    poi = (fftSize + fftStepSize) / 8e7;
    referenceLevel = float(settings->Ref());
    divisions = float(settings->RealTimeFrameScale());

    sweepStart = (fftDiv2 - traceLen) / 2 + if_offset;
    // A directly sampled band holds RF from 0 Hz up.
    if (info.patchInfo.NumPatches() > 0 && info.patchInfo[0].direct)
        sweepStart = std::max(0, int(info.actualStart / info.binSize));
    // Legal settings keep the trace inside the transform; a corrupt plan
    // must not make the transform thread read past its spectrum.
    sweepStart = std::min(std::max(sweepStart, 0), fftDiv2 - traceLen);

    correction_array.malloc(traceLen);
    for (int i = 0; i < traceLen; ++i) correction_array[i] = float(cal_array[size_t(sweepStart + i)]);
    if (flip_spectrum) {
        // Mirrored about the IF centre bin fftDiv4, point j of the reversed
        // trace is bin fftDiv2 - sweepStart - j: the window starts one bin
        // above the plain mirror image of [sweepStart, sweepStart + traceLen).
        sweepStart = fftDiv2 - (sweepStart + traceLen) + 1;
        ippsFlip_32f_I(correction_array, traceLen);
    }

    // The integer quotient first, then the frame period in double.
    fftsPerUpdate = int(int(kSampleRate / fftStepSize) * (1.0 / settings->RealTimeFrameRate()));
    if (fftsPerUpdate < 1) fftsPerUpdate = 1;
    fftsPerBatch = fftsPerUpdate / 8;
    if (fftsPerBatch <= 2) fftsPerBatch = 2;

    fftResultsSize = checked_len(int64_t(fftsPerBatch) * 16, traceLen);
    fftResults.malloc(fftResultsSize);
    const int cells = checked_len(traceLen, fftsPerUpdate);
    staggeredResults.malloc(cells);
    linToLogIndices.malloc(cells);

    binsPerCol = 1;
    imageWidth = traceLen;
    while (imageWidth > MAX_IMAGE_WIDTH) {
        imageWidth /= 2;
        binsPerCol *= 2;
    }
    imageSize = imageWidth * LEVELS;
    for (smart_ptr<int>& image : images) {
        image.malloc(imageSize);
        ippsZero_32s(image, imageSize);
    }
    finalImage.malloc(imageSize);
    alphaCopy.malloc(imageSize);

    window.malloc(fftSize);
    build_rt_window(window, fftSize, info.zeroPadAmount);
    // The transform's 1/N folded into the window: a power of two, so the
    // product is exact, and the transform skips its scaling pass.
    ippsMulC_32f(window, 1.0f / float(fftSize), window, fftSize);

    // The tail lets a transform that starts near the end read on without
    // wrapping. Above 74752 samples (the Maple's lowest RBWs give 131072)
    // the tail grows to a whole transform, so the zero-padded end of the
    // last transforms stays inside the buffer too.
    inTail = std::max(IN_TAIL, fftSize);
    inBuffer.malloc(IN_RING + inTail);

    outMaxBuf.malloc(checked_len(traceLen, RT_RESULTS));
    outMinBuf.malloc(checked_len(traceLen, RT_RESULTS));
    for (int i = 0; i < RT_RESULTS; ++i) {
        compositeImages[i].malloc(imageSize);
        ippsZero_32s(compositeImages[i], imageSize);
        alphaFrames[i].malloc(imageSize);
        ippsZero_32f(alphaFrames[i], imageSize);
    }

    fftSpec.reset(new fft_R_32f(mylog2(fftSize), IPP_FFT_NODIV_BY_ANY, ippAlgHintFast));
    windowed.malloc(fftSize);
    spectrum.malloc(fftSize + 2);  // the half spectrum, Nyquist bin included
    accumMin.malloc(traceLen);
    accumMax.malloc(traceLen);
    histograms.malloc(4 * LEVELS);

    inRead = inWrite = outRead = outWrite = 0;
    inMask = IN_RING;
    outMask = RT_RESULTS;
    data_available = 0;
    streaming = true;
    try {
        accum_thread = std::thread(&RealTimeImageEngine::AccumulateThread, this);
        raise_priority(accum_thread);
        accumStarted.wait();
        fft_thread = std::thread(&RealTimeImageEngine::FFTThread, this);
        raise_priority(fft_thread);
    } catch (...) {
        Stop();
        throw;
    }
}

RealTimeImageEngine::~RealTimeImageEngine() { Stop(); }

void RealTimeImageEngine::Stop() {
    streaming = false;
    data_available = 1048576;
    inputReady.notify();
    fftBatchReady.notify();
    if (fft_thread.joinable()) fft_thread.join();
    if (accum_thread.joinable()) accum_thread.join();
}

int RealTimeImageEngine::Store(const Block& block) {
    const short* raw = block.samples;
    // A transform thread a ring behind still reads what this block would
    // overwrite: the block is lost instead, and the samples being read stay
    // whole.
    if (data_available.load() > inMask - BLOCK_SAMPLES) {
        lostBlocks.fetch_add(1, std::memory_order_relaxed);
        return 0;
    }
    if (inWrite == 0) ippsConvert_16s32f_Sfs(raw, inBuffer + inMask, inTail, 15);
    ippsConvert_16s32f_Sfs(raw, inBuffer + inWrite, BLOCK_SAMPLES, 15);
    data_available += BLOCK_SAMPLES;
    inputReady.notify();
    inWrite += BLOCK_SAMPLES;
    if (inWrite >= inMask) inWrite = 0;
    return 0;
}

int RealTimeImageEngine::FFTThread() {
    while (streaming) {
        inputReady.wait();
        while (data_available > fftSize && streaming) {
            // The result ring is full while the accumulation thread is a
            // ring behind: this transform is lost rather than written over
            // a trace still being read.
            if ((fftsReady.load() + 1) * int64_t(traceLen) > fftResultsSize) {
                lostTransforms.fetch_add(1, std::memory_order_relaxed);
            } else {
                ippsMul_32f(inBuffer + inRead, window, windowed, fftSize);
                // Straight into the spectrum as FFTW lays it out: no
                // repacking pass over the whole transform.
                ippsFFTFwd_RToCCS_32f(windowed, spectrum, fftSpec->fftSpec, fftSpec->work.ptr);
                ippsPowerSpectr_32fc(reinterpret_cast<const Ipp32fc*>(spectrum.ptr) + sweepStart,
                                     fftResults + fftResultsWriteIndex, traceLen);
                fftResultsWriteIndex += traceLen;
                if (fftResultsWriteIndex >= fftResultsSize) fftResultsWriteIndex = 0;
                if (++fftsReady >= fftsPerBatch) fftBatchReady.notify();
            }
            inRead += fftStepSize;
            // At exactly inMask the transform reads the tail.
            if (inRead > inMask) inRead -= inMask;
            data_available -= fftStepSize;
        }
    }
    return 0;
}

void RealTimeImageEngine::ToDisplayUnits(const float* power, float* out) const {
    if (logScale) {
        ippsLn_32f_A11(power, out, traceLen);
        ippsMulC_32f(out, kTenOverLn10, out, traceLen);
        ippsAdd_32f(correction_array, out, out, traceLen);
    } else {
        ippsSqrt_32f_A11(power, out, traceLen);
        ippsMulC_32f(out, kMilliVoltScale, out, traceLen);
        ippsMul_32f(correction_array, out, out, traceLen);
    }
}

int RealTimeImageEngine::AccumulateThread() {
    sweep_locks[outWrite].lock();
    accumStarted.notify();
    float* min = accumMin;
    float* max = accumMax;
    ippsSet_32f(kFloatMax, min, traceLen);
    ippsZero_32f(max, traceLen);
    int c = 0;
    while (streaming) {
        fftBatchReady.wait();
        while (fftsReady > 0 && streaming) {
            float* t = fftResults + fftResultsReadIndex;
            if (detector == QS_DETECTOR_AVERAGE) {
                ippsAdd_32f(t, max, max, traceLen);
            } else {
                ippsMinEvery_32f(t, min, min, traceLen);
                ippsMaxEvery_32f(t, max, max, traceLen);
            }
            ToDisplayUnits(t, t);
            float* column = staggeredResults + c;
            for (int i = 0; i < traceLen; ++i) column[size_t(i) * size_t(fftsPerUpdate)] = t[i];
            if (++c == fftsPerUpdate) {
                const int o = outWrite * traceLen;
                if (detector == QS_DETECTOR_AVERAGE) {
                    ippsMulC_32f(max, float(1.0 / fftsPerUpdate), outMinBuf + o, traceLen);
                    ippsCopy_32f(outMinBuf + o, outMaxBuf + o, traceLen);
                } else {
                    ippsCopy_32f(min, outMinBuf + o, traceLen);
                    ippsCopy_32f(max, outMaxBuf + o, traceLen);
                }
                ImageGen();
                // The next slot is taken before this one is given up, so a
                // fetcher never finds both free.
                const int done = outWrite;
                const int next = (outWrite + 1) % outMask;
                sweep_locks[next].lock();
                outWrite = next;
                sweep_locks[done].unlock();
                ippsSet_32f(kFloatMax, min, traceLen);
                ippsZero_32f(max, traceLen);
                c = 0;
            }
            fftResultsReadIndex += traceLen;
            if (fftResultsReadIndex >= fftResultsSize) fftResultsReadIndex = 0;
            --fftsReady;
        }
    }
    sweep_locks[outWrite].unlock();
    return 0;
}

void RealTimeImageEngine::ImageGen() {
    const int n = fftsPerUpdate * traceLen;
    const float* v = staggeredResults;
    int* level = linToLogIndices;
    if (logScale) {
        // reference - divisions is level 0, reference level 256.
        const float offset = divisions - referenceLevel;
        const float scale = float(100.0 / divisions * 2.56);
        for (int k = 0; k < n; ++k) level[k] = to_level((v[k] + offset) * scale);
    } else {
        // The reference in mV at 50 ohms is level 255.
        const double r = std::pow(10.0, (referenceLevel + 46.9897) / 20.0);
        const float scale = float(255.0 / r);
        for (int k = 0; k < n; ++k) level[k] = to_level(v[k] * scale);
    }

    // Four partial histograms a column: runs of one level (noise sits on
    // a few) then increment four counters in turn instead of waiting on
    // the one just stored.
    int* image = images[imageIndex];
    int* h = histograms;
    const int perCol = binsPerCol * fftsPerUpdate;
    for (int x = 0; x < imageWidth; ++x) {
        const int* cellsOfCol = level + size_t(x) * size_t(perCol);
        std::fill(h, h + 4 * LEVELS, 0);
        int j = 0;
        for (; j + 4 <= perCol; j += 4) {
            h[cellsOfCol[j]] += 1;
            h[LEVELS + cellsOfCol[j + 1]] += 1;
            h[2 * LEVELS + cellsOfCol[j + 2]] += 1;
            h[3 * LEVELS + cellsOfCol[j + 3]] += 1;
        }
        for (; j < perCol; ++j) h[cellsOfCol[j]] += 1;
        int* counters = image + x * LEVELS;
        for (int l = 0; l < LEVELS; ++l) counters[l] = h[l] + h[LEVELS + l] + h[2 * LEVELS + l] + h[3 * LEVELS + l];
    }

    // The composite is the sum of the newest 39 images: the one taken off
    // is the one the next update overwrites. A cell counts at most 40 full
    // columns, far inside an int. A cell hit now is opaque and fades by
    // 0.92 an update until the sliding sum has forgotten it. One pass.
    const int prev = (outWrite + outMask - 1) % outMask;
    const int* before = compositeImages[prev];
    const int* oldest = images[(imageIndex + 1) % IMAGE_RING];
    int* composite = compositeImages[outWrite];
    float* alpha = alphaFrames[outWrite];
    const float* alphaBefore = alphaFrames[prev];
    const int size = imageSize;  // a local: the stores can't alias it
    for (int k = 0; k < size; ++k) {
        const int c = before[k] + image[k] - oldest[k];
        composite[k] = c;
        const float faded = float(alphaBefore[k] * 0.92);
        alpha[k] = image[k] >= 1 ? 1.0f : c != 0 ? faded : 0.0f;
    }
    imageIndex = (imageIndex + 1) % IMAGE_RING;
}

void RealTimeImageEngine::ToFrame(const float* image, float* frame) const {
    ippiTranspose_32f_C1R(image, LEVELS * int(sizeof(float)), frame, imageWidth * int(sizeof(float)),
                          IppiSize{LEVELS, imageWidth});
    if (flip_spectrum)
        for (int row = 0; row < LEVELS; ++row) ippsFlip_32f_I(frame + size_t(row) * size_t(imageWidth), imageWidth);
}

qsStatus RealTimeImageEngine::GetFrame(float* minSweep, float* maxSweep, float* colorFrame, float* alphaFrame) {
    const int o = outRead * traceLen;
    {
        std::lock_guard<std::mutex> lock(sweep_locks[outRead]);
        if (minSweep) ippsCopy_32f(outMinBuf + o, minSweep, traceLen);
        if (maxSweep) ippsCopy_32f(outMaxBuf + o, maxSweep, traceLen);
        ippsConvert_32s32f(compositeImages[outRead], finalImage, imageSize);
        // Copied under the lock too: a fetcher a ring behind would otherwise
        // read the slot's alpha while it is being refilled.
        if (alphaFrame) ippsCopy_32f(alphaFrames[outRead], alphaCopy, imageSize);
    }
    for (float* sweep : {minSweep, maxSweep}) {
        if (!sweep) continue;
        ToDisplayUnits(sweep, sweep);
        if (flip_spectrum) ippsFlip_32f_I(sweep, traceLen);
    }
    if (colorFrame) {
        ippsMulC_32f(finalImage, float(1.0 / (40 * fftsPerUpdate * binsPerCol)), finalImage, imageSize);
        ToFrame(finalImage, colorFrame);
    }
    if (alphaFrame) ToFrame(alphaCopy, alphaFrame);
    outRead = (outRead + 1) % outMask;
    return qsNoError;
}

}  // namespace qs
