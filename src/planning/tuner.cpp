#include "planning/tuner.h"

#include <algorithm>

namespace qs {

// Only a corrupt plan could ask above the top row.
int Tuner::RowIn(double freqHz) const { return std::min(RowOf(freqHz), RowCount() - 1); }

uint8_t Tuner::StepByte(const s3Ctrl_t& s, unsigned portMask) {
    uint8_t mode;
    if (s.stream)
        mode = 0;
    else if (s.pktsz_x3d2)
        mode = 3;
    else
        mode = 1;
    return static_cast<uint8_t>(mode | (portMask & 0xFF));
}

}  // namespace qs
