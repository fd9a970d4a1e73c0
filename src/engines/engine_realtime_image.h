// The real-time image engine: gapless samples at 80 MHz, transformed with
// overlapping windowed FFTs, every transform accumulated into a min/max (or
// average) sweep and a persistence image, one of each per frame period.
//
// Four parties share one engine:
//  - the interface thread, through Device::StoreData -> Store: converts a
//    block into the input ring, counts it in data_available and wakes
//    FFTThread. No lock (the semaphore's notify aside), no allocation.
//  - fft_thread (FFTThread): window, real transform, power of the trace's
//    bins into the transform-result ring; counts fftsReady and wakes
//    AccumulateThread every fftsPerBatch transforms.
//  - accum_thread (AccumulateThread, ImageGen): detection and the images.
//    It holds sweep_locks[outWrite] for the whole time it fills that slot
//    and locks the next slot before releasing it.
//  - the application's thread, in GetFrame: locks the slot outRead
//    only for its copies, so fetches are paced by the frame rate. One
//    fetcher at a time.
//
// Overruns lose data but never let two threads touch one buffer: a block
// that would overwrite samples FFTThread has not passed is dropped by
// Store, a transform with no room in the result ring is skipped by
// FFTThread (both counted), and a fetcher 32 frames behind reads the
// refilled slots, under their locks.
//
// The plan and the settings are read only in the constructor. Construction
// allocates every buffer, the threads' scratch included (qs_exception on
// failure, before any thread starts), then starts the threads. The
// destructor stops and joins them; Store must no longer be called by then.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "dsp/dsp_vector.h"
#include "dsp/ipps_states.h"
#include "dsp/semaphore.h"
#include "engines/engine.h"
#include "qs_api.h"

namespace qs {

class Settings;
struct SweepInfo;

class RealTimeImageEngine : public Engine {
public:
    static constexpr int RT_RESULTS = 32;       // output slots
    static constexpr int IMAGE_RING = 40;       // histograms kept
    static constexpr int LEVELS = 256;          // rows of an image
    static constexpr int MAX_IMAGE_WIDTH = 1023;
    static constexpr int BLOCK_SAMPLES = 299008;
    static constexpr int IN_RING = 4784128;     // 16 blocks
    static constexpr int IN_TAIL = 74752;       // head repeated past the end

    // Caller's thread, inside the real-time set-up. cal_array holds one
    // correction per transform bin (fftSize / 2): dB with log scale, a
    // factor otherwise. A directly sampled first patch starts the trace at
    // the plan's actual start.
    // Throws qs_exception (or the transform's std::exception) with nothing
    // left running.
    RealTimeImageEngine(const Settings* settings, const SweepInfo* sweepInfo, const std::vector<double>& cal_array);
    // Caller's thread, after the stream stopped: ends and joins the threads.
    ~RealTimeImageEngine() override;
    RealTimeImageEngine(const RealTimeImageEngine&) = delete;
    RealTimeImageEngine& operator=(const RealTimeImageEngine&) = delete;

    // Interface thread: one block of 299008 samples. Never waits, never
    // allocates. Returns 0.
    int Store(const Block& block) override;

    // Application's thread: the next frame in slot order; blocks while
    // AccumulateThread fills that slot. Any pointer may be null; sweeps have
    // TraceLen() floats, frames 256 rows of ImageWidth() floats, row 0 the
    // lowest level. Always qsNoError.
    qsStatus GetFrame(float* minSweep, float* maxSweep, float* colorFrame, float* alphaFrame) override;

    // Seconds of signal a transform and its step take: the shortest event
    // that is always caught in full. qsNoError.
    qsStatus GetPoi(double& seconds) const override {
        seconds = poi;
        return qsNoError;
    }

    int TraceLen() const { return traceLen; }
    int ImageWidth() const { return imageWidth; }
    int BinsPerCol() const { return binsPerCol; }
    int FFTsPerUpdate() const { return fftsPerUpdate; }
    int FFTsPerBatch() const { return fftsPerBatch; }
    int FFTStepSize() const { return fftStepSize; }
    int SweepStart() const { return sweepStart; }
    // Data lost to overruns since construction; any thread.
    int64_t LostBlocks() const { return lostBlocks.load(std::memory_order_relaxed); }
    int64_t LostTransforms() const { return lostTransforms.load(std::memory_order_relaxed); }
    int64_t Lost() const override { return LostBlocks() + LostTransforms(); }

    int FFTThread();
    int AccumulateThread();

private:
    void ImageGen();
    // Linear power to display units: ln x 10/ln 10 + correction, or
    // sqrt x 223.6 x correction. power and out may be one array.
    void ToDisplayUnits(const float* power, float* out) const;
    // Transposes one slot's column-major image into a frame of 256 rows.
    void ToFrame(const float* image, float* frame) const;
    void Stop();

    int traceLen;
    int detector;
    bool logScale;
    int if_offset;
    float divisions;
    float referenceLevel;
    int fftStepSize;
    double poi;
    smart_ptr<float> inBuffer;
    int inRead = 0;   // fft_thread
    int inWrite = 0;  // interface thread
    int inMask = IN_RING;
    semaphore inputReady;
    std::atomic<int> data_available{0};
    int fftSize;
    int fftDiv2, fftDiv4, fftDiv8;
    int sweepStart;
    int fftsPerBatch;
    int fftsPerUpdate;
    std::atomic<int> fftsReady{0};
    semaphore fftBatchReady;
    int fftResultsSize;
    int fftResultsWriteIndex = 0;  // fft_thread
    int fftResultsReadIndex = 0;   // accum_thread
    smart_ptr<float> fftResults;
    smart_ptr<float> staggeredResults;
    smart_ptr<int> linToLogIndices;
    smart_ptr<int> images[IMAGE_RING];
    smart_ptr<int> compositeImages[RT_RESULTS];
    smart_ptr<float> alphaFrames[RT_RESULTS];
    smart_ptr<float> finalImage;
    int imageIndex = 0;
    int binsPerCol;
    int imageWidth;
    int imageSize;
    bool flip_spectrum;
    smart_ptr<float> outMinBuf;
    smart_ptr<float> outMaxBuf;
    int outRead = 0;   // application's thread
    int outWrite = 0;  // accum_thread
    int outMask = RT_RESULTS;
    smart_ptr<float> window;
    std::atomic<bool> streaming{false};
    std::mutex sweep_locks[RT_RESULTS];
    std::thread fft_thread;
    std::thread accum_thread;
    smart_ptr<float> correction_array;

    // The threads' scratch, made here so that a failure reaches the set-up.
    std::unique_ptr<fft_R_32f> fftSpec;
    smart_ptr<float> windowed;        // fft_thread
    smart_ptr<float> spectrum;        // fft_thread
    smart_ptr<float> accumMin;        // accum_thread
    smart_ptr<float> accumMax;        // accum_thread
    smart_ptr<int> histograms;        // accum_thread: four of LEVELS
    smart_ptr<float> alphaCopy;       // application's thread
    int inTail = IN_TAIL;
    std::atomic<int64_t> lostBlocks{0};
    std::atomic<int64_t> lostTransforms{0};
    // AccumulateThread has locked slot 0: a fetch before then would find
    // the slot free and read an empty frame.
    semaphore accumStarted;
};

}  // namespace qs
