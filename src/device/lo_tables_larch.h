// The Larch's local-oscillator table and the look-up of a frequency's row.
//
// The row index (the software band) is what a Patch's band and the
// corrections' per-band gain and attenuation use; the band column is the
// hardware path packed into the command and the index of the trigger
// delays. No row is flipped on this model. Constant data: read from any
// thread.
#pragma once

namespace qs {

struct LOLUTLarch {
    int band;      // hardware band
    double minRF;  // Hz
    double maxRF;  // Hz; a frequency belongs to the first row whose maxRF is above it
    double lo1c;   // Hz
    double lo2c;   // Hz
};

constexpr int LARCH_LO_ROWS = 5;

extern const LOLUTLarch lolutLarch[LARCH_LO_ROWS];

// A residual spur of the receiver and the step that reads around it: the
// step is taken at LO1 and LO2 (Hz) in hardware band `band`, centred on
// RFReadCtr, and its patch replaces the sweep's bins about RFWriteCtr.
struct RPLUT {
    int band;
    double RFReadCtr;
    double RFWriteCtr;
    double RFSpan;
    double LO1;
    double LO2;
};

constexpr int LARCH_RESIDUAL_ROWS = 6;

extern const RPLUT residualLarch[LARCH_RESIDUAL_ROWS];

// The first row whose maxRF is above freq; LARCH_LO_ROWS (no row) from
// 6.8 GHz up, which the frequency limit of the settings keeps from arising.
int get_software_band_Larch(double freq);
// The hardware band of that row; the top row's from 6.8 GHz up.
int get_hardware_band_Larch(double freq);

}  // namespace qs
