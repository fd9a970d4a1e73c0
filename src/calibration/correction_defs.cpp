#include "calibration/correction_defs.h"

#include "dsp/math_helpers.h"

namespace qs {

const RFCorrParams RFCorrParamsMaple1[MAPLE_RF_ROWS] = {
    {105, 9000.0, 27e6, 1.0 / 30.0, 0},
    {94, 20e6, 1880e6, 20e6, 1},
    {31, 1900e6, 2500e6, 20e6, 2},
    {32, 2520e6, 3140e6, 20e6, 3},
    {58, 3160e6, 4300e6, 20e6, 4},
    {40, 4320e6, 5100e6, 20e6, 5},
    {24, 5120e6, 5580e6, 20e6, 6},
    {1, 5600e6, 5600e6, 20e6, 7},
    {10, 5620e6, 5800e6, 20e6, 8},
    {30, 5820e6, 6400e6, 20e6, 9},
};

const RFCorrParams RFCorrParamsMaple2[MAPLE_RF_ROWS] = {
    {105, 9000.0, 27e6, 1.0 / 30.0, 0},
    {94, 20e6, 1880e6, 20e6, 1},
    {31, 1900e6, 2500e6, 20e6, 2},
    {32, 2520e6, 3140e6, 20e6, 3},
    {53, 3160e6, 4200e6, 20e6, 4},
    {45, 4220e6, 5100e6, 20e6, 5},
    {20, 5120e6, 5500e6, 20e6, 6},
    {5, 5520e6, 5600e6, 20e6, 7},
    {10, 5620e6, 5800e6, 20e6, 8},
    {30, 5820e6, 6400e6, 20e6, 9},
};

const RFCorrParams* rf_corr_params_maple(int mapleVersion) {
    return mapleVersion == 1 ? RFCorrParamsMaple1 : RFCorrParamsMaple2;
}

const double IFCentersMaple[MAPLE_IF_TABLES] = {1.5e7, 9e8,   2.2e9, 2.8e9, 3.7e9,
                                                4.8e9, 5.5e9, 5.6e9, 5.7e9, 6.1e9};

const RFCorrParams RFCorrParamsLarch[LARCH_RF_TABLES] = {
    {41, 10000.0, 1000000.0, 0.05, 0},
    {20, 1000000.0, 20000000.0, 1000000.0, 0},
    {197, 20000000.0, 1980000000.0, 10000000.0, 0},
    {116, 1990000000.0, 3140000000.0, 10000000.0, 0},
    {166, 3150000000.0, 4800000000.0, 10000000.0, 0},
    {160, 4810000000.0, 6400000000.0, 10000000.0, 0},
};

const double IFCentersLarch[4] = {1e9, 2.5e9, 4e9, 5.6e9};

FlashIdentity parse_flash_identity(const unsigned char* mem, size_t len) {
    FlashIdentity id;
    if (len < 12 || is_flash_blank(mem, 8)) return id;
    id.blank = false;
    id.sid = image_read<uint32_t>(mem, offsetof(FlashHeaderMaple, sid));
    id.firmwareVersion = image_read<uint16_t>(mem, offsetof(FlashHeaderMaple, firmwareVersion));
    return id;
}

TimebaseFlashWrite make_timebase_write(int imageOffset, double value) {
    TimebaseFlashWrite w;
    w.page = CAL_FIRST_WRITE_PAGE + (imageOffset >> 8);
    std::memset(w.data, 0xFF, sizeof w.data);
    std::memcpy(w.data + (imageOffset & 255), &value, sizeof value);
    return w;
}

namespace {

// Typical delays of temperatures 0 to 5, for a device whose stored delays
// are all implausible.
const float kLarchTriggerFallback[6][4] = {
    {86.45356f, 88.443756f, 85.914848f, 88.430527f},
    {86.497421f, 88.488945f, 85.995049f, 88.491028f},
    {86.550346f, 88.571419f, 85.970779f, 88.545143f},
    {86.592407f, 88.63002f, 86.037056f, 88.601311f},
    {86.659286f, 88.721756f, 86.090996f, 88.703384f},
    {86.689362f, 88.723221f, 86.168861f, 88.738785f},
};

}  // namespace

int TriggerCorrLarch::DeflattenBytes(const unsigned char* src) {
    int taken = 0;
    for (int t = 0; t < LARCH_TEMPS; ++t) {
        for (int h = 0; h < 4; ++h) {
            const float v = image_read<float>(src, size_t(t * 4 + h) * sizeof(float));
            if (v > 70.0f && v < 120.0f) {
                b[t][h] = v;
                ++taken;
            }
        }
    }
    if (taken == 0) std::memcpy(b, kLarchTriggerFallback, sizeof kLarchTriggerFallback);
    return taken;
}

float SlopePoly_Maple::Solve(double if_freq) const {
    const float x = static_cast<float>(if_freq / 1.5e7);
    return x * (c[0] + x * (c[1] + x * (c[2] + x * (c[3] + x * (c[4] + x * c[5])))));
}

}  // namespace qs
