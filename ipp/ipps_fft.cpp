// Fourier transforms on FFTW3 plans.
//
// A spec holds plans made once in Init and runs them through FFTW's
// new-array interface, so one spec serves any number of threads, each with
// its own work buffer. FFTW requires an executed array to have the same
// alignment as the one planned with; plans are made on 64-byte aligned
// scratch, and an array that isn't aligned the same way goes through the
// aligned work buffer instead of a second set of unaligned plans (a copy of
// one block costs less than keeping twice the plans).
//
// Planner flags, chosen by measurement on the 2-core build machine (one
// plan, FFTW 3.3.10): FFTW_MEASURE took 150-200 ms to plan a 2^11..2^12 real
// single transform and 390 ms at 2^14, for an execution 2-10 % faster; for
// complex double it gained 20-35 % at a plan cost of 100-450 ms. FFTW_ESTIMATE
// plans those in 0.1-2 ms and a 2^21 transform in 2-20 ms, where a measured
// plan takes seconds. Set-up time counts more here (a measurement is
// rebuilt on every settings change), so every plan uses FFTW_ESTIMATE.
// Through this layer (bench_ipp_fft) a whole 2^21 set-up takes 19 ms real
// single, 26 ms real double, 0.4 ms complex; four specs of one size alive
// together cost about as much as one, since FFTW shares twiddle tables
// between live plans. Most of that time is the twiddles, which FFTW drops
// with the last plan that uses them; so a freed spec's plans are retired to
// a small pool instead of destroyed, and the next spec of the same kind and
// size takes them back: a measurement restarted with the same settings
// plans nothing.
//
// The FFTW planner is not thread-safe: plan creation and destruction hold
// g_planner_mutex. That is set-up time only; execution takes no lock.
#include <fftw3.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "ipps.h"

namespace {

std::mutex g_planner_mutex;

constexpr unsigned kPlanFlags = FFTW_ESTIMATE;
constexpr int kMaxOrder = 30;
constexpr uint32_t kMagicLive = 0x46465453u;  // "STFF"
constexpr size_t kAlign = 64;

template <typename R>
struct Fftw;

template <>
struct Fftw<double> {
    using Plan = fftw_plan;
    using Cplx = fftw_complex;
    static Plan dft(int n, Cplx* in, Cplx* out, int sign) { return fftw_plan_dft_1d(n, in, out, sign, kPlanFlags); }
    static Plan r2c(int n, double* in, Cplx* out) { return fftw_plan_dft_r2c_1d(n, in, out, kPlanFlags); }
    static Plan c2r(int n, Cplx* in, double* out) { return fftw_plan_dft_c2r_1d(n, in, out, kPlanFlags); }
    static void run_dft(Plan p, Cplx* in, Cplx* out) { fftw_execute_dft(p, in, out); }
    static void run_r2c(Plan p, double* in, Cplx* out) { fftw_execute_dft_r2c(p, in, out); }
    static void run_c2r(Plan p, Cplx* in, double* out) { fftw_execute_dft_c2r(p, in, out); }
    static void destroy(Plan p) {
        if (p) fftw_destroy_plan(p);
    }
    static int alignment_of(const void* p) { return fftw_alignment_of(reinterpret_cast<double*>(const_cast<void*>(p))); }
};

template <>
struct Fftw<float> {
    using Plan = fftwf_plan;
    using Cplx = fftwf_complex;
    static Plan dft(int n, Cplx* in, Cplx* out, int sign) { return fftwf_plan_dft_1d(n, in, out, sign, kPlanFlags); }
    static Plan r2c(int n, float* in, Cplx* out) { return fftwf_plan_dft_r2c_1d(n, in, out, kPlanFlags); }
    static Plan c2r(int n, Cplx* in, float* out) { return fftwf_plan_dft_c2r_1d(n, in, out, kPlanFlags); }
    static void run_dft(Plan p, Cplx* in, Cplx* out) { fftwf_execute_dft(p, in, out); }
    static void run_r2c(Plan p, float* in, Cplx* out) { fftwf_execute_dft_r2c(p, in, out); }
    static void run_c2r(Plan p, Cplx* in, float* out) { fftwf_execute_dft_c2r(p, in, out); }
    static void destroy(Plan p) {
        if (p) fftwf_destroy_plan(p);
    }
    static int alignment_of(const void* p) { return fftwf_alignment_of(reinterpret_cast<float*>(const_cast<void*>(p))); }
};

// Spec header, placed at the first 64-byte boundary of the caller's memory.
// Real transforms use plan[0] (forward, r2c) and plan[1] (inverse, c2r),
// both out-of-place. Complex ones use plan[0..1] out-of-place and
// plan[2..3] in-place, forward then inverse.
template <typename R>
struct SpecT {
    uint32_t magic;
    int order;
    int n;
    bool real;
    R fwdScale;
    R invScale;
    typename Fftw<R>::Plan plan[4];
};

// Plans of freed specs, kept for the next spec of the same kind and size.
// Guarded by g_planner_mutex. A few entries suffice: the engines' workers
// share one size, and the sizes in use change only with the settings.
template <typename R>
class RetiredPlans {
public:
    using Plan = typename Fftw<R>::Plan;
    ~RetiredPlans() {
        for (auto& e : m_entries)
            for (auto& p : e.plan) Fftw<R>::destroy(p);
    }
    bool Take(bool real, int n, Plan* plan) {
        for (size_t i = 0; i < m_count; ++i)
            if (m_entries[i].real == real && m_entries[i].n == n) {
                std::copy(m_entries[i].plan, m_entries[i].plan + 4, plan);
                m_entries[i] = m_entries[--m_count];
                m_entries[m_count] = Entry{};
                return true;
            }
        return false;
    }
    void Put(bool real, int n, const Plan* plan) {
        if (m_count == kKept) {  // the oldest goes
            for (auto& p : m_entries[0].plan) Fftw<R>::destroy(p);
            std::move(m_entries + 1, m_entries + kKept, m_entries);
            --m_count;
        }
        Entry& e = m_entries[m_count++];
        e.real = real;
        e.n = n;
        std::copy(plan, plan + 4, e.plan);
    }

private:
    struct Entry {
        bool real = false;
        int n = 0;
        Plan plan[4] = {};
    };
    static constexpr size_t kKept = 8;
    Entry m_entries[kKept];
    size_t m_count = 0;
};

template <typename R>
RetiredPlans<R>& retired() {
    static RetiredPlans<R> pool;
    return pool;
}

inline uint8_t* align_up(void* p) {
    return reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(p) + kAlign - 1) & ~uintptr_t(kAlign - 1));
}

inline size_t round_up(size_t v) { return (v + kAlign - 1) & ~(kAlign - 1); }

inline bool flag_ok(int flag) {
    return flag == IPP_FFT_DIV_FWD_BY_N || flag == IPP_FFT_DIV_INV_BY_N || flag == IPP_FFT_DIV_BY_SQRTN ||
           flag == IPP_FFT_NODIV_BY_ANY;
}

// Work buffer layout. Real: A holds n reals (input or output staged for
// alignment), B holds n/2 + 1 complex (the half spectrum). Complex: W holds
// n complex. The Init scratch has the same layout, plus a second complex
// array for the out-of-place complex plans.
template <typename R>
size_t real_a_bytes(int n) {
    return round_up(size_t(n) * sizeof(R));
}
template <typename R>
size_t real_b_bytes(int n) {
    return round_up(size_t(n / 2 + 1) * 2 * sizeof(R));
}
template <typename R>
size_t cplx_bytes(int n) {
    return round_up(size_t(n) * 2 * sizeof(R));
}

template <typename R>
IppStatus get_size(bool real, int order, int flag, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize) {
    if (!pSpecSize || !pSpecBufferSize || !pBufferSize) return ippStsNullPtrErr;
    if (order < (real ? 1 : 0) || order > kMaxOrder) return ippStsFftOrderErr;
    if (!flag_ok(flag)) return ippStsFftFlagErr;
    const int n = 1 << order;
    const size_t work = real ? real_a_bytes<R>(n) + real_b_bytes<R>(n) + kAlign : cplx_bytes<R>(n) + kAlign;
    const size_t scratch = real ? work : 2 * cplx_bytes<R>(n) + kAlign;
    if (work > size_t(INT_MAX) || scratch > size_t(INT_MAX)) return ippStsFftOrderErr;
    *pSpecSize = int(round_up(sizeof(SpecT<R>)) + kAlign);
    *pSpecBufferSize = int(scratch);
    *pBufferSize = int(work);
    return ippStsNoErr;
}

template <typename R>
IppStatus init(SpecT<R>** ppSpec, bool real, int order, int flag, Ipp8u* pSpec, Ipp8u* pSpecBuffer) {
    using F = Fftw<R>;
    using C = typename F::Cplx;
    if (!ppSpec || !pSpec || !pSpecBuffer) return ippStsNullPtrErr;
    if (order < (real ? 1 : 0) || order > kMaxOrder) return ippStsFftOrderErr;
    if (!flag_ok(flag)) return ippStsFftFlagErr;

    auto* s = reinterpret_cast<SpecT<R>*>(align_up(pSpec));
    std::memset(static_cast<void*>(s), 0, sizeof(*s));
    s->order = order;
    s->n = 1 << order;
    s->real = real;
    const R n = R(s->n);
    s->fwdScale = flag == IPP_FFT_DIV_FWD_BY_N ? R(1) / n : flag == IPP_FFT_DIV_BY_SQRTN ? R(1) / std::sqrt(n) : R(1);
    s->invScale = flag == IPP_FFT_DIV_INV_BY_N ? R(1) / n : flag == IPP_FFT_DIV_BY_SQRTN ? R(1) / std::sqrt(n) : R(1);

    uint8_t* scratch = align_up(pSpecBuffer);
    bool ok = true;
    {
        std::lock_guard<std::mutex> lock(g_planner_mutex);
        if (retired<R>().Take(real, s->n, s->plan)) {
            ok = true;
        } else if (real) {
            R* a = reinterpret_cast<R*>(scratch);
            C* b = reinterpret_cast<C*>(scratch + real_a_bytes<R>(s->n));
            s->plan[0] = F::r2c(s->n, a, b);
            s->plan[1] = F::c2r(s->n, b, a);
            ok = s->plan[0] && s->plan[1];
        } else {
            C* a = reinterpret_cast<C*>(scratch);
            C* b = reinterpret_cast<C*>(scratch + cplx_bytes<R>(s->n));
            s->plan[0] = F::dft(s->n, a, b, FFTW_FORWARD);
            s->plan[1] = F::dft(s->n, a, b, FFTW_BACKWARD);
            s->plan[2] = F::dft(s->n, a, a, FFTW_FORWARD);
            s->plan[3] = F::dft(s->n, a, a, FFTW_BACKWARD);
            ok = s->plan[0] && s->plan[1] && s->plan[2] && s->plan[3];
        }
        if (!ok) {
            for (auto& p : s->plan) {
                F::destroy(p);
                p = nullptr;
            }
        }
    }
    if (!ok) return ippStsMemAllocErr;
    s->magic = kMagicLive;
    *ppSpec = s;
    return ippStsNoErr;
}

template <typename R>
IppStatus free_spec(SpecT<R>* s) {
    if (!s) return ippStsNullPtrErr;
    if (s->magic != kMagicLive) return ippStsBadArgErr;
    std::lock_guard<std::mutex> lock(g_planner_mutex);
    retired<R>().Put(s->real, s->n, s->plan);
    for (auto& p : s->plan) p = nullptr;
    s->magic = 0;
    return ippStsNoErr;
}

template <typename R>
inline bool usable(const SpecT<R>* s, bool real) {
    return s->magic == kMagicLive && s->real == real;
}

// The forward real transform's common part: checks, the input staged in
// the work buffer where the caller's is off FFTW's grid, and r2c into the
// caller's n + 2 elements when `intoDst` and that array is on the grid, into
// the work buffer otherwise. *half is where the half spectrum went.
template <typename R>
IppStatus forward_half(const R* src, R* dst, const SpecT<R>* s, Ipp8u* pBuffer, bool intoDst,
                       typename Fftw<R>::Cplx** half) {
    using F = Fftw<R>;
    using C = typename F::Cplx;
    if (!src || !dst || !s || !pBuffer) return ippStsNullPtrErr;
    if (!usable(s, true)) return ippStsBadArgErr;
    const int n = s->n;
    uint8_t* work = align_up(pBuffer);
    R* a = reinterpret_cast<R*>(work);
    C* b = reinterpret_cast<C*>(work + real_a_bytes<R>(n));
    R* in = const_cast<R*>(src);
    if (F::alignment_of(in) != 0) {
        std::memcpy(a, src, size_t(n) * sizeof(R));
        in = a;
    }
    *half = intoDst && F::alignment_of(dst) == 0 ? reinterpret_cast<C*>(dst) : b;
    F::run_r2c(s->plan[0], in, *half);
    return ippStsNoErr;
}

// Forward real transform, Perm-packed. The packing and the scale are one
// pass over FFTW's half spectrum; without a scale, a copy.
template <typename R>
IppStatus fwd_r(const R* src, R* dst, const SpecT<R>* s, Ipp8u* pBuffer) {
    typename Fftw<R>::Cplx* b = nullptr;
    const IppStatus st = forward_half(src, dst, s, pBuffer, false, &b);
    if (st != ippStsNoErr) return st;
    const int n = s->n;
    const R sc = s->fwdScale;
    dst[0] = b[0][0] * sc;
    dst[1] = b[n / 2][0] * sc;
    const R* bf = reinterpret_cast<const R*>(b);
    // Unscaled (the caller folded 1/N into its window), the pack is a copy.
    if (sc == R(1))
        std::memcpy(dst + 2, bf + 2, size_t(n - 2) * sizeof(R));
    else
        for (int i = 2; i < n; ++i) dst[i] = bf[i] * sc;
    return ippStsNoErr;
}

// Forward real transform into the caller's n + 2 elements, as FFTW lays
// the half spectrum out (bin k at 2k, 2k + 1; bins 0 and n/2 with zero
// imaginary parts): on an aligned array FFTW writes it in place, and an
// unscaled transform makes no second pass at all.
template <typename R>
IppStatus fwd_ccs(const R* src, R* dst, const SpecT<R>* s, Ipp8u* pBuffer) {
    typename Fftw<R>::Cplx* half = nullptr;
    const IppStatus st = forward_half(src, dst, s, pBuffer, true, &half);
    if (st != ippStsNoErr) return st;
    const int n = s->n;
    if (reinterpret_cast<R*>(half) != dst) std::memcpy(dst, half, size_t(n + 2) * sizeof(R));
    const R sc = s->fwdScale;
    if (sc != R(1))
        for (int i = 0; i < n + 2; ++i) dst[i] *= sc;
    return ippStsNoErr;
}

template <typename R>
IppStatus inv_r(const R* src, R* dst, const SpecT<R>* s, Ipp8u* pBuffer) {
    using F = Fftw<R>;
    using C = typename F::Cplx;
    if (!src || !dst || !s || !pBuffer) return ippStsNullPtrErr;
    if (!usable(s, true)) return ippStsBadArgErr;
    const int n = s->n;
    uint8_t* work = align_up(pBuffer);
    R* a = reinterpret_cast<R*>(work);
    C* b = reinterpret_cast<C*>(work + real_a_bytes<R>(n));
    const R sc = s->invScale;
    R* bf = reinterpret_cast<R*>(b);
    for (int i = 2; i < n; ++i) bf[i] = src[i] * sc;
    b[0][0] = src[0] * sc;
    b[0][1] = 0;
    b[n / 2][0] = src[1] * sc;
    b[n / 2][1] = 0;
    R* out = F::alignment_of(dst) == 0 ? dst : a;
    F::run_c2r(s->plan[1], b, out);
    if (out != dst) std::memcpy(dst, out, size_t(n) * sizeof(R));
    return ippStsNoErr;
}

template <typename R, typename T>
IppStatus run_c(const T* src, T* dst, const SpecT<R>* s, Ipp8u* pBuffer, bool forward) {
    using F = Fftw<R>;
    using C = typename F::Cplx;
    if (!src || !dst || !s || !pBuffer) return ippStsNullPtrErr;
    if (!usable(s, false)) return ippStsBadArgErr;
    const int n = s->n;
    C* in = reinterpret_cast<C*>(const_cast<T*>(src));
    C* out = reinterpret_cast<C*>(dst);
    const bool aligned = F::alignment_of(in) == 0 && F::alignment_of(out) == 0;
    typename F::Plan oop = s->plan[forward ? 0 : 1];
    typename F::Plan ip = s->plan[forward ? 2 : 3];
    if (aligned) {
        F::run_dft(in == out ? ip : oop, in, out);
    } else {
        C* w = reinterpret_cast<C*>(align_up(pBuffer));
        std::memcpy(w, in, size_t(n) * sizeof(C));
        F::run_dft(ip, w, w);
        std::memcpy(out, w, size_t(n) * sizeof(C));
    }
    const R sc = forward ? s->fwdScale : s->invScale;
    if (sc != R(1)) {
        R* d = reinterpret_cast<R*>(out);
        for (int i = 0; i < 2 * n; ++i) d[i] *= sc;
    }
    return ippStsNoErr;
}

}  // namespace

struct IppsFFTSpec_R_32f : SpecT<float> {};
struct IppsFFTSpec_R_64f : SpecT<double> {};
struct IppsFFTSpec_C_32fc : SpecT<float> {};
struct IppsFFTSpec_C_64fc : SpecT<double> {};

IppStatus ippsFFTGetSize_R_32f(int order, int flag, IppHintAlgorithm, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize) {
    return get_size<float>(true, order, flag, pSpecSize, pSpecBufferSize, pBufferSize);
}
IppStatus ippsFFTGetSize_R_64f(int order, int flag, IppHintAlgorithm, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize) {
    return get_size<double>(true, order, flag, pSpecSize, pSpecBufferSize, pBufferSize);
}
IppStatus ippsFFTGetSize_C_32fc(int order, int flag, IppHintAlgorithm, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize) {
    return get_size<float>(false, order, flag, pSpecSize, pSpecBufferSize, pBufferSize);
}
IppStatus ippsFFTGetSize_C_64fc(int order, int flag, IppHintAlgorithm, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize) {
    return get_size<double>(false, order, flag, pSpecSize, pSpecBufferSize, pBufferSize);
}

IppStatus ippsFFTInit_R_32f(IppsFFTSpec_R_32f** ppSpec, int order, int flag, IppHintAlgorithm, Ipp8u* pSpec, Ipp8u* pSpecBuffer) {
    return init<float>(reinterpret_cast<SpecT<float>**>(ppSpec), true, order, flag, pSpec, pSpecBuffer);
}
IppStatus ippsFFTInit_R_64f(IppsFFTSpec_R_64f** ppSpec, int order, int flag, IppHintAlgorithm, Ipp8u* pSpec, Ipp8u* pSpecBuffer) {
    return init<double>(reinterpret_cast<SpecT<double>**>(ppSpec), true, order, flag, pSpec, pSpecBuffer);
}
IppStatus ippsFFTInit_C_32fc(IppsFFTSpec_C_32fc** ppSpec, int order, int flag, IppHintAlgorithm, Ipp8u* pSpec, Ipp8u* pSpecBuffer) {
    return init<float>(reinterpret_cast<SpecT<float>**>(ppSpec), false, order, flag, pSpec, pSpecBuffer);
}
IppStatus ippsFFTInit_C_64fc(IppsFFTSpec_C_64fc** ppSpec, int order, int flag, IppHintAlgorithm, Ipp8u* pSpec, Ipp8u* pSpecBuffer) {
    return init<double>(reinterpret_cast<SpecT<double>**>(ppSpec), false, order, flag, pSpec, pSpecBuffer);
}

IppStatus ippsFFTFree_R_32f(IppsFFTSpec_R_32f* pSpec) { return free_spec<float>(pSpec); }
IppStatus ippsFFTFree_R_64f(IppsFFTSpec_R_64f* pSpec) { return free_spec<double>(pSpec); }
IppStatus ippsFFTFree_C_32fc(IppsFFTSpec_C_32fc* pSpec) { return free_spec<float>(pSpec); }
IppStatus ippsFFTFree_C_64fc(IppsFFTSpec_C_64fc* pSpec) { return free_spec<double>(pSpec); }

IppStatus ippsFFTFwd_RToPerm_32f(const Ipp32f* pSrc, Ipp32f* pDst, const IppsFFTSpec_R_32f* pSpec, Ipp8u* pBuffer) {
    return fwd_r<float>(pSrc, pDst, pSpec, pBuffer);
}
IppStatus ippsFFTFwd_RToPerm_64f(const Ipp64f* pSrc, Ipp64f* pDst, const IppsFFTSpec_R_64f* pSpec, Ipp8u* pBuffer) {
    return fwd_r<double>(pSrc, pDst, pSpec, pBuffer);
}
IppStatus ippsFFTFwd_RToCCS_32f(const Ipp32f* pSrc, Ipp32f* pDst, const IppsFFTSpec_R_32f* pSpec, Ipp8u* pBuffer) {
    return fwd_ccs<float>(pSrc, pDst, pSpec, pBuffer);
}
IppStatus ippsFFTInv_PermToR_32f(const Ipp32f* pSrc, Ipp32f* pDst, const IppsFFTSpec_R_32f* pSpec, Ipp8u* pBuffer) {
    return inv_r<float>(pSrc, pDst, pSpec, pBuffer);
}
IppStatus ippsFFTInv_PermToR_64f(const Ipp64f* pSrc, Ipp64f* pDst, const IppsFFTSpec_R_64f* pSpec, Ipp8u* pBuffer) {
    return inv_r<double>(pSrc, pDst, pSpec, pBuffer);
}
IppStatus ippsFFTFwd_CToC_32fc(const Ipp32fc* pSrc, Ipp32fc* pDst, const IppsFFTSpec_C_32fc* pSpec, Ipp8u* pBuffer) {
    return run_c<float>(pSrc, pDst, pSpec, pBuffer, true);
}
IppStatus ippsFFTFwd_CToC_64fc(const Ipp64fc* pSrc, Ipp64fc* pDst, const IppsFFTSpec_C_64fc* pSpec, Ipp8u* pBuffer) {
    return run_c<double>(pSrc, pDst, pSpec, pBuffer, true);
}
IppStatus ippsFFTInv_CToC_32fc(const Ipp32fc* pSrc, Ipp32fc* pDst, const IppsFFTSpec_C_32fc* pSpec, Ipp8u* pBuffer) {
    return run_c<float>(pSrc, pDst, pSpec, pBuffer, false);
}
IppStatus ippsFFTInv_CToC_64fc(const Ipp64fc* pSrc, Ipp64fc* pDst, const IppsFFTSpec_C_64fc* pSpec, Ipp8u* pBuffer) {
    return run_c<double>(pSrc, pDst, pSpec, pBuffer, false);
}

IppStatus ippsConjPerm_32fc(const Ipp32f* pSrc, Ipp32fc* pDst, int lenDst) {
    if (!pSrc || !pDst) return ippStsNullPtrErr;
    if (lenDst < 2 || (lenDst & 1)) return ippStsSizeErr;
    const int half = lenDst / 2;
    pDst[0] = {pSrc[0], 0.0f};
    pDst[half] = {pSrc[1], 0.0f};
    for (int k = 1; k < half; ++k) {
        const Ipp32f re = pSrc[2 * k], im = pSrc[2 * k + 1];
        pDst[k] = {re, im};
        pDst[lenDst - k] = {re, -im};
    }
    return ippStsNoErr;
}
