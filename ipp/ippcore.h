// Core of the vector layer: sample types, status codes, aligned memory and
// the processor-variant choice.
#pragma once

#include <cstddef>
#include <cstdint>

typedef uint8_t Ipp8u;
typedef int16_t Ipp16s;
typedef uint16_t Ipp16u;
typedef int32_t Ipp32s;
typedef uint32_t Ipp32u;
typedef int64_t Ipp64s;
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

typedef int IppStatus;
enum {
    ippStsNoErr = 0,
};

// Picks the processor-specific variants of the kernels; safe to call again.
IppStatus ippInit();
