#include "device/lo_tables_larch.h"

#include <cmath>

namespace qs {

const LOLUTLarch lolutLarch[LARCH_LO_ROWS] = {
    {0, 100000.0, 1200000000.0, 2440000000.0, 2300000000.0},
    {0, 1200000000.0, 1990000000.0, 2440000000.0, 2300000000.0},
    {1, 1990000000.0, 3150000000.0, 1260000000.0, 1120000000.0},
    {2, 3150000000.0, 4810000000.0, 2440000000.0, 2300000000.0},
    {3, 4810000000.0, 6800000000.0, 1260000000.0, 1120000000.0},
};

const ResidualSpur residualLarch[LARCH_RESIDUAL_ROWS] = {
    {0, 45000000.0, 40000000.0, 10000000.0, 2495000000.0, 2310000000.0},
    {1, 2240000000.0, 2240000000.0, 10000000.0, 3510000000.0, 1130000000.0},
    {1, 3080000000.0, 3080000000.0, 10000000.0, 4350000000.0, 1130000000.0},
    {2, 4600000000.0, 4600000000.0, 10000000.0, 7050000000.0, 2310000000.0},
    {3, 5320000000.0, 5320000000.0, 10000000.0, 6590000000.0, 1130000000.0},
    {3, 5600000000.0, 5600000000.0, 10000000.0, 6870000000.0, 1130000000.0},
};

int get_software_band_Larch(double freq) {
    for (int row = 0; row < LARCH_LO_ROWS; ++row)
        if (lolutLarch[row].maxRF > freq) return row;
    return LARCH_LO_ROWS;
}

int get_hardware_band_Larch(double freq) {
    const int row = get_software_band_Larch(freq);
    return lolutLarch[row < LARCH_LO_ROWS ? row : LARCH_LO_ROWS - 1].band;
}

}  // namespace qs

namespace qs {

namespace {

constexpr double kLOUnit = 100000.0;  // LO words count 100 kHz (LO1 200 kHz above band 1)

}  // namespace

LoRow LarchTuner::Row(int row) const {
    return LoRowOf(lolutLarch[row]);
}

void LarchTuner::SetWords(subBand_t& sb, const LoRow& row, double freqHz, double secondLOHz, int step100k) const {
    // Bands 2 and 3 count their first oscillator in 200 kHz.
    const double w = std::floor((freqHz + row.lo1c + secondLOHz) / kLOUnit + 0.5);
    if (row.band > 1) {
        sb.LO1stepFreq = static_cast<int16_t>(step100k / 2);
        sb.LO1startFreq = static_cast<uint16_t>(static_cast<int>(w / 2));
    } else {
        sb.LO1stepFreq = static_cast<int16_t>(step100k);
        sb.LO1startFreq = static_cast<uint16_t>(w);
    }
    sb.LO2Freq = static_cast<uint16_t>(std::floor((row.lo2c + secondLOHz) / kLOUnit + 0.5));
}

void LarchTuner::SetResidualWords(subBand_t& sb, const ResidualSpur& r) const {
    const double lo1 = r.band > 1 ? 0.5 * r.lo1 * 1e-5 : r.lo1 * 1e-5;
    sb.LO1startFreq = static_cast<uint16_t>(static_cast<int>(std::floor(lo1 + 0.5)));
    sb.LO1stepFreq = 1;
    sb.LO2Freq = static_cast<uint16_t>(static_cast<int>(std::floor(r.lo2 * 1e-5 + 0.5)));
}

void LarchTuner::Pack(const s3Ctrl_t& s, unsigned portMask, uint8_t* settings) const {
    settings[0] = StepByte(s, portMask);
    settings[1] = static_cast<uint8_t>(s.pktsz << 4);

    const int band = s.band;
    int b3 = 0;
    if (s.gain > 2) b3 |= 0x80;
    if (band >= 0) b3 |= 0x40;
    b3 += s.atten * 2;
    settings[3] = static_cast<uint8_t>(b3);

    int b2;
    switch (band) {
        case 0: b2 = 0x89; break;
        case 1: b2 = 0x48; break;
        case 2: b2 = 0x9A; break;
        case 3: b2 = 0x5A; break;
        default: b2 = 0x09; break;
    }
    if (s.gain > 1) b2 ^= band < 1 ? 0x08 : 0x04;
    if (s.gain == 0) b2 += 0x20;
    if (band < 0) b2 |= 0x20;
    settings[2] = static_cast<uint8_t>(b2);
}

}  // namespace qs
