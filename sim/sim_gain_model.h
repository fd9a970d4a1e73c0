// The simulated receiver's gain: how many dB a tone gains from the antenna
// to the converter, for every path, gain and attenuator setting and
// temperature. The receiver is made from this model; the factory
// calibration (sim_calibration) is made by measuring it, as a factory
// measures a unit, not by copying its parts.
//
// Units: a tone of L dBm at the antenna reaches the converter as a sinusoid
// of peak amplitude 10^((L + G) / 20) of full scale, G being the gain here.
// Noise follows the same scale: a density of N dBm/Hz becomes a converter
// density of 10^((N + G) / 10) / 2 (full scale squared per Hz).
//
// The Maple's gain:
//   G = front(row) + shape(f) + fine(f) + vga(rough code) - atten(code, f)
//       + drift(T) + ifResponse(row, delta)
// front is a per-path constant with a per-unit spread; shape is a smooth
// ripple and tilt of the RF path, flat below 150 MHz; fine is a ripple of a
// few MHz period and a tenth of a dB or two, different in every unit (the
// standing waves between the front-end parts), finer than the 20 MHz grid
// of the RF tables and not of the slice's shape, so no table holds it;
// vga is the IF amplifier set by the rough gain byte of the step; atten is
// the step attenuator; drift is the gain's temperature coefficient, curved,
// so that interpolating between the tables' temperatures leaves an error;
// ifResponse is the IF filter at the RF offset delta from the step's centre
// (zero at the centre, rolling off past 11 MHz). The low band samples the
// antenna directly: no IF filter, a high-pass and anti-alias response.
#pragma once

#include <cstdint>

namespace qssim {

constexpr int kMapleRows = 10;
constexpr int kMapleTemps = 12;
constexpr int kMapleRoughRows = 310;
constexpr int kLarchRows = 5;
constexpr int kLarchTemps = 8;

// One row of a Maple LO table: the hardware band, the RF range, and the
// nominal first and second oscillator offsets of the row.
struct LoRow {
    int band;
    double minRF;
    double maxRF;
    double lo1c;
    double lo2c;
    bool flip;
};

// The LO table of a Maple revision (2, or 1 for any other), ten rows.
const LoRow* MapleLoTable(int rev);
// The first row whose maxRF is above freq; 10 past the table.
int MapleRowOf(int rev, double freq);
// Maple revision of a product id: 2 for product 5, else 1.
int MapleRevOf(int productId);
bool IsMaple(int productId);

// The five rows of the Larch's LO table (no flipped rows).
const LoRow* LarchLoTable();

class GainModel {
public:
    GainModel(int productId, unsigned serial);

    int ProductId() const { return m_productId; }
    int MapleRev() const { return m_rev; }

    // Temperatures at which the factory measured, ascending, Celsius.
    double TableTemp(int t) const;
    int TableTemps() const;

    // The rough gain codes the factory chose per 20 MHz row, for the low
    // gains (0, 1) and the high gains (2, 3).
    uint8_t RoughCode(bool highGain, int roughRow) const;

    // The attenuator code the control bytes carry for a gain and
    // attenuation index, as the library codes it (0 is sent as 1).
    static int MapleAttenCode(int gain, int attenIndex);

    // Parts of the Maple's gain, in dB.
    double FrontDb(int row) const;
    static double ShapeDb(double rfHz);
    static double VgaDb(int roughCode);
    static double AttenDb(int attenCode, double rfHz);
    static double DriftDb(double celsius);
    // The unit's fine ripple of the RF path.
    double FineDb(double rfHz) const;
    // IF filter at the RF offset delta from the centre of a step in the
    // row; 0 at the centre. Defined over +-18 MHz; beyond, see Passes.
    double IfResponseDb(int row, double deltaHz) const;
    static bool IfPasses(double deltaHz) { return deltaHz > -18e6 && deltaHz < 18e6; }
    static double LowBandDb(double fHz);

    // The whole gain of a tone at rfHz in a step of the row whose RF centre
    // (the RF that lands on the IF centre) is centreHz. Row 0 ignores the
    // centre: the antenna is sampled directly.
    double MapleGainDb(int row, double centreHz, double rfHz, int attenCode, int roughCode,
                       double celsius) const;
    // The same at the centre of the step, without the IF and shape offsets
    // across the slice: what the RF table holds.
    double MapleCentreGainDb(int row, double centreHz, int attenCode, int roughCode,
                             double celsius) const;

    // The Larch: G = path(row, f, gain, atten, T) + selfCalIf(x) + frontIf(row, x)
    //             + lowTilt(centre, delta)
    // x being the signal's offset from the IF centre. The IF filter after
    // the point where the self-calibration tone enters is what the device
    // measures at each open; the factory's IF table holds the rest, and the
    // RF tables hold the path less the mean of the measured filter over the
    // middle of the band, which the self-calibration takes away.
    double LarchPathDb(int row, double rfHz, int gain, int attenIndex, double celsius) const;
    // The measured filter: one shape, its middle at the device's own IF
    // centre offset (0 unless set), which every Larch's filter has a little
    // of and the self-calibration finds.
    double LarchSelfCalIfDb(double ifOffsetHz) const;
    void SetLarchIfCentre(double hz) { m_larchIfCentreHz = hz; }
    double LarchIfCentre() const { return m_larchIfCentreHz; }
    double LarchFrontIfDb(int row, double ifOffsetHz) const;
    // The tilt of the IF below 130 MHz of RF centre, in dB at the RF offset delta.
    static double LarchLowTiltDb(double centreHz, double deltaHz);
    // The mean of LarchSelfCalIfDb over the points the self-calibration
    // takes as its middle.
    double LarchSelfCalMeanDb() const;
    // lo2ShiftHz is how far the second oscillator runs above its row's own
    // (a step moved for a residual spur): the front IF filter sits at the
    // first IF and sees the signal that much lower than the converter does.
    double LarchGainDb(int row, double centreHz, double rfHz, double ifOffsetHz, int gain,
                       int attenIndex, double celsius, double lo2ShiftHz = 0.0) const;

private:
    int m_productId;
    int m_rev;
    double m_rowSpread[kMapleRows];
    double m_finePeriodHz[2];
    double m_finePhase[2];
    double m_larchIfCentreHz = 0.0;
};

}  // namespace qssim
