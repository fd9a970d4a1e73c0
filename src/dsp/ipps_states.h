// Filter and transform objects: small owners of the stateful primitives of
// the vector layer, with one life each: build, (reset,) process.
//
// None of them lock or start threads; each belongs to one thread at a time
// while in use. Building allocates (smart_ptr members throw qs_exception,
// DSP::SimpleVector members std::bad_alloc) and a constructor that throws
// leaves nothing behind. Processing allocates nothing.
#pragma once

#include "dsp/dsp_vector.h"
#include "ipps.h"

enum filterPassType { lowPassFilter = 0, highPassFilter = 1 };

// ---- transforms -----------------------------------------------------------------
// Built from (order, flag, hint) of the layer's transform primitives. An
// order the layer refuses throws std::invalid_argument. FwdFFT and InvFFT
// use the object's own work buffer: one thread at a time per object.

class fft_R_32f {
public:
    fft_R_32f(int order, int flag, IppHintAlgorithm hint);
    ~fft_R_32f();
    // Perm-packed result; src and dst may be one array.
    void FwdFFT(Ipp32f* src, Ipp32f* dst);
    void InvFFT(Ipp32f* src, Ipp32f* dst);

    IppsFFTSpec_R_32f* fftSpec = nullptr;
    smart_ptr<unsigned char> specMem;
    smart_ptr<unsigned char> memInit;
    smart_ptr<unsigned char> work;

private:
    fft_R_32f(const fft_R_32f&);
    fft_R_32f& operator=(const fft_R_32f&);
};

class fft_R_64f {
public:
    fft_R_64f(int order, int flag, IppHintAlgorithm hint);
    ~fft_R_64f();
    void FwdFFT(Ipp64f* src, Ipp64f* dst);
    // The same transform, the Perm result read as complex pairs: entry 0
    // holds bin 0 in re and bin N/2 in im, entry k bin k.
    void FwdFFT(Ipp64f* src, Ipp64fc* dst);
    void InvFFT(Ipp64f* src, Ipp64f* dst);

    IppsFFTSpec_R_64f* fftSpec = nullptr;
    smart_ptr<unsigned char> specMem;
    smart_ptr<unsigned char> memInit;
    smart_ptr<unsigned char> work;

private:
    fft_R_64f(const fft_R_64f&);
    fft_R_64f& operator=(const fft_R_64f&);
};

class fft_C_32fc {
public:
    fft_C_32fc(int order, int flag, IppHintAlgorithm hint);
    ~fft_C_32fc();
    void FwdFFT(Ipp32fc* src, Ipp32fc* dst);
    void InvFFT(Ipp32fc* src, Ipp32fc* dst);

    IppsFFTSpec_C_32fc* fftSpec = nullptr;
    smart_ptr<unsigned char> specMem;
    smart_ptr<unsigned char> memInit;
    smart_ptr<unsigned char> work;

private:
    fft_C_32fc(const fft_C_32fc&);
    fft_C_32fc& operator=(const fft_C_32fc&);
};

class fft_C_64fc {
public:
    fft_C_64fc(int order, int flag, IppHintAlgorithm hint);
    ~fft_C_64fc();
    void FwdFFT(Ipp64fc* src, Ipp64fc* dst);

    IppsFFTSpec_C_64fc* fftSpec = nullptr;
    smart_ptr<unsigned char> specMem;
    smart_ptr<unsigned char> memInit;
    smart_ptr<unsigned char> work;

private:
    fft_C_64fc(const fft_C_64fc&);
    fft_C_64fc& operator=(const fft_C_64fc&);
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
