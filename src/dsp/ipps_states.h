// Filter and transform objects: small owners of the stateful primitives of
// the vector layer, with one life each: build, (reset,) process.
//
// None of them lock or start threads, but for FastFIR_32f with its two
// workers; each belongs to one thread at a time while in use. Building
// allocates (smart_ptr members throw qs_exception, DSP::SimpleVector members
// std::bad_alloc) and a constructor that throws leaves nothing behind.
// Processing allocates nothing.
#pragma once

#include <atomic>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

#include "dsp/dsp_vector.h"
#include "dsp/semaphore.h"
#include "ipps.h"

enum filterPassType { lowPassFilter = 0, highPassFilter = 1 };

// ---- transforms -----------------------------------------------------------------
// Built from (order, flag, hint) of the layer's transform primitives. An
// order the layer refuses throws std::invalid_argument. FwdFFT and InvFFT
// use the object's own work buffer: one thread at a time per object.

// One transform of the layer, by its sample type and primitives: the spec,
// the spec's memory and its own work buffer. Real transforms give and take
// Perm-packed spectra; src and dst may be one array.
template <typename T, typename Spec, auto GetSize, auto Init, auto Free, auto Forward, auto Inverse>
class FFT {
public:
    // The three sizes, the memory and the Init. A refused order or flag is
    // a caller's mistake: it throws before anything is allocated.
    FFT(int order, int flag, IppHintAlgorithm hint) {
        int specSize = 0, initSize = 0, workSize = 0;
        if (GetSize(order, flag, hint, &specSize, &initSize, &workSize) != ippStsNoErr)
            throw std::invalid_argument("transform order or flag refused");
        if (specSize != 0) specMem.malloc(specSize);
        if (initSize > 0) memInit.malloc(initSize);
        if (workSize != 0) work.malloc(workSize);
        const IppStatus st = Init(&fftSpec, order, flag, hint, specMem.ptr, memInit.ptr);
        if (st == ippStsMemAllocErr) throw std::bad_alloc();
        if (st != ippStsNoErr) throw std::invalid_argument("transform set-up refused");
    }
    ~FFT() {
        if (fftSpec) Free(fftSpec);
    }
    FFT(const FFT&) = delete;
    FFT& operator=(const FFT&) = delete;

    void FwdFFT(T* src, T* dst) { Forward(src, dst, fftSpec, work.ptr); }
    void InvFFT(T* src, T* dst) { Inverse(src, dst, fftSpec, work.ptr); }

    Spec* fftSpec = nullptr;
    smart_ptr<unsigned char> specMem;
    smart_ptr<unsigned char> memInit;
    smart_ptr<unsigned char> work;
};

using fft_R_32f = FFT<Ipp32f, IppsFFTSpec_R_32f, ippsFFTGetSize_R_32f, ippsFFTInit_R_32f, ippsFFTFree_R_32f,
                      ippsFFTFwd_RToPerm_32f, ippsFFTInv_PermToR_32f>;
using fft_C_32fc = FFT<Ipp32fc, IppsFFTSpec_C_32fc, ippsFFTGetSize_C_32fc, ippsFFTInit_C_32fc,
                       ippsFFTFree_C_32fc, ippsFFTFwd_CToC_32fc, ippsFFTInv_CToC_32fc>;
using fft_C_64fc = FFT<Ipp64fc, IppsFFTSpec_C_64fc, ippsFFTGetSize_C_64fc, ippsFFTInit_C_64fc,
                       ippsFFTFree_C_64fc, ippsFFTFwd_CToC_64fc, ippsFFTInv_CToC_64fc>;
using fft_R_64f_base = FFT<Ipp64f, IppsFFTSpec_R_64f, ippsFFTGetSize_R_64f, ippsFFTInit_R_64f,
                           ippsFFTFree_R_64f, ippsFFTFwd_RToPerm_64f, ippsFFTInv_PermToR_64f>;

class fft_R_64f : public fft_R_64f_base {
public:
    using fft_R_64f_base::fft_R_64f_base;
    using fft_R_64f_base::FwdFFT;
    // The same transform, the Perm result read as complex pairs: entry 0
    // holds bin 0 in re and bin N/2 in im, entry k bin k.
    void FwdFFT(Ipp64f* src, Ipp64fc* dst) { FwdFFT(src, reinterpret_cast<Ipp64f*>(dst)); }
    // Bins 0 to N/2 as N/2 + 1 complex pairs, as the transform makes them:
    // no repacking pass.
    void FwdCCS(const Ipp64f* src, Ipp64fc* dst) {
        ippsFFTFwd_RToCCS_64f(src, reinterpret_cast<Ipp64f*>(dst), fftSpec, work.ptr);
    }
};

// One transform through a temporary object: set-up code only, never the
// sample path. src and dst may be one array.
void fft_R_32f_fwd_direct(Ipp32f* src, Ipp32f* dst, int order, int flag, IppHintAlgorithm hint);
void fft_R_32f_inv_direct(Ipp32f* src, Ipp32f* dst, int order, int flag, IppHintAlgorithm hint);

// ---- tap design --------------------------------------------------------------------
// Designed in double, handed back in the filter's precision. Frequencies
// are fractions of the filter's sampling rate. Settings that the design
// primitive refuses give all-zero taps.
void IIRGenTaps_32f(Ipp64f freq, Ipp64f ripple, int order, Ipp32f* taps, IppsIIRFilterType ft, filterPassType pass);
void IIRGenTaps_64f(Ipp64f freq, Ipp64f ripple, int order, Ipp64f* taps, IppsIIRFilterType filterType,
                    filterPassType pass);
void FIRGenTaps_32f(Ipp64f freq, Ipp32f* taps, int len, IppWinType wt, IppBool normalize, filterPassType pass_type);
void FIRGenBandpass_32f(Ipp64f f1, Ipp64f f2, Ipp32f* taps, int len, IppWinType window, IppBool normalize);
// Low-pass taps as complex values with imaginary part 0.
void FIRGenLowpass_32fc(Ipp64f freq, Ipp32fc* taps, int len, IppWinType window, IppBool normalize);

// ---- recursive filters ------------------------------------------------------------------
// 2 * (order + 1) taps B(0..N), A(0..N), from a zero history. Taps the state
// primitive refuses (A(0) = 0, as from a refused design) leave a filter
// that passes the signal through unchanged.

class iir_32f {
public:
    iir_32f(Ipp64f freq, Ipp64f ripple, int order, IppsIIRFilterType type, filterPassType pass);
    iir_32f(int order, const Ipp32f* taps);
    // Designs again at the same order; the history restarts from zero.
    void SetTaps(Ipp64f freq, Ipp64f ripple, IppsIIRFilterType type, filterPassType pass);
    void IIR(Ipp32f* src, Ipp32f* dst, int len);
    void IIR_I(Ipp32f* srcDst, int len);

    IppsIIRState_32f* iirState = nullptr;
    smart_ptr<unsigned char> buf;
    smart_ptr<float> taps;
    int f_order = 0;

private:
    void BuildState();
    iir_32f(const iir_32f&);
    iir_32f& operator=(const iir_32f&);
};

class iir_64f {
public:
    iir_64f(Ipp64f freq, Ipp64f ripple, int order, IppsIIRFilterType type, filterPassType pass);
    iir_64f(int order, Ipp64f* taps);
    void IIR(Ipp64f* src, Ipp64f* dst, int len);
    void IIR_I(Ipp64f* srcDst, int len);

    IppsIIRState_64f* iirState = nullptr;
    smart_ptr<unsigned char> buf;
    smart_ptr<double> taps;
    int f_order = 0;

private:
    void BuildState();
    iir_64f(const iir_64f&);
    iir_64f& operator=(const iir_64f&);
};

// ---- single-rate FIR filters ---------------------------------------------------------------
// Empty until the first SetTaps; Filter on an empty filter returns
// ippStsNullPtrErr and writes nothing. SetTaps clears the delay line, and
// consecutive Filter calls run as over one long signal. src and dst may be
// one array.

template <typename T, typename Spec>
class FIRFilter {
public:
    void SetTaps(const T* taps, int tapsLen);
    IppStatus Filter(const T* src, T* dst, int len);
    IppStatus Filter_I(T* srcDst, int len) { return Filter(srcDst, srcDst, len); }
    const typename DSP::Vector<T>::Type& GetTaps() const { return filterTaps; }

    Spec* spec = nullptr;
    DSP::Vector<unsigned char>::Type specMem;
    DSP::Vector<unsigned char>::Type workBuf;
    typename DSP::Vector<T>::Type filterTaps;
    typename DSP::Vector<T>::Type dly;
};

class FIR_32f : public FIRFilter<Ipp32f, IppsFIRSpec_32f> {
public:
    FIR_32f() = default;
};

class FIR_64f : public FIRFilter<Ipp64f, IppsFIRSpec_64f> {
public:
    FIR_64f() = default;
};

class FIR_32fc : public FIRFilter<Ipp32fc, IppsFIRSpec_32fc> {
public:
    FIR_32fc() = default;
    FIR_32fc(const Ipp32fc* taps, int len) { SetTaps(taps, len); }
    // Group delay of the symmetric taps, in samples: tap count / 2.
    int FilterDelay() const { return int(filterTaps.size() / 2); }
};

// ---- tone mixer -------------------------------------------------------------------------
// Multiplies blocks of `length` samples by one continuous complex tone of
// `frequency` cycles per sample. GenTone may run ahead of Tune (on a thread
// that would otherwise wait); Tune then finds the block made.

class Tuner_32fc {
public:
    // frequency below 0 gets 1 added and then clamps at 0; above 1 clamps
    // to 1, which is no rotation at all.
    Tuner_32fc(double frequency, int length);

    int Length() const { return length; }
    double Frequency() const { return frequency; }
    double Phase() const { return phase; }

    void GenTone();
    void Tune(Ipp32fc* src, Ipp32fc* dst);

    int length = 0;
    double frequency = 0.0;
    float phase = 0.0f;
    smart_ptr<Ipp32fc> tone;
    bool tone_ready = false;

private:
    Tuner_32fc();
    Tuner_32fc(const Tuner_32fc&);
    Tuner_32fc& operator=(const Tuner_32fc&);
};

// ---- fast FIR filters ---------------------------------------------------------------------
// Overlap-save block convolution with the decimation folded into the
// spectrum before the inverse transform. Both are non-copyable; one thread at
// a time calls Filter, and consecutive calls are consecutive pieces of one
// signal (the first call takes the signal as silent before its first sample).
// Constructors refuse settings the block geometry can't serve with
// std::invalid_argument before anything is built; allocation failures throw
// qs_exception("Smart Pointer Malloc Error"). Filter allocates nothing.

// Complex low-pass of 1025 taps with decimation, on 2048-point blocks of
// 1024 new samples each.
class FastFIR_32fc {
public:
    // input_len: a positive multiple of 1024. decimate_factor: a power of two
    // from 1 to 1024 (so that every block yields at least one sample).
    // bw_ratio: pass band width as a fraction of the input rate, 0 < bw_ratio < 1.
    FastFIR_32fc(int decimate_factor, double bw_ratio, int input_len);

    int InputLength() const { return filter_len; }
    int OutputLength() const { return filter_len / decimation; }
    int DownsamplingFactor() const { return decimation; }
    // InputLength() samples from src, OutputLength() samples to dst; src is
    // not changed, and src and dst must not overlap.
    void Filter(Ipp32fc* src, Ipp32fc* dst);

    int filter_len = 0;
    int step_count = 0;
    int decimation = 1;
    smart_ptr<Ipp32fc> kernel;
    smart_ptr<Ipp32fc> overlap_buf;
    std::unique_ptr<fft_C_32fc> fwd_fft;
    std::unique_ptr<fft_C_32fc> inv_fft;
    smart_ptr<Ipp32fc> work_buf;

private:
    FastFIR_32fc(const FastFIR_32fc&);
    FastFIR_32fc& operator=(const FastFIR_32fc&);
};

// Real 80 MS/s samples to complex baseband around `center`, decimated by
// 2^(s + 1) (s = downsampleScale): a 1025-tap band-pass on 4096-point real
// blocks of 3072 new samples, the positive half of the spectrum folded down
// to complex baseband, then a tone mixer, and for s > 3 a FastFIR_32fc.
// Frequencies are fractions of the input rate. Each block of 393216 samples
// is split between two worker threads of the filter's own; Filter hands the
// block over, makes the next mixer tone meanwhile, and returns when both
// halves are done. A real tone of amplitude A in the pass band comes out as
// a complex tone of amplitude A / 2 (before AddCorrections).
class FastFIR_32f {
public:
    static constexpr int kInputLen = 393216;

    // downsampleScale 0 to 13; the band f1 = center - width / 2 to f2 =
    // center + width / 2 (for s > 3 center -/+ 0.0234375, and 16 * width
    // is the second stage's band) must lie within 0 < f1 < f2 < 0.5, after
    // the band-zero shift of the centre. Starts the two workers.
    FastFIR_32f(int downsampleScale, double center, double width, bool usingBandZero);
    // Stops and joins the workers. Never while Filter runs.
    ~FastFIR_32f();

    int InputLength() const { return kInputLen; }
    int OutputLength() const { return output_len; }
    int DownsamplingFactor() const;
    int FilterDelay() const { return filter_delay; }
    // Multiplies bin i of the band filter by adjustments[i], i = 0 .. 2047.
    // Fewer than 2048 entries: no correction. Call before the first Filter.
    void AddCorrections(const std::vector<double>& adjustments);
    // 393216 real samples from src to OutputLength() complex samples at dst;
    // blocks until both workers are done. src is not changed; src and dst
    // must not overlap. Takes no lock but the hand-over semaphores.
    void Filter(Ipp32f* src, Ipp32fc* dst);

    std::atomic<bool> filtering{false};
    int output_len = 0;
    int downsample_scale = 0;
    int filter_delay = 0;
    std::thread thread_handle[2];
    qs::semaphore input_ready[2];
    qs::semaphore output_ready[2];
    smart_ptr<float> kernel;
    smart_ptr<float> overlap_buf;
    smart_ptr<Ipp32fc> intermediate;
    std::unique_ptr<Tuner_32fc> tuner;
    std::unique_ptr<FastFIR_32fc> post_filter;
    Ipp32f* input_ptr = nullptr;
    Ipp32fc* output_ptr = nullptr;
    bool usingBandZero = false;
    int fftShiftAmount = 0;

private:
    // A worker's buffers and transforms. Made in the constructor rather than
    // on the worker's own thread, so that a failed allocation reaches the
    // caller as an exception instead of killing a thread nobody watches.
    struct WorkerBuffers {
        smart_ptr<float> spectrum;      // 4098 floats: bins 0..2048, Nyquist also in pair 0
        smart_ptr<Ipp32fc> rotation;    // 2048 complex
        smart_ptr<Ipp32fc> product;     // 3072 complex
        std::unique_ptr<fft_R_32f> fwd;
        std::unique_ptr<fft_C_32fc> inv;
    };

    void FilterThread(int thread_num);
    void StopWorkers();

    WorkerBuffers worker[2];

    FastFIR_32f(const FastFIR_32f&);
    FastFIR_32f& operator=(const FastFIR_32f&);
};

// Folds the 2048 products of positive-frequency bins around bin 1024 (a
// quarter of the input rate) into a complex baseband spectrum of
// M = 2048 / 2^scale entries: F[p] = sum over j of
// cplx[(1024 + p + j * M) mod 2048], the imaginary part of F[M / 2] cleared.
// cplx holds 3072 entries, the top 1024 used as scratch. scale 0 to 3;
// other values do nothing.
void FrequencySumToComplex(Ipp32fc* cplx, int scale);
