#include "calibration/corrections.h"

#include <cstring>
#include <memory>

#include "calibration/correction_defs.h"

namespace qs {

namespace {

void take_identity(const unsigned char* mem, size_t len, DeviceIdentity& id) {
    const FlashIdentity f = parse_flash_identity(mem, len);
    if (f.blank) {
        id.valid = false;
        return;
    }
    id.sid = f.sid;
    id.firmwareVersion = f.firmwareVersion;
}

// A page whose read failed then reads as erased flash, never as stale heap.
std::unique_ptr<unsigned char[]> erased_buffer(size_t len) {
    std::unique_ptr<unsigned char[]> buf(new unsigned char[len]);
    std::memset(buf.get(), 0xFF, len);
    return buf;
}

}  // namespace

qsStatus load_calibration_maple(const FlashPageReader& read, Corrections& corr, DeviceIdentity& id) {
    // Once per open: the buffer is not on any data path.
    std::unique_ptr<unsigned char[]> buf = erased_buffer(MAPLE_CAL_BUFFER_SIZE);
    for (int i = 0; i < MAPLE_CAL_READ_PAGES; ++i) {
        const qsStatus st = read(CAL_FIRST_READ_PAGE + i, buf.get() + size_t(i) * FLASH_READ_PAGE_SIZE);
        if (st != qsNoError) return st;
    }
    take_identity(buf.get(), MAPLE_CAL_BUFFER_SIZE, id);
    return corr.InitializeFrom(buf.get(), MAPLE_CAL_BUFFER_SIZE) ? qsNoError : qsUncalibratedDevice;
}

qsStatus load_calibration_larch(const FlashPageReader& read, Corrections& corr, DeviceIdentity& id) {
    std::unique_ptr<unsigned char[]> buf = erased_buffer(LARCH_CAL_BUFFER_SIZE);
    for (int i = 0; i < LARCH_CAL_READ_PAGES; ++i)
        read(CAL_FIRST_READ_PAGE + i, buf.get() + size_t(i) * FLASH_READ_PAGE_SIZE);
    take_identity(buf.get(), LARCH_CAL_BUFFER_SIZE, id);
    // An uncalibrated Larch still opens: its IF self-calibration carries it.
    corr.InitializeFrom(buf.get(), LARCH_CAL_BUFFER_SIZE);
    return qsNoError;
}

void Corrections::PlaceTemperature(const float* temps, int top, int tailIndex, double temp) {
    if (temp < static_cast<double>(temps[0])) {
        m_t = 0;
        m_tp = 0.0f;
        return;
    }
    for (int i = 1; i <= top; ++i) {
        if (static_cast<double>(temps[i]) > temp) {
            m_t = i - 1;
            m_tp = static_cast<float>((temp - static_cast<double>(temps[i - 1])) /
                                      static_cast<double>(temps[i] - temps[i - 1]));
            return;
        }
    }
    m_t = tailIndex;
    m_tp = 1.0f;
}

}  // namespace qs
