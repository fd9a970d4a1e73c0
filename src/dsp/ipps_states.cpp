#include "dsp/ipps_states.h"

#include <stdexcept>
#include <vector>

namespace {

// The three sizes of a transform, its memory and its Init. A refused order
// or flag is a caller's mistake: it throws before anything is allocated.
template <typename Spec, typename GetSize, typename Init>
void build_fft(Spec*& fftSpec, smart_ptr<unsigned char>& specMem, smart_ptr<unsigned char>& memInit,
               smart_ptr<unsigned char>& work, int order, int flag, IppHintAlgorithm hint, GetSize getSize,
               Init init) {
    int specSize = 0, initSize = 0, workSize = 0;
    if (getSize(order, flag, hint, &specSize, &initSize, &workSize) != ippStsNoErr)
        throw std::invalid_argument("transform order or flag refused");
    if (specSize != 0) specMem.malloc(specSize);
    if (initSize > 0) memInit.malloc(initSize);
    if (workSize != 0) work.malloc(workSize);
    const IppStatus st = init(&fftSpec, order, flag, hint, specMem.ptr, memInit.ptr);
    if (st == ippStsMemAllocErr) throw std::bad_alloc();
    if (st != ippStsNoErr) throw std::invalid_argument("transform set-up refused");
}

}  // namespace

// ---- transforms ---------------------------------------------------------------------

fft_R_32f::fft_R_32f(int order, int flag, IppHintAlgorithm hint) {
    build_fft(fftSpec, specMem, memInit, work, order, flag, hint, ippsFFTGetSize_R_32f, ippsFFTInit_R_32f);
}
fft_R_32f::~fft_R_32f() {
    if (fftSpec) ippsFFTFree_R_32f(fftSpec);
}
void fft_R_32f::FwdFFT(Ipp32f* src, Ipp32f* dst) { ippsFFTFwd_RToPerm_32f(src, dst, fftSpec, work.ptr); }
void fft_R_32f::InvFFT(Ipp32f* src, Ipp32f* dst) { ippsFFTInv_PermToR_32f(src, dst, fftSpec, work.ptr); }

fft_R_64f::fft_R_64f(int order, int flag, IppHintAlgorithm hint) {
    build_fft(fftSpec, specMem, memInit, work, order, flag, hint, ippsFFTGetSize_R_64f, ippsFFTInit_R_64f);
}
fft_R_64f::~fft_R_64f() {
    if (fftSpec) ippsFFTFree_R_64f(fftSpec);
}
void fft_R_64f::FwdFFT(Ipp64f* src, Ipp64f* dst) { ippsFFTFwd_RToPerm_64f(src, dst, fftSpec, work.ptr); }
void fft_R_64f::FwdFFT(Ipp64f* src, Ipp64fc* dst) {
    ippsFFTFwd_RToPerm_64f(src, reinterpret_cast<Ipp64f*>(dst), fftSpec, work.ptr);
}
void fft_R_64f::InvFFT(Ipp64f* src, Ipp64f* dst) { ippsFFTInv_PermToR_64f(src, dst, fftSpec, work.ptr); }

fft_C_32fc::fft_C_32fc(int order, int flag, IppHintAlgorithm hint) {
    build_fft(fftSpec, specMem, memInit, work, order, flag, hint, ippsFFTGetSize_C_32fc, ippsFFTInit_C_32fc);
}
fft_C_32fc::~fft_C_32fc() {
    if (fftSpec) ippsFFTFree_C_32fc(fftSpec);
}
void fft_C_32fc::FwdFFT(Ipp32fc* src, Ipp32fc* dst) { ippsFFTFwd_CToC_32fc(src, dst, fftSpec, work.ptr); }
void fft_C_32fc::InvFFT(Ipp32fc* src, Ipp32fc* dst) { ippsFFTInv_CToC_32fc(src, dst, fftSpec, work.ptr); }

fft_C_64fc::fft_C_64fc(int order, int flag, IppHintAlgorithm hint) {
    build_fft(fftSpec, specMem, memInit, work, order, flag, hint, ippsFFTGetSize_C_64fc, ippsFFTInit_C_64fc);
}
fft_C_64fc::~fft_C_64fc() {
    if (fftSpec) ippsFFTFree_C_64fc(fftSpec);
}
void fft_C_64fc::FwdFFT(Ipp64fc* src, Ipp64fc* dst) { ippsFFTFwd_CToC_64fc(src, dst, fftSpec, work.ptr); }

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
