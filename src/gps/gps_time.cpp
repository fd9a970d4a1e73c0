#include "gps/gps_time.h"

#include <cstdint>
#include <cstring>

#include "api/device_table.h"
#include "device/device.h"

namespace qs {

qsStatus CGPSTime::GetGPSTimeOffset(int, int, double*) { return qsNotSupportedErr; }

char* strsep_sc(char** stringp, char delim) {
    if (!stringp || !*stringp) return nullptr;
    char* s = *stringp;
    char* hit = *s ? std::strchr(s, delim) : nullptr;
    if (!hit) {
        *stringp = nullptr;
        return s;
    }
    *hit = '\0';
    *stringp = hit + 1;
    return s;
}

int timeFromTm(const std::tm* t) {
    // Summed wide and then wrapped to 32 bits, as the 32-bit sum would wrap,
    // without signed overflow on the way.
    const int64_t y = t->tm_year;
    const int64_t seconds = t->tm_sec + t->tm_min * 60LL + t->tm_hour * 3600LL +
                            t->tm_yday * 86400LL + (y - 70) * 31536000LL +
                            ((y - 69) / 4) * 86400LL - ((y - 1) / 100) * 86400LL +
                            ((y + 299) / 400) * 86400LL;
    return static_cast<int32_t>(static_cast<uint32_t>(seconds));
}

}  // namespace qs

extern "C" qsStatus qsSyncCPUtoGPS(int comPort, int baudRate) {
    double offset = 0.0;
    qs::CGPSTime gps;
    const qsStatus status = gps.GetGPSTimeOffset(comPort, baudRate, &offset);
    if (status != qsNoError) return status;
    bool any = false;
    for (qs::Device* dev : qs::api::devices) {
        if (!dev) continue;
        dev->SetClockOffset(offset);
        any = true;
    }
    return any ? qsNoError : qsDeviceNotOpenErr;
}
