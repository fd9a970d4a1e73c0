#include "device/lo_tables_maple.h"

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
