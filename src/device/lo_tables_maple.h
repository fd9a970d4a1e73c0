// The Maple's local-oscillator tables, one per hardware revision, and the
// look-up of a frequency's row.
//
// A row is one RF path with fixed oscillator centres: the first oscillator
// runs at lo1c plus the step's RF frequency, the second at lo2c. The row
// index is what a Patch's band and the corrections use; the band column is
// the hardware path code packed into the command. Constant data: read from
// any thread.
#pragma once

#include "planning/tuner.h"

namespace qs {

struct LOLUTMaple {
    int band;      // hardware band code
    double minRF;  // Hz
    double maxRF;  // Hz; a frequency belongs to the first row whose maxRF is above it
    double lo1c;   // Hz
    double lo2c;   // Hz
    bool flip;     // the mixing inverts the spectrum
};

constexpr int MAPLE_LO_ROWS = 10;

extern const LOLUTMaple lolutMaple1[MAPLE_LO_ROWS];  // revision 1, and any but 2
extern const LOLUTMaple lolutMaple2[MAPLE_LO_ROWS];  // revision 2

// The table of a revision: lolutMaple2 for 2, lolutMaple1 for any other.
const LOLUTMaple* GetLUTMaple(int rev);

// The row of freq in the revision's table: the first whose maxRF is above
// it. MAPLE_LO_ROWS (no row) above the last row, which the frequency limit
// of the settings keeps from arising.
int get_band_maple(int rev, double freq);

// The Maple's receiver as planning sees it: row 0 is sampled directly, row
// 8 of a wide sweep runs its first oscillator 1.6 MHz high, the first
// oscillator counts 400 kHz and the second 5 MHz, and there are no
// residual spurs.
class MapleTuner : public Tuner {
public:
    explicit MapleTuner(int rev) : m_rev(rev), m_table(GetLUTMaple(rev)) {}
    int RowCount() const override { return MAPLE_LO_ROWS; }
    int RowOf(double freqHz) const override { return get_band_maple(m_rev, freqHz); }
    LoRow Row(int row) const override;
    void SetWords(subBand_t& sb, const LoRow& row, double freqHz, double secondLOHz, int step100k) const override;
    void Pack(const s3Ctrl_t& s, unsigned portMask, uint8_t* settings) const override;

private:
    int m_rev;
    const LOLUTMaple* m_table;
};

}  // namespace qs
