// Image primitives of the vector layer.
#pragma once

#include "ippcore.h"

// dst row x, column y = src row y, column x. roiSize is the source area
// (width in columns, height in rows); steps are in bytes.
IppStatus ippiTranspose_32f_C1R(const Ipp32f* pSrc, int srcStep, Ipp32f* pDst, int dstStep, IppiSize roiSize);
