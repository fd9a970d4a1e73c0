#include "dsp/ipps_states.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "dsp/math_helpers.h"

// ---- transforms ---------------------------------------------------------------------

void fft_R_32f_fwd_direct(Ipp32f* src, Ipp32f* dst, int order, int flag, IppHintAlgorithm hint) {
    fft_R_32f f(order, flag, hint);
    f.FwdFFT(src, dst);
}

void fft_R_32f_inv_direct(Ipp32f* src, Ipp32f* dst, int order, int flag, IppHintAlgorithm hint) {
    fft_R_32f f(order, flag, hint);
    f.InvFFT(src, dst);
}

// ---- tap design ---------------------------------------------------------------------------

void IIRGenTaps_64f(Ipp64f freq, Ipp64f ripple, int order, Ipp64f* taps, IppsIIRFilterType filterType,
                    filterPassType pass) {
    int bufSize = 0;
    ippsIIRGenGetBufferSize(order, &bufSize);
    std::vector<Ipp8u> scratch(size_t(bufSize > 0 ? bufSize : 0), 0);
    const IppStatus st = pass == highPassFilter
                             ? ippsIIRGenHighpass_64f(freq, ripple, order, taps, filterType, scratch.data())
                             : ippsIIRGenLowpass_64f(freq, ripple, order, taps, filterType, scratch.data());
    if (st != ippStsNoErr && taps && order >= 0) {
        for (int i = 0; i < 2 * order + 2; ++i) taps[i] = 0.0;
    }
}

void IIRGenTaps_32f(Ipp64f freq, Ipp64f ripple, int order, Ipp32f* taps, IppsIIRFilterType ft, filterPassType pass) {
    if (order < 0) return;
    std::vector<Ipp64f> tmp(size_t(2 * order + 2), 0.0);
    int bufSize = 0;
    ippsIIRGenGetBufferSize(order, &bufSize);
    std::vector<Ipp8u> scratch(size_t(bufSize > 0 ? bufSize : 0), 0);
    if (pass == highPassFilter) {
        ippsIIRGenHighpass_64f(freq, ripple, order, tmp.data(), ft, scratch.data());
    } else {
        ippsIIRGenLowpass_64f(freq, ripple, order, tmp.data(), ft, scratch.data());
    }
    ippsConvert_64f32f(tmp.data(), taps, 2 * order + 2);
}

void FIRGenTaps_32f(Ipp64f freq, Ipp32f* taps, int len, IppWinType wt, IppBool normalize, filterPassType pass_type) {
    if (len < 1) return;
    std::vector<Ipp64f> tmp(size_t(len), 0.0);
    int bufSize = 0;
    ippsFIRGenGetBufferSize(len, &bufSize);
    std::vector<Ipp8u> scratch(size_t(bufSize > 0 ? bufSize : 0), 0);
    if (pass_type == highPassFilter) {
        ippsFIRGenHighpass_64f(freq, tmp.data(), len, wt, normalize, scratch.data());
    } else {
        ippsFIRGenLowpass_64f(freq, tmp.data(), len, wt, normalize, scratch.data());
    }
    ippsConvert_64f32f(tmp.data(), taps, len);
}

void FIRGenBandpass_32f(Ipp64f f1, Ipp64f f2, Ipp32f* taps, int len, IppWinType window, IppBool normalize) {
    if (len < 1) return;
    std::vector<Ipp64f> tmp(size_t(len), 0.0);
    int bufSize = 0;
    ippsFIRGenGetBufferSize(len, &bufSize);
    std::vector<Ipp8u> scratch(size_t(bufSize > 0 ? bufSize : 0), 0);
    ippsFIRGenBandpass_64f(f1, f2, tmp.data(), len, window, normalize, scratch.data());
    ippsConvert_64f32f(tmp.data(), taps, len);
}

void FIRGenLowpass_32fc(Ipp64f freq, Ipp32fc* taps, int len, IppWinType window, IppBool normalize) {
    if (len < 1) return;
    std::vector<Ipp64f> tmp(size_t(len), 0.0);
    int bufSize = 0;
    ippsFIRGenGetBufferSize(len, &bufSize);
    std::vector<Ipp8u> scratch(size_t(bufSize > 0 ? bufSize : 0), 0);
    ippsFIRGenLowpass_64f(freq, tmp.data(), len, window, normalize, scratch.data());
    for (int i = 0; i < len; ++i) taps[i] = {float(tmp[size_t(i)]), 0.0f};
}

// ---- recursive filters ----------------------------------------------------------------------

iir_32f::iir_32f(Ipp64f freq, Ipp64f ripple, int order, IppsIIRFilterType type, filterPassType pass) : f_order(order) {
    taps.malloc(2 * order + 2);
    IIRGenTaps_32f(freq, ripple, order, taps.ptr, type, pass);
    BuildState();
}

iir_32f::iir_32f(int order, const Ipp32f* t) : f_order(order) {
    taps.malloc(2 * order + 2);
    ippsCopy_32f(t, taps.ptr, 2 * order + 2);
    BuildState();
}

void iir_32f::SetTaps(Ipp64f freq, Ipp64f ripple, IppsIIRFilterType type, filterPassType pass) {
    IIRGenTaps_32f(freq, ripple, f_order, taps.ptr, type, pass);
    BuildState();
}

void iir_32f::BuildState() {
    int size = 0;
    ippsIIRGetStateSize_32f(f_order, &size);
    if (size != 0 && !buf.ptr) buf.malloc(size);
    iirState = nullptr;
    if (ippsIIRInit_32f(&iirState, taps.ptr, f_order, nullptr, buf.ptr) != ippStsNoErr) iirState = nullptr;
}

void iir_32f::IIR(Ipp32f* src, Ipp32f* dst, int len) {
    if (iirState) {
        ippsIIR_32f(src, dst, len, iirState);
    } else if (src != dst && len > 0) {
        ippsCopy_32f(src, dst, len);
    }
}

void iir_32f::IIR_I(Ipp32f* srcDst, int len) { IIR(srcDst, srcDst, len); }

iir_64f::iir_64f(Ipp64f freq, Ipp64f ripple, int order, IppsIIRFilterType type, filterPassType pass) : f_order(order) {
    taps.malloc(2 * order + 2);
    IIRGenTaps_64f(freq, ripple, order, taps.ptr, type, pass);
    BuildState();
}

iir_64f::iir_64f(int order, Ipp64f* t) : f_order(order) {
    taps.malloc(2 * order + 2);
    ippsCopy_64f(t, taps.ptr, 2 * order + 2);
    BuildState();
}

void iir_64f::BuildState() {
    int size = 0;
    ippsIIRGetStateSize_64f(f_order, &size);
    if (size != 0 && !buf.ptr) buf.malloc(size);
    iirState = nullptr;
    if (ippsIIRInit_64f(&iirState, taps.ptr, f_order, nullptr, buf.ptr) != ippStsNoErr) iirState = nullptr;
}

void iir_64f::IIR(Ipp64f* src, Ipp64f* dst, int len) {
    if (iirState) {
        ippsIIR_64f(src, dst, len, iirState);
    } else if (src != dst && len > 0) {
        ippsCopy_64f(src, dst, len);
    }
}

void iir_64f::IIR_I(Ipp64f* srcDst, int len) { IIR(srcDst, srcDst, len); }

// ---- single-rate FIR filters --------------------------------------------------------------------

namespace {

constexpr IppDataType data_type(const Ipp32f*) { return ipp32f; }
constexpr IppDataType data_type(const Ipp64f*) { return ipp64f; }
constexpr IppDataType data_type(const Ipp32fc*) { return ipp32fc; }

IppStatus fir_init(const Ipp32f* t, int n, IppsFIRSpec_32f* s) { return ippsFIRSRInit_32f(t, n, ippAlgAuto, s); }
IppStatus fir_init(const Ipp64f* t, int n, IppsFIRSpec_64f* s) { return ippsFIRSRInit_64f(t, n, ippAlgAuto, s); }
IppStatus fir_init(const Ipp32fc* t, int n, IppsFIRSpec_32fc* s) { return ippsFIRSRInit_32fc(t, n, ippAlgAuto, s); }

IppStatus fir_run(const Ipp32f* src, Ipp32f* dst, int len, IppsFIRSpec_32f* s, Ipp32f* dly, Ipp8u* buf) {
    return ippsFIRSR_32f(src, dst, len, s, dly, dly, buf);
}
IppStatus fir_run(const Ipp64f* src, Ipp64f* dst, int len, IppsFIRSpec_64f* s, Ipp64f* dly, Ipp8u* buf) {
    return ippsFIRSR_64f(src, dst, len, s, dly, dly, buf);
}
IppStatus fir_run(const Ipp32fc* src, Ipp32fc* dst, int len, IppsFIRSpec_32fc* s, Ipp32fc* dly, Ipp8u* buf) {
    return ippsFIRSR_32fc(src, dst, len, s, dly, dly, buf);
}

}  // namespace

template <typename T, typename Spec>
void FIRFilter<T, Spec>::SetTaps(const T* taps, int tapsLen) {
    // Nothing stays usable if a step below throws.
    spec = nullptr;
    if (!taps || tapsLen < 1) {
        dly.resize(0);
        filterTaps.resize(0);
        workBuf.resize(0);
        specMem.resize(0);
        return;
    }
    filterTaps.resize(size_t(tapsLen));
    for (int i = 0; i < tapsLen; ++i) filterTaps[size_t(i)] = taps[i];
    int specSize = 0, workSize = 0;
    ippsFIRSRGetSize(tapsLen, data_type(taps), &specSize, &workSize);
    specMem.resize(size_t(specSize));
    workBuf.resize(size_t(workSize));
    Spec* s = reinterpret_cast<Spec*>(specMem.data());
    fir_init(filterTaps.data(), tapsLen, s);
    dly.resize_and_zero(size_t(tapsLen - 1));
    spec = s;
}

template <typename T, typename Spec>
IppStatus FIRFilter<T, Spec>::Filter(const T* src, T* dst, int len) {
    if (!spec) return ippStsNullPtrErr;
    return fir_run(src, dst, len, spec, dly.data(), workBuf.data());
}

template class FIRFilter<Ipp32f, IppsFIRSpec_32f>;
template class FIRFilter<Ipp64f, IppsFIRSpec_64f>;
template class FIRFilter<Ipp32fc, IppsFIRSpec_32fc>;

// ---- tone mixer ----------------------------------------------------------------------------------

Tuner_32fc::Tuner_32fc(double f, int len) : length(len), frequency(f), phase(0.0f), tone_ready(false) {
    // Into the range of the tone primitive: a negative frequency is the
    // same rotation one cycle up.
    if (frequency < 0.0) frequency += 1.0;
    if (frequency < 0.0) frequency = 0.0;
    if (frequency > 1.0) frequency = 1.0;
    tone.malloc(length);
    GenTone();
}

void Tuner_32fc::GenTone() {
    if (tone_ready) return;
    if (float(frequency) == 1.0f) {
        // A whole cycle per sample is no rotation, and the primitive
        // refuses 1.0.
        for (int i = 0; i < length; ++i) tone[i] = {1.0f, 0.0f};
    } else {
        ippsTone_32fc(tone.ptr, length, 1.0f, float(frequency), &phase, ippAlgHintAccurate);
    }
    tone_ready = true;
}

void Tuner_32fc::Tune(Ipp32fc* src, Ipp32fc* dst) {
    GenTone();
    ippsMul_32fc(src, tone.ptr, dst, length);
    tone_ready = false;
}

// ---- fast FIR filters ------------------------------------------------------------------------

namespace {

// Taps of both fast filters; the blocks overlap by kFirTaps - 1 samples.
constexpr int kFirTaps = 1025;

// FastFIR_32f block geometry: a 4096-point real transform (2048 Perm
// entries) takes 3072 new samples after 1024 of history; 64 blocks a worker.
constexpr int kRealOrder = 12;
constexpr int kRealPoints = 4096;
constexpr int kHistory = 1024;
constexpr int kNewPerBlock = 3072;
constexpr int kBins = 2048;
constexpr int kBlocksPerWorker = 64;
constexpr int kMaxFold = 3;
// Beyond a fold of 8 the second stage takes over, with a fixed first band
// of +-0.0234375 (1.875 MHz) about the centre.
constexpr double kFixedHalfBand = 0.0234375;
constexpr int kIntermediateLen = 24576;
constexpr int kMaxScale = 13;

// FastFIR_32fc block geometry: 2048 complex points, 1024 new samples.
constexpr int kCplxOrder = 11;
constexpr int kCplxPoints = 2048;
constexpr int kCplxNew = 1024;
// Every block must yield at least one sample: n = 1024 / decimation.
constexpr int kMaxCplxDecimation = 1024;

}  // namespace

FastFIR_32fc::FastFIR_32fc(int decimate_factor, double bw_ratio, int input_len)
    : filter_len(input_len), step_count(input_len / kCplxNew), decimation(decimate_factor) {
    // An input shorter than one block, or not a whole number of blocks,
    // would leave the history copy reading outside the caller's input.
    if (input_len < kCplxNew || input_len % kCplxNew != 0)
        throw std::invalid_argument("fast FIR input length not a multiple of 1024");
    if (!qs::is_pow_two(decimate_factor) || decimate_factor > kMaxCplxDecimation)
        throw std::invalid_argument("fast FIR decimation not a power of two from 1 to 1024");
    if (!(bw_ratio > 0.0 && bw_ratio < 1.0)) throw std::invalid_argument("fast FIR bandwidth out of range");

    fwd_fft.reset(new fft_C_32fc(kCplxOrder, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast));
    inv_fft.reset(new fft_C_32fc(kCplxOrder - qs::mylog2(decimate_factor), IPP_FFT_NODIV_BY_ANY, ippAlgHintFast));
    work_buf.malloc(kCplxPoints);
    kernel.malloc(kCplxPoints);
    ippsZero_32fc(kernel.ptr, kCplxPoints);
    overlap_buf.malloc(kCplxPoints);
    ippsZero_32fc(overlap_buf.ptr, kCplxPoints);

    smart_ptr<float> tmp(kCplxPoints);
    ippsZero_32f(tmp.ptr, kCplxPoints);
    FIRGenTaps_32f(0.5 * bw_ratio, tmp.ptr, kFirTaps, ippWinBlackman, ippTrue, lowPassFilter);
    // The 1 / 2048 here is the only scaling of the chain: unity pass band.
    fft_R_32f_fwd_direct(tmp.ptr, tmp.ptr, kCplxOrder, IPP_FFT_DIV_FWD_BY_N, ippAlgHintAccurate);
    ippsConjPerm_32fc(tmp.ptr, kernel.ptr, kCplxPoints);
}

void FastFIR_32fc::Filter(Ipp32fc* src, Ipp32fc* dst) {
    const int n = kCplxNew / decimation;
    const int b = kCplxPoints / decimation;
    for (int i = 0; i < step_count; ++i) {
        if (i == 0) {
            ippsCopy_32fc(src, overlap_buf.ptr + kCplxNew, kCplxNew);
            fwd_fft->FwdFFT(overlap_buf.ptr, work_buf.ptr);
            ippsCopy_32fc(src + filter_len - kCplxNew, overlap_buf.ptr, kCplxNew);
        } else {
            fwd_fft->FwdFFT(src + kCplxNew * (i - 1), work_buf.ptr);
        }
        ippsMul_32fc(work_buf.ptr, kernel.ptr, work_buf.ptr, kCplxPoints);
        // Folding by the decimation and a transform of b points give every
        // decimation-th sample of the full inverse.
        for (int k = 1; k < decimation; ++k) ippsAdd_32fc(work_buf.ptr + k * b, work_buf.ptr, work_buf.ptr, b);
        inv_fft->InvFFT(work_buf.ptr, work_buf.ptr);
        // The second half holds the samples of the new input.
        ippsCopy_32fc(work_buf.ptr + n, dst + i * n, n);
    }
}

void FrequencySumToComplex(Ipp32fc* cplx, int scale) {
    if (scale < 0 || scale > kMaxFold) return;
    const int M = kBins >> scale;
    if (scale == 0) {
        // Half rotation through the spare top entries.
        ippsCopy_32fc(cplx, cplx + kBins, kBins / 2);
        ippsMove_32fc(cplx + kBins / 2, cplx, kBins);
    } else {
        // M divides 1024, so each term of the sum is a whole run of M
        // entries starting at (1024 + j * M) mod 2048, and the one starting
        // at 0 (j = 2^(scale - 1)) is already in place: add the others to it.
        const int terms = 1 << scale;
        for (int j = 0; j < terms; ++j) {
            const int start = (kBins / 2 + j * M) % kBins;
            if (start != 0) ippsAdd_32fc(cplx + start, cplx, cplx, M);
        }
    }
    // At scale 0 this entry is the packed pair of entry 0, whose imaginary
    // part is the product at 0.5 of the input rate. Above 0 it is an
    // ordinary bin at the output's Nyquist frequency, 0.25 +- 1 / 2^(scale + 2)
    // (and odd multiples) of the input rate; only a band that reaches one of
    // those points loses a little there.
    cplx[M / 2].im = 0.0f;
}

FastFIR_32f::FastFIR_32f(int downsampleScale, double center, double width, bool bandZero)
    : downsample_scale(downsampleScale), usingBandZero(bandZero) {
    if (downsampleScale < 0 || downsampleScale > kMaxScale)
        throw std::invalid_argument("fast FIR decimation scale out of range");
    // Keeps the bin count of the shift below within an int; the band check
    // further down is the real limit.
    if (!(std::fabs(center) < 1.0)) throw std::invalid_argument("fast FIR centre out of range");
    filtering = true;
    filter_delay = 0;
    if (usingBandZero) {
        // A multiple of 4 bins turns the phase by whole cycles per hop of
        // 3072 samples, so the blocks join without a phase step.
        fftShiftAmount = int((0.25 - center) * double(kRealPoints));
        fftShiftAmount -= fftShiftAmount % 4;
        center += double(fftShiftAmount) / double(kRealPoints);
    }
    const int s = downsampleScale;
    const double f1 = s > kMaxFold ? center - kFixedHalfBand : center - 0.5 * width;
    const double f2 = s > kMaxFold ? center + kFixedHalfBand : center + 0.5 * width;
    // The design primitive refuses such a band and would leave a filter of
    // zeros that passes nothing: refuse it here, before anything is built.
    if (!(f1 > 0.0 && f2 > f1 && f2 < 0.5)) throw std::invalid_argument("fast FIR band outside 0 to 0.5");
    if (s > kMaxFold && !(16.0 * width > 0.0 && 16.0 * width < 1.0))
        throw std::invalid_argument("fast FIR second-stage bandwidth out of range");

    output_len = int((double(kInputLen) / double(qs::mypow2(s))) * 0.5);
    kernel.malloc(kRealPoints);
    ippsZero_32f(kernel.ptr, kRealPoints);
    overlap_buf.malloc(kRealPoints);
    ippsZero_32f(overlap_buf.ptr, kRealPoints);
    intermediate.malloc(kIntermediateLen);
    ippsZero_32fc(intermediate.ptr, kIntermediateLen);

    FIRGenBandpass_32f(f1, f2, kernel.ptr, kFirTaps, ippWinBlackman, ippTrue);
    fft_R_32f_fwd_direct(kernel.ptr, kernel.ptr, kRealOrder, IPP_FFT_DIV_FWD_BY_N, ippAlgHintAccurate);
    filter_delay = 512;
    if (s <= kMaxFold) {
        tuner.reset(new Tuner_32fc((0.25 - center) * double(qs::mypow2(s + 1)), output_len));
    } else {
        filter_delay = 8704;  // 512 at the input, and 512 of the second stage at 1/16 of the rate
        post_filter.reset(new FastFIR_32fc(int(qs::mypow2(s - kMaxFold)), 16.0 * width, kIntermediateLen));
        tuner.reset(new Tuner_32fc((0.25 - center) * 16.0, kIntermediateLen));
    }

    const int e = std::min(s, kMaxFold);
    for (WorkerBuffers& w : worker) {
        w.spectrum.malloc(kRealPoints + 2);
        w.rotation.malloc(kBins);
        w.product.malloc(kBins + kBins / 2);
        w.fwd.reset(new fft_R_32f(kRealOrder, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast));
        w.inv.reset(new fft_C_32fc(kCplxOrder - e, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast));
    }

    try {
        thread_handle[0] = std::thread(&FastFIR_32f::FilterThread, this, 0);
        thread_handle[1] = std::thread(&FastFIR_32f::FilterThread, this, 1);
    } catch (...) {
        // No destructor runs for a half-built object: worker 0 may be up.
        StopWorkers();
        throw;
    }
}

FastFIR_32f::~FastFIR_32f() { StopWorkers(); }

void FastFIR_32f::StopWorkers() {
    filtering.store(false);
    input_ready[0].notify();
    input_ready[1].notify();
    output_ready[0].notify();
    output_ready[1].notify();
    for (std::thread& t : thread_handle) {
        if (t.joinable()) t.join();
    }
}

int FastFIR_32f::DownsamplingFactor() const { return int(qs::mypow2(downsample_scale)); }

void FastFIR_32f::AddCorrections(const std::vector<double>& adjustments) {
    if (adjustments.size() < size_t(kBins)) return;
    for (int i = 0; i < kBins; ++i) {
        kernel[2 * i] = float(double(kernel[2 * i]) * adjustments[size_t(i)]);
        kernel[2 * i + 1] = float(double(kernel[2 * i + 1]) * adjustments[size_t(i)]);
    }
}

void FastFIR_32f::Filter(Ipp32f* src, Ipp32fc* dst) {
    input_ptr = src;
    output_ptr = downsample_scale > kMaxFold ? intermediate.ptr : dst;
    input_ready[0].notify();
    input_ready[1].notify();
    tuner->GenTone();
    output_ready[0].wait();
    output_ready[1].wait();
    if (downsample_scale <= kMaxFold) {
        tuner->Tune(dst, dst);
    } else {
        tuner->Tune(intermediate.ptr, intermediate.ptr);
        post_filter->Filter(intermediate.ptr, dst);
    }
}

void FastFIR_32f::FilterThread(int thread_num) {
    const int t = thread_num;
    WorkerBuffers& w = worker[t];
    const int e = std::min(downsample_scale, kMaxFold);
    const int m = 1536 >> e;
    // A negative shift (a band-zero centre above 0.25) turns the spectrum
    // down by as much as the centre has moved, the same rotation taken
    // modulo 2048, so that the band and the centre in use always agree.
    const int rot = ((fftShiftAmount % kBins) + kBins) % kBins;
    Ipp32fc* bins = reinterpret_cast<Ipp32fc*>(w.spectrum.ptr);
    const Ipp32fc* kern = reinterpret_cast<const Ipp32fc*>(kernel.ptr);
    while (filtering.load()) {
        input_ready[t].wait();
        if (!filtering.load()) break;
        Ipp32f* in = input_ptr;
        Ipp32fc* out = output_ptr + kBlocksPerWorker * m * t;
        for (int i = 0; i < kBlocksPerWorker; ++i) {
            if (t == 0 && i == 0) {
                ippsCopy_32f(in, overlap_buf.ptr + kHistory, kNewPerBlock);
                ippsFFTFwd_RToCCS_32f(overlap_buf.ptr, w.spectrum.ptr, w.fwd->fftSpec, w.fwd->work.ptr);
                ippsCopy_32f(in + kInputLen - kHistory, overlap_buf.ptr, kHistory);
            } else {
                const int start = t == 0 ? kNewPerBlock * i - kHistory : kInputLen / 2 - kHistory + kNewPerBlock * i;
                ippsFFTFwd_RToCCS_32f(in + start, w.spectrum.ptr, w.fwd->fftSpec, w.fwd->work.ptr);
            }
            // The bins as the transform lays them out (no repacking pass),
            // then the Nyquist bin packed into pair 0's imaginary part, where
            // the kernel, in the packed form, holds its own.
            bins[0].im = bins[kBins].re;
            if (rot > 0) {
                ippsCopy_32fc(bins + kBins - rot, w.rotation.ptr, rot);
                ippsMove_32fc(bins, bins + rot, kBins - rot);
                ippsCopy_32fc(w.rotation.ptr, bins, rot);
            }
            ippsMul_32fc(bins, kern, w.product.ptr, kBins);
            FrequencySumToComplex(w.product.ptr, e);
            w.inv->InvFFT(w.product.ptr, w.product.ptr);
            // The first 512 / 2^e samples are the wrapped-around part.
            ippsCopy_32fc(w.product.ptr + m / 3, out + i * m, m);
        }
        output_ready[t].notify();
    }
}
