#include "device/lo_tables_maple.h"

#include <cmath>

namespace qs {

const LOLUTMaple lolutMaple1[MAPLE_LO_ROWS] = {
    {0, 10e3, 16e6, 160e6, 160e6, false},
    {1, 16e6, 1890e6, 2420e6, 2280e6, false},
    {2, 1890e6, 2510e6, 1260e6, 1400e6, true},
    {2, 2510e6, 3150e6, 1260e6, 1120e6, false},
    {3, 3150e6, 4310e6, 2420e6, 2560e6, true},
    {4, 4310e6, 5110e6, 2420e6, 2560e6, true},
    {5, 5110e6, 5590e6, 1260e6, 1120e6, false},
    // A 20 MHz row whose oscillators sit 8 MHz above its neighbours'.
    {5, 5590e6, 5610e6, 1268e6, 1128e6, false},
    {5, 5610e6, 5810e6, 1260e6, 1120e6, false},
    {6, 5810e6, 6800e6, 1260e6, 1120e6, false},
};

const LOLUTMaple lolutMaple2[MAPLE_LO_ROWS] = {
    {0, 10e3, 16e6, 160e6, 160e6, false},
    {1, 16e6, 1890e6, 2420e6, 2560e6, true},
    {2, 1890e6, 2510e6, 1220e6, 1360e6, true},
    {2, 2510e6, 3150e6, 1220e6, 1080e6, false},
    {3, 3150e6, 4210e6, 2420e6, 2280e6, false},
    {4, 4210e6, 5110e6, 2420e6, 2560e6, true},
    {5, 5110e6, 5510e6, 1220e6, 1080e6, false},
    {6, 5510e6, 5610e6, 1220e6, 1080e6, false},
    {6, 5610e6, 5810e6, 1220e6, 1080e6, false},
    {6, 5810e6, 6800e6, 1220e6, 1080e6, false},
};

const LOLUTMaple* GetLUTMaple(int rev) { return rev == 2 ? lolutMaple2 : lolutMaple1; }

int get_band_maple(int rev, double freq) {
    const LOLUTMaple* table = GetLUTMaple(rev);
    for (int row = 0; row < MAPLE_LO_ROWS; ++row)
        if (table[row].maxRF > freq) return row;
    return MAPLE_LO_ROWS;
}

}  // namespace qs

namespace qs {

namespace {

constexpr double kLO1Unit = 400000.0;   // LO1 words count 400 kHz
constexpr double kLO2Unit = 5000000.0;  // LO2 words count 5 MHz
// Row 8 of the wide plan runs its first oscillator 1.6 MHz high and keeps
// the slice that moved with it.
constexpr int kShiftedRow = 8;
constexpr double kShiftedRowLO1 = 1600000.0;

int RoundToInt(double v) { return static_cast<int>(std::floor(v + 0.5)); }

}  // namespace

LoRow MapleTuner::Row(int row) const {
    const LOLUTMaple& lut = m_table[row];
    LoRow r = LoRowOf(lut);
    r.flip = lut.flip;
    r.direct = lut.band == 0;
    r.wideLo1Shift = row == kShiftedRow ? kShiftedRowLO1 : 0.0;
    return r;
}

void MapleTuner::SetWords(subBand_t& sb, const LoRow& row, double freqHz, double secondLOHz, int step100k) const {
    sb.LO1stepFreq = static_cast<int16_t>(step100k / 4);
    sb.LO1startFreq = static_cast<uint16_t>(RoundToInt((freqHz + row.lo1c + secondLOHz) / kLO1Unit));
    sb.LO2Freq = static_cast<uint16_t>(std::floor((row.lo2c + secondLOHz) / kLO2Unit + 0.5));
}

void MapleTuner::Pack(const s3Ctrl_t& s, unsigned portMask, uint8_t* settings) const {
    settings[0] = StepByte(s, portMask);

    // The gain is not packed on this model.
    const int band = s.band;
    const int a = s.atten == 0 ? 1 : s.atten;
    int code = 0;
    uint8_t byte3;
    if (band < 1) {
        byte3 = static_cast<uint8_t>(a);
    } else {
        switch (band) {
            case 1: case 2: code = 0; break;
            case 3: code = 1; break;
            case 6: case 11: code = 3; break;
            case 7: case 8: code = 4; break;
            default: code = 2; break;
        }
        byte3 = static_cast<uint8_t>(((band + 1) << 5) + a);
    }
    settings[1] = static_cast<uint8_t>((s.pktsz << 4) + code);
    settings[2] = 0;
    settings[3] = byte3;
}

}  // namespace qs
