// GPS time: the offset of a receiver's clock from the host's, handed to
// every open device. This platform reads no receiver, so the offset is
// never known; a platform layer with one fills in GetGPSTimeOffset.
#pragma once

#include <ctime>

#include "qs_api.h"

namespace qs {

class CGPSTime {
public:
    // qsNoError with *offset in seconds, or qsGPSErr; here always
    // qsNotSupportedErr with *offset untouched.
    qsStatus GetGPSTimeOffset(int comPort, int baudRate, double* offset);
};

// Splits *stringp at the first delim, in place; an empty field between two
// delimiters is an empty token. Null when nothing is left.
char* strsep_sc(char** stringp, char delim);

// Seconds since 1970 of a broken-down UTC time, from tm_yday (tm_mon and
// tm_mday are not used), in 32-bit arithmetic.
int timeFromTm(const std::tm* t);

}  // namespace qs
