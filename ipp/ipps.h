// Signal primitives of the vector layer: fill, copy, conversion,
// element-wise arithmetic, transforms, filter design and filtering,
// resampling and the tone.
//
// Conventions: lengths count elements; a non-_I primitive gives the right
// result when dst is one of its sources; complex arrays are interleaved
// re, im. Primitives keep no global state and may run on any thread.
#pragma once

#include "ippcore.h"

// ---- memory --------------------------------------------------------------
Ipp16s* ippsMalloc_16s(int len);
void ippsFree(void* ptr);

// ---- fill, copy and order -------------------------------------------------
IppStatus ippsZero_32f(Ipp32f* dst, int len);
IppStatus ippsZero_32fc(Ipp32fc* dst, int len);
IppStatus ippsZero_32s(Ipp32s* dst, int len);
IppStatus ippsZero_64f(Ipp64f* dst, int len);
IppStatus ippsSet_32f(Ipp32f val, Ipp32f* dst, int len);
IppStatus ippsSet_8u(Ipp8u val, Ipp8u* dst, int len);
IppStatus ippsCopy_8u(const Ipp8u* src, Ipp8u* dst, int len);
IppStatus ippsCopy_16s(const Ipp16s* src, Ipp16s* dst, int len);
IppStatus ippsCopy_32s(const Ipp32s* src, Ipp32s* dst, int len);
IppStatus ippsCopy_32f(const Ipp32f* src, Ipp32f* dst, int len);
IppStatus ippsCopy_32fc(const Ipp32fc* src, Ipp32fc* dst, int len);
IppStatus ippsCopy_64f(const Ipp64f* src, Ipp64f* dst, int len);
IppStatus ippsMove_32fc(const Ipp32fc* src, Ipp32fc* dst, int len);
IppStatus ippsFlip_32f(const Ipp32f* src, Ipp32f* dst, int len);
IppStatus ippsFlip_64f(const Ipp64f* src, Ipp64f* dst, int len);
IppStatus ippsFlip_32f_I(Ipp32f* srcDst, int len);
IppStatus ippsFlip_64f_I(Ipp64f* srcDst, int len);

// ---- conversions ----------------------------------------------------------
IppStatus ippsConvert_16s32f_Sfs(const Ipp16s* src, Ipp32f* dst, int len, int scaleFactor);
IppStatus ippsConvert_16s64f_Sfs(const Ipp16s* src, Ipp64f* dst, int len, int scaleFactor);
IppStatus ippsConvert_32f16s_Sfs(const Ipp32f* src, Ipp16s* dst, int len, IppRoundMode rndMode, int scaleFactor);
IppStatus ippsConvert_32s32f(const Ipp32s* src, Ipp32f* dst, int len);
IppStatus ippsConvert_64f32f(const Ipp64f* src, Ipp32f* dst, int len);

// ---- element-wise arithmetic -----------------------------------------------
IppStatus ippsAdd_32f(const Ipp32f* src1, const Ipp32f* src2, Ipp32f* dst, int len);
IppStatus ippsAdd_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len);
IppStatus ippsAdd_32fc(const Ipp32fc* src1, const Ipp32fc* src2, Ipp32fc* dst, int len);
IppStatus ippsAdd_32u(const Ipp32u* src1, const Ipp32u* src2, Ipp32u* dst, int len);
// dst = src2 - src1
IppStatus ippsSub_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len);
// dst = saturate32((src2 - src1) * 2^-scaleFactor)
IppStatus ippsSub_32s_Sfs(const Ipp32s* src1, const Ipp32s* src2, Ipp32s* dst, int len, int scaleFactor);
// dst = src2 / src1
IppStatus ippsDiv_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len);
IppStatus ippsMul_32f(const Ipp32f* src1, const Ipp32f* src2, Ipp32f* dst, int len);
IppStatus ippsMul_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len);
IppStatus ippsMul_32fc(const Ipp32fc* src1, const Ipp32fc* src2, Ipp32fc* dst, int len);
IppStatus ippsMul_64fc(const Ipp64fc* src1, const Ipp64fc* src2, Ipp64fc* dst, int len);
IppStatus ippsMul_32f_I(const Ipp32f* src, Ipp32f* srcDst, int len);
IppStatus ippsMulC_32f(const Ipp32f* src, Ipp32f val, Ipp32f* dst, int len);
IppStatus ippsMulC_64f(const Ipp64f* src, Ipp64f val, Ipp64f* dst, int len);
IppStatus ippsAddC_64f(const Ipp64f* src, Ipp64f val, Ipp64f* dst, int len);
IppStatus ippsMinEvery_32f(const Ipp32f* src1, const Ipp32f* src2, Ipp32f* dst, int len);
IppStatus ippsMinEvery_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len);
IppStatus ippsMaxEvery_32f(const Ipp32f* src1, const Ipp32f* src2, Ipp32f* dst, int len);
IppStatus ippsMaxEvery_64f(const Ipp64f* src1, const Ipp64f* src2, Ipp64f* dst, int len);
IppStatus ippsMinIndx_32f(const Ipp32f* src, int len, Ipp32f* pMin, int* pIndx);

// ---- functions of one value -------------------------------------------------
// _A11: at least 11 correct mantissa bits.
IppStatus ippsLn_32f_A11(const Ipp32f* src, Ipp32f* dst, int len);
IppStatus ippsLn_64f(const Ipp64f* src, Ipp64f* dst, int len);
IppStatus ippsExp_64f(const Ipp64f* src, Ipp64f* dst, int len);
IppStatus ippsSqr_64f(const Ipp64f* src, Ipp64f* dst, int len);
IppStatus ippsSqrt_32f_A11(const Ipp32f* src, Ipp32f* dst, int len);
IppStatus ippsSqrt_64f(const Ipp64f* src, Ipp64f* dst, int len);
IppStatus ippsConj_32fc(const Ipp32fc* src, Ipp32fc* dst, int len);
IppStatus ippsMagnitude_32fc(const Ipp32fc* src, Ipp32f* dst, int len);
IppStatus ippsMagnitude_64fc(const Ipp64fc* src, Ipp64f* dst, int len);
IppStatus ippsPhase_32fc(const Ipp32fc* src, Ipp32f* dst, int len);
IppStatus ippsPowerSpectr_32fc(const Ipp32fc* src, Ipp32f* dst, int len);
IppStatus ippsPowerSpectr_64fc(const Ipp64fc* src, Ipp64f* dst, int len);
// Our own, for the sweep's detection: pFiltered = b1 * pFiltered + a0 *
// |src|^2, then, unless pMin and pMax are both null, pMin = the smaller and
// pMax the larger of itself and the new pFiltered (ippsMinEvery_64f's and
// ippsMaxEvery_64f's rule, the new value as their first operand).
// Our own, for two real frames through one complex transform:
// pDst[i] = (pSrc1[i] pWin[i], pSrc2[i] pWin[i]); and back from the
// transform pSrc of n points (a power of two), the frames' bins k = first
// + j, j < len (k at most n / 2): pDst1[j] = (Z[k] + conj Z[n - k]) / 2,
// pDst2[j] = (Z[k] - conj Z[n - k]) / 2i, indices modulo n.
IppStatus ippsWindowPair_64f(const Ipp64f* pSrc1, const Ipp64f* pSrc2, const Ipp64f* pWin, Ipp64fc* pDst, int len);
IppStatus ippsSplitPair_64fc(const Ipp64fc* pSrc, int n, int first, Ipp64fc* pDst1, Ipp64fc* pDst2, int len);
IppStatus ippsPowerVideoFilter_64fc(const Ipp64fc* src, Ipp64f a0, Ipp64f b1, Ipp64f* pFiltered, Ipp64f* pMin,
                                    Ipp64f* pMax, int len);

// ---- transforms -----------------------------------------------------------
// Forward kernel exp(-j 2 pi n k / N), inverse exp(+j 2 pi n k / N). Real
// forward results are Perm-packed: R(0), R(N/2), R(1), I(1), ...,
// R(N/2-1), I(N/2-1). A spec is read-only after Init and may be shared by
// threads, each passing a work buffer of its own. Specs hold transform
// plans: release them with ippsFFTFree_* before freeing the spec memory.
struct IppsFFTSpec_R_32f;
struct IppsFFTSpec_R_64f;
struct IppsFFTSpec_C_32fc;
struct IppsFFTSpec_C_64fc;

IppStatus ippsFFTGetSize_R_32f(int order, int flag, IppHintAlgorithm hint, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize);
IppStatus ippsFFTGetSize_R_64f(int order, int flag, IppHintAlgorithm hint, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize);
IppStatus ippsFFTGetSize_C_32fc(int order, int flag, IppHintAlgorithm hint, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize);
IppStatus ippsFFTGetSize_C_64fc(int order, int flag, IppHintAlgorithm hint, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize);
IppStatus ippsFFTInit_R_32f(IppsFFTSpec_R_32f** ppSpec, int order, int flag, IppHintAlgorithm hint, Ipp8u* pSpec, Ipp8u* pSpecBuffer);
IppStatus ippsFFTInit_R_64f(IppsFFTSpec_R_64f** ppSpec, int order, int flag, IppHintAlgorithm hint, Ipp8u* pSpec, Ipp8u* pSpecBuffer);
IppStatus ippsFFTInit_C_32fc(IppsFFTSpec_C_32fc** ppSpec, int order, int flag, IppHintAlgorithm hint, Ipp8u* pSpec, Ipp8u* pSpecBuffer);
IppStatus ippsFFTInit_C_64fc(IppsFFTSpec_C_64fc** ppSpec, int order, int flag, IppHintAlgorithm hint, Ipp8u* pSpec, Ipp8u* pSpecBuffer);
IppStatus ippsFFTFree_R_32f(IppsFFTSpec_R_32f* pSpec);
IppStatus ippsFFTFree_R_64f(IppsFFTSpec_R_64f* pSpec);
IppStatus ippsFFTFree_C_32fc(IppsFFTSpec_C_32fc* pSpec);
IppStatus ippsFFTFree_C_64fc(IppsFFTSpec_C_64fc* pSpec);

IppStatus ippsFFTFwd_RToPerm_32f(const Ipp32f* pSrc, Ipp32f* pDst, const IppsFFTSpec_R_32f* pSpec, Ipp8u* pBuffer);
// pDst holds n + 2 elements: bins 0..n/2 as complex pairs.
IppStatus ippsFFTFwd_RToCCS_32f(const Ipp32f* pSrc, Ipp32f* pDst, const IppsFFTSpec_R_32f* pSpec, Ipp8u* pBuffer);
IppStatus ippsFFTFwd_RToPerm_64f(const Ipp64f* pSrc, Ipp64f* pDst, const IppsFFTSpec_R_64f* pSpec, Ipp8u* pBuffer);
IppStatus ippsFFTFwd_RToCCS_64f(const Ipp64f* pSrc, Ipp64f* pDst, const IppsFFTSpec_R_64f* pSpec, Ipp8u* pBuffer);
IppStatus ippsFFTInv_PermToR_32f(const Ipp32f* pSrc, Ipp32f* pDst, const IppsFFTSpec_R_32f* pSpec, Ipp8u* pBuffer);
IppStatus ippsFFTInv_PermToR_64f(const Ipp64f* pSrc, Ipp64f* pDst, const IppsFFTSpec_R_64f* pSpec, Ipp8u* pBuffer);
IppStatus ippsFFTFwd_CToC_32fc(const Ipp32fc* pSrc, Ipp32fc* pDst, const IppsFFTSpec_C_32fc* pSpec, Ipp8u* pBuffer);
IppStatus ippsFFTFwd_CToC_64fc(const Ipp64fc* pSrc, Ipp64fc* pDst, const IppsFFTSpec_C_64fc* pSpec, Ipp8u* pBuffer);
IppStatus ippsFFTInv_CToC_32fc(const Ipp32fc* pSrc, Ipp32fc* pDst, const IppsFFTSpec_C_32fc* pSpec, Ipp8u* pBuffer);
IppStatus ippsFFTInv_CToC_64fc(const Ipp64fc* pSrc, Ipp64fc* pDst, const IppsFFTSpec_C_64fc* pSpec, Ipp8u* pBuffer);

// Unpacks lenDst Perm floats into the full conjugate-symmetric spectrum of
// lenDst complex values.
IppStatus ippsConjPerm_32fc(const Ipp32f* pSrc, Ipp32fc* pDst, int lenDst);

// ---- filter design ------------------------------------------------------------
// Frequencies are fractions of the sampling rate, 0 < f < 0.5.
IppStatus ippsFIRGenGetBufferSize(int tapsLen, int* pBufferSize);
IppStatus ippsFIRGenLowpass_64f(Ipp64f rFreq, Ipp64f* pTaps, int tapsLen, IppWinType winType, IppBool doNormal, Ipp8u* pBuffer);
// tapsLen must be odd.
IppStatus ippsFIRGenHighpass_64f(Ipp64f rFreq, Ipp64f* pTaps, int tapsLen, IppWinType winType, IppBool doNormal, Ipp8u* pBuffer);
IppStatus ippsFIRGenBandpass_64f(Ipp64f rLowFreq, Ipp64f rHighFreq, Ipp64f* pTaps, int tapsLen, IppWinType winType, IppBool doNormal, Ipp8u* pBuffer);
IppStatus ippsWinBlackmanStd_64f_I(Ipp64f* pSrcDst, int len);

// Taps out: B(0..N), A(0..N), A(0) = 1. order 1..12, ripple in dB
// (0, 29], read for ippChebyshev1 only.
IppStatus ippsIIRGenGetBufferSize(int order, int* pBufferSize);
IppStatus ippsIIRGenLowpass_64f(Ipp64f rFreq, Ipp64f ripple, int order, Ipp64f* pTaps, IppsIIRFilterType filterType, Ipp8u* pBuffer);
IppStatus ippsIIRGenHighpass_64f(Ipp64f rFreq, Ipp64f ripple, int order, Ipp64f* pTaps, IppsIIRFilterType filterType, Ipp8u* pBuffer);

// ---- filtering ---------------------------------------------------------------
struct IppsFIRSpec_32f;
struct IppsFIRSpec_64f;
struct IppsFIRSpec_32fc;
struct IppsIIRState_32f;
struct IppsIIRState_64f;

IppStatus ippsFIRSRGetSize(int tapsLen, IppDataType tapsType, int* pSpecSize, int* pBufSize);
IppStatus ippsFIRSRInit_32f(const Ipp32f* pTaps, int tapsLen, IppAlgType algType, IppsFIRSpec_32f* pSpec);
IppStatus ippsFIRSRInit_64f(const Ipp64f* pTaps, int tapsLen, IppAlgType algType, IppsFIRSpec_64f* pSpec);
IppStatus ippsFIRSRInit_32fc(const Ipp32fc* pTaps, int tapsLen, IppAlgType algType, IppsFIRSpec_32fc* pSpec);
// y[n] = sum h[k] x[n-k], taps in stored order. dlySrc: the tapsLen - 1
// samples before src[0], oldest first (null: silence). dlyDst receives the
// last tapsLen - 1 inputs; it may be dlySrc.
IppStatus ippsFIRSR_32f(const Ipp32f* pSrc, Ipp32f* pDst, int numIters, IppsFIRSpec_32f* pSpec, const Ipp32f* pDlySrc, Ipp32f* pDlyDst, Ipp8u* pBuf);
IppStatus ippsFIRSR_64f(const Ipp64f* pSrc, Ipp64f* pDst, int numIters, IppsFIRSpec_64f* pSpec, const Ipp64f* pDlySrc, Ipp64f* pDlyDst, Ipp8u* pBuf);
IppStatus ippsFIRSR_32fc(const Ipp32fc* pSrc, Ipp32fc* pDst, int numIters, IppsFIRSpec_32fc* pSpec, const Ipp32fc* pDlySrc, Ipp32fc* pDlyDst, Ipp8u* pBuf);

IppStatus ippsIIRGetStateSize_32f(int order, int* pBufferSize);
IppStatus ippsIIRGetStateSize_64f(int order, int* pBufferSize);
IppStatus ippsIIRInit_32f(IppsIIRState_32f** ppState, const Ipp32f* pTaps, int order, const Ipp32f* pDlyLine, Ipp8u* pBuf);
IppStatus ippsIIRInit_64f(IppsIIRState_64f** ppState, const Ipp64f* pTaps, int order, const Ipp64f* pDlyLine, Ipp8u* pBuf);
IppStatus ippsIIR_32f(const Ipp32f* pSrc, Ipp32f* pDst, int len, IppsIIRState_32f* pState);
IppStatus ippsIIR_64f(const Ipp64f* pSrc, Ipp64f* pDst, int len, IppsIIRState_64f* pState);

// ---- resampling and tone -----------------------------------------------------
IppStatus ippsSampleDown_32f(const Ipp32f* pSrc, int srcLen, Ipp32f* pDst, int* pDstLen, int factor, int* pPhase);
IppStatus ippsSampleDown_32fc(const Ipp32fc* pSrc, int srcLen, Ipp32fc* pDst, int* pDstLen, int factor, int* pPhase);
IppStatus ippsSampleUp_32f(const Ipp32f* pSrc, int srcLen, Ipp32f* pDst, int* pDstLen, int factor, int* pPhase);
// dst[n] = magn exp(j (2 pi rFreq n + *pPhase)), 0 <= rFreq < 1; *pPhase
// returns the phase of the next sample, in [0, 2 pi).
IppStatus ippsTone_32fc(Ipp32fc* pDst, int len, Ipp32f magn, Ipp32f rFreq, Ipp32f* pPhase, IppHintAlgorithm hint);
