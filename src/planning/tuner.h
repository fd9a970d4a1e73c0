// What planning needs to know of a model's receiver: its LO rows, the
// residual spurs it steps around, and how it writes oscillator words and
// control bytes. Each model fills one from its own tables; planning reads
// nothing else of the model.
#pragma once

#include <cstdint>

#include "transport/wire_formats.h"

namespace qs {

// One row of a model's LO table, as planning sees it.
struct LoRow {
    int band = 0;            // hardware band code
    double maxRF = 0.0;      // Hz; a frequency belongs to the first row whose maxRF is above it
    double lo1c = 0.0;       // Hz
    double lo2c = 0.0;       // Hz
    bool flip = false;       // the mixing inverts the spectrum
    bool direct = false;     // sampled directly: the slice is 0 to 20 MHz, no oscillator
    double wideLo1Shift = 0.0;  // a wide standard sweep runs the first oscillator this much higher, Hz
};

// A receiver spur that a sweep steps around with an LO pair of its own.
struct ResidualSpur {
    int band;           // hardware band of the step
    double readCentre;  // RF centre the step reads, Hz
    double writeCentre; // RF centre of the trace the step repairs, Hz
    double span;        // Hz
    double lo1;         // Hz
    double lo2;         // Hz
};

// The fields every model's LO table row has, as a LoRow.
template <typename TableRow>
LoRow LoRowOf(const TableRow& lut) {
    LoRow r;
    r.band = lut.band;
    r.maxRF = lut.maxRF;
    r.lo1c = lut.lo1c;
    r.lo2c = lut.lo2c;
    return r;
}

class Tuner {
public:
    virtual ~Tuner() = default;
    virtual int RowCount() const = 0;
    // The first row whose maxRF is above freqHz; RowCount() above the top.
    virtual int RowOf(double freqHz) const = 0;
    virtual LoRow Row(int row) const = 0;
    // The oscillator words of a sub-band that starts at freqHz in row and
    // steps step100k x 100 kHz, both oscillators moved by secondLOHz.
    virtual void SetWords(subBand_t& sb, const LoRow& row, double freqHz, double secondLOHz,
                          int step100k) const = 0;
    // The four control bytes of a sub-band, the low byte of the port mask
    // in byte 0.
    virtual void Pack(const s3Ctrl_t& s, unsigned portMask, uint8_t* settings) const = 0;
    // The residual spurs, in frequency order; none by default.
    struct Spurs {
        const ResidualSpur* spur = nullptr;
        int count = 0;
    };
    virtual Spurs Residuals() const { return {}; }
    // The words of a residual step (one LO pair, one step); only a model
    // with residual spurs is asked.
    virtual void SetResidualWords(subBand_t&, const ResidualSpur&) const {}
    // The row of a frequency, kept inside the table.
    int RowIn(double freqHz) const;

protected:
    // Byte 0 of every model's control bytes: how the sub-band steps (stream,
    // or packets per step a power of two or 1.5 times one) and the low
    // byte of the port mask.
    static uint8_t StepByte(const s3Ctrl_t& s, unsigned portMask);
};

}  // namespace qs
