#include "device/lo_tables_larch.h"

namespace qs {

const LOLUTLarch lolutLarch[LARCH_LO_ROWS] = {
    {0, 100000.0, 1200000000.0, 2440000000.0, 2300000000.0},
    {0, 1200000000.0, 1990000000.0, 2440000000.0, 2300000000.0},
    {1, 1990000000.0, 3150000000.0, 1260000000.0, 1120000000.0},
    {2, 3150000000.0, 4810000000.0, 2440000000.0, 2300000000.0},
    {3, 4810000000.0, 6800000000.0, 1260000000.0, 1120000000.0},
};

const RPLUT residualLarch[LARCH_RESIDUAL_ROWS] = {
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
