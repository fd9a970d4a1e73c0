// The Larch's corrections: its tables and the load of its calibration
// image. The Larch has eight table temperatures, six RF tables over the
// frequency range and four IF tables, and measures IF self-calibration
// constants at each open.
//
// The measurement side (gain solving per band, the correction arrays and
// the trigger delay by hardware band) is left to the model's planning
// work; until it is added this class stays abstract.
#pragma once

#include <memory>

#include "calibration/correction_defs.h"
#include "calibration/corrections.h"

namespace qs {

constexpr int LARCH_BANDS = 5;

class CorrectionsLarch : public Corrections {
public:
    // The tables of an uncalibrated device.
    CorrectionsLarch();
    ~CorrectionsLarch() override;

    // Zeroes the RF tables first, so a blank image leaves an uncalibrated
    // device whatever was loaded before.
    bool Initialize(const unsigned char* mem) override;
    uint8_t GetGain(int band) override;
    // The attenuation in dB: 0, 10, 20 or 30.
    uint8_t GetAtten(int band) override;
    // Zeroes the RF tables and restores the default temperatures; the IF
    // tables, trigger delays and self-calibration constants stay.
    void ZeroCorrections() override;
    void ClearSelfCalConstants() override;
    void SetSelfCalConstants(double* data) override;
    virtual double GetOscRatio() { return m_oscRatio; }

    int32_t m_bandGains[LARCH_BANDS] = {0, 0, 0, 0, 0};
    int32_t m_bandAttens[LARCH_BANDS] = {0, 0, 0, 0, 0};
    std::unique_ptr<RFCorrLarch> B0A, B0B, B0C, B1, B2, B3;
    std::unique_ptr<IFCorrLarch> IFBands[4];
    std::unique_ptr<TriggerCorrLarch> m_trigDelays;
    float internalTemps[LARCH_TEMPS];
    double m_IFSelfCal[SELF_CAL_CONSTANTS];

    // The six RF tables in image order.
    RFCorrLarch* RFTable(int i) const;
};

}  // namespace qs
