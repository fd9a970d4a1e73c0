// Sample converters; need no device.
#include "ipps.h"
#include "qs_api.h"

extern "C" {

void qsConvert_32f16s(const float* src, short* dst, int scaleFactor, int len) {
    ippsConvert_32f16s_Sfs(src, dst, len, ippRndNear, -scaleFactor);
}

void qsConvert_16s32f(const short* src, float* dst, int scaleFactor, int len) {
    ippsConvert_16s32f_Sfs(src, dst, len, -scaleFactor);
}

}  // extern "C"
