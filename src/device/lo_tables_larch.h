// The Larch's local-oscillator table and the look-up of a frequency's row.
//
// The row index (the software band) is what a Patch's band and the
// corrections' per-band gain and attenuation use; the band column is the
// hardware path packed into the command and the index of the trigger
// delays. No row is flipped on this model. Constant data: read from any
// thread.
#pragma once

#include "planning/tuner.h"

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

// The receiver's residual spurs and the steps that read around them: each
// step is taken at lo1 and lo2 in its hardware band, centred on
// readCentre, and its patch replaces the sweep's bins about writeCentre.
constexpr int LARCH_RESIDUAL_ROWS = 6;

extern const ResidualSpur residualLarch[LARCH_RESIDUAL_ROWS];

// The first row whose maxRF is above freq; LARCH_LO_ROWS (no row) from
// 6.8 GHz up, which the frequency limit of the settings keeps from arising.
int get_software_band_Larch(double freq);
// The hardware band of that row; the top row's from 6.8 GHz up.
int get_hardware_band_Larch(double freq);

// The Larch's receiver as planning sees it: no row is mirrored or sampled
// directly, the oscillators count 100 kHz (the first 200 kHz in bands 2 and
// 3), and six residual spurs are stepped around.
class LarchTuner : public Tuner {
public:
    int RowCount() const override { return LARCH_LO_ROWS; }
    int RowOf(double freqHz) const override { return get_software_band_Larch(freqHz); }
    LoRow Row(int row) const override;
    void SetWords(subBand_t& sb, const LoRow& row, double freqHz, double secondLOHz, int step100k) const override;
    void Pack(const s3Ctrl_t& s, unsigned portMask, uint8_t* settings) const override;
    Spurs Residuals() const override { return {residualLarch, LARCH_RESIDUAL_ROWS}; }
    void SetResidualWords(subBand_t& sb, const ResidualSpur& r) const override;
};

}  // namespace qs
