// Core of the vector layer: sample types, status codes, enumerations,
// aligned memory and the processor-variant choice.
#pragma once

#include <cstddef>
#include <cstdint>

typedef uint8_t Ipp8u;
typedef int16_t Ipp16s;
typedef uint16_t Ipp16u;
typedef int32_t Ipp32s;
typedef uint32_t Ipp32u;
typedef int64_t Ipp64s;
typedef uint64_t Ipp64u;
typedef float Ipp32f;
typedef double Ipp64f;
struct Ipp32fc {
    Ipp32f re;
    Ipp32f im;
};
struct Ipp64fc {
    Ipp64f re;
    Ipp64f im;
};
static_assert(sizeof(Ipp32fc) == 2 * sizeof(Ipp32f), "complex must be packed re, im");
static_assert(sizeof(Ipp64fc) == 2 * sizeof(Ipp64f), "complex must be packed re, im");

struct IppiSize {
    int width;
    int height;
};

// No caller reads these, but the layer still refuses bad arguments with a
// distinct code so that tests can tell a refusal from a result.
typedef int IppStatus;
enum {
    ippStsNoErr = 0,
    ippStsBadArgErr = -5,
    ippStsSizeErr = -6,
    ippStsRangeErr = -7,
    ippStsNullPtrErr = -8,
    ippStsMemAllocErr = -9,
    ippStsFftOrderErr = -15,
    ippStsFftFlagErr = -16,
    ippStsFIRLenErr = -26,
    ippStsIIROrderErr = -25,
    ippStsRelFreqErr = -29,
    ippStsRoundModeNotSupportedErr = -213,
    ippStsCpuNotSupportedErr = -53,
};

enum IppHintAlgorithm : int { ippAlgHintNone = 0, ippAlgHintFast = 1, ippAlgHintAccurate = 2 };
enum IppWinType : int { ippWinBartlett = 0, ippWinBlackman = 1, ippWinHamming = 2, ippWinHann = 3, ippWinRect = 4 };
enum IppBool : int { ippFalse = 0, ippTrue = 1 };
enum IppRoundMode : int { ippRndZero = 0, ippRndNear = 1 };
enum IppsIIRFilterType : int { ippButterworth = 0, ippChebyshev1 = 1 };
enum IppDataType : int { ipp32f = 13, ipp32fc = 14, ipp64f = 19 };
enum IppAlgType : int { ippAlgAuto = 0 };

enum {
    IPP_FFT_DIV_FWD_BY_N = 1,
    IPP_FFT_DIV_INV_BY_N = 2,
    IPP_FFT_DIV_BY_SQRTN = 4,
    IPP_FFT_NODIV_BY_ANY = 8,
};

// Kernel variants of the hot element-wise primitives. The generic one is
// the plain loops at the baseline instruction set and serves as reference.
enum IppKernelVariant { ippKernelGeneric = 0, ippKernelAVX2 = 1 };

// Picks the processor-specific variants of the kernels; safe to call again.
// Until it runs, the generic variant is in use.
IppStatus ippInit();
// Forces one variant (tests and benchmarks). ippStsCpuNotSupportedErr if
// this processor can't run it; the current choice then stays.
IppStatus ippSetKernelVariant(IppKernelVariant v);
IppKernelVariant ippGetKernelVariant();

// Memory aligned to 64 bytes, or null. Contents undefined.
void* ippMalloc(int length);
void ippFree(void* ptr);
