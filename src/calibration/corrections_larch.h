// The Larch's corrections: its tables and the load of its calibration
// image, the gain and attenuation solved per band, one correction per
// spectrum bin, and the delay of a trigger. The Larch has eight table
// temperatures, six RF tables over the frequency range and four IF tables,
// and measures IF self-calibration constants at each open.
//
// A correction is an RF term, interpolated in frequency and temperature in
// the RF table of the bin's own frequency, plus an IF term of two parts:
// the factory's IF table (200 kHz apart, running from 30 MHz above the IF
// centre down) and the self-calibration constants (39,062.5 Hz apart from
// -11.25 MHz).
//
// Called like the Maple's by the set-ups, in a fixed order (Configure, the
// command building, the arrays), on the caller's thread with no engine
// alive; the self-calibration operations run from the device's open and
// from qsSelfCal, also with no engine reading the array.
#pragma once

#include <memory>

#include "calibration/correction_defs.h"
#include "calibration/corrections.h"

namespace qs {

constexpr int LARCH_BANDS = 5;

class CorrectionsLarch : public Corrections {
public:
    // A (gain, attenuation index) pair.
    struct GainAtten {
        int gain;
        int atten;
    };
    // The automatic choices in the order they are tried.
    static constexpr int AUTO_TABLE_ROWS = 9;
    static const GainAtten g_auto_table[AUTO_TABLE_ROWS];

    // The tables of an uncalibrated device.
    CorrectionsLarch();
    ~CorrectionsLarch() override;

    // Zeroes the RF tables first, so a blank image leaves an uncalibrated
    // device whatever was loaded before.
    bool Initialize(const unsigned char* mem) override;
    // Takes the temperature's place among the table temperatures and solves
    // gain and attenuation of each of the five bands over the part of the
    // sweep that falls in it. Always true.
    bool Configure(double temp, const Settings& set, const SweepInfo& info) override;
    uint8_t GetGain(int band) override;
    // The attenuation in dB: 0, 10, 20 or 30.
    uint8_t GetAtten(int band) override;
    // Zeroes the RF tables and restores the default temperatures; the IF
    // tables, trigger delays and self-calibration constants stay.
    void ZeroCorrections() override;
    void ClearSelfCalConstants() override;
    void SetSelfCalConstants(double* data) override;
    virtual double GetOscRatio() { return m_oscRatio; }

    // stepCount x fftSize/4 corrections in patch order (dB with log scale,
    // else linear factors). With full scale only the self-calibration term.
    void BuildCorrectionArray(const Settings* set, const SweepInfo* info, bool zero_span) override;
    // fftSize/2 values in dB, 0 but for the corrections of the first patch
    // placed from fftSize/8 + IFOffset on.
    void BuildIFCorrectionArray(const Settings* set, const SweepInfo* info, VecDouble& array) override;
    // traceLen + 8 corrections of a tracking-generator sweep of TGptsPer20M
    // points per patch; every band takes the given gain and attenuation.
    void BuildQSTGCorrectionArray(const Settings* set, const SweepInfo* info, int TGptsPer20M,
                                  int gain, int atten) override;
    // By the hardware band of freq, interpolated in temperature.
    int GetTriggerDelay(double freq) override;

    // The RF table of a band (row of the LO table) at a frequency.
    RFCorrLarch* GetBandStruct(int band, double freq) const;
    // Solves gain and attenuation of one band over start..stop.
    void GetBandGain(int band, double start, double stop);
    // The IF term at freq Hz from the IF centre; center_offset moves the
    // factory table's read point (a step moved for a residual spur).
    double GetIFCorrection(int band, double freq, double center_offset) const;
    // The correction in dB of the bin at IF offset IF of a step centred at
    // CF in band.
    double GetSingleCorrection(int band, double CF, double IF, double if_center_offset) const;
    // The self-calibration term alone, in dB.
    double GetSelfCalCorrection(double freq) const;

    // For the device and tests: the temperature's place.
    int TempIndex() const { return m_t; }
    float TempFraction() const { return m_tp; }

    // Gains and attenuation indices have no meaning before the first
    // Configure; they start at 0.
    int32_t m_bandGains[LARCH_BANDS] = {0, 0, 0, 0, 0};
    int32_t m_bandAttens[LARCH_BANDS] = {0, 0, 0, 0, 0};
    std::unique_ptr<RFCorrLarch> B0A, B0B, B0C, B1, B2, B3;
    std::unique_ptr<IFCorrLarch> IFBands[4];
    std::unique_ptr<TriggerCorrLarch> m_trigDelays;
    float internalTemps[LARCH_TEMPS];
    double m_IFSelfCal[SELF_CAL_CONSTANTS];

    // The six RF tables in image order.
    RFCorrLarch* RFTable(int i) const;

private:
    // BuildCorrectionArray before any conversion: dB.
    void BuildCorrectionArrayDb(const Settings* set, const SweepInfo* info);
    void SetTemperature(double temp);
    // Index of the smallest value of curve from s while the frequency
    // stays below e.
    int FindMinimum(const RFCorrLarch& r, const float* curve, double s, double e) const;
    // The margin of a (gain, atten) pair at index n in a band.
    float Margin(int band, const RFCorrLarch& r, int gain, int atten, int n) const;
};

}  // namespace qs
