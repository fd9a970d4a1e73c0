// The Maple's corrections: from temperature and settings, the gain and
// attenuator setting the device runs at; the rough-gain schedule of the
// command; one correction per spectrum bin for the exact frequency plan;
// and the delay of a trigger.
//
// A correction has up to three terms in dB: an RF term from the RF table of
// the LO row, an IF term from the IF table tied to that row, and a slope
// term from a polynomial per 20 MHz of RF. Row 0, the direct-sampling low
// band, has only its RF term, read at the true frequency.
//
// Called by the mode set-ups in a fixed order (Configure, then the command
// building, then the arrays), on the caller's thread with no engine alive.
// A single correction neither allocates nor searches: every index comes
// from the frequency by arithmetic, clamped into its table.
#pragma once

#include <memory>

#include "calibration/correction_defs.h"
#include "calibration/corrections.h"

namespace qs {

class PatchInfo;

// A (gain, attenuation index) pair.
struct GainAtten {
    int gain;
    int atten;
};
// The automatic choices in the order they are tried.
constexpr int MAPLE_AUTO_TABLE_ROWS = 14;
extern const GainAtten g_auto_table[MAPLE_AUTO_TABLE_ROWS];

// Room of the command's rough-gain list: 128 (count, gain) pairs.
constexpr int ROUGH_GAIN_ARRAY_BYTES = 256;

class CorrectionsMaple : public Corrections {
public:
    // The tables of revision 1 (USB product id 2) or of any other
    // revision, all uncalibrated.
    explicit CorrectionsMaple(int mapleVersion);
    ~CorrectionsMaple() override;

    bool Initialize(const unsigned char* mem) override;
    bool Configure(double temp, const Settings& set, const SweepInfo& info) override;
    uint8_t GetGain(int band) override;
    uint8_t GetAtten(int band) override;
    void BuildCorrectionArray(const Settings* set, const SweepInfo* info, bool zero_span) override;
    void BuildIFCorrectionArray(const Settings* set, const SweepInfo* info, VecDouble& array) override;
    void ZeroCorrections() override;
    int GetTriggerDelay(double freq) override;
    void ClearSelfCalConstants() override;
    void SetSelfCalConstants(double* data) override;

    // 2048 copies of the low band's RF term at center, in dB.
    void BuildDirectCorrectionArray(VecDouble& array, double center) override;
    void FillRoughGains(uint8_t* bytes, const PatchInfo& patches) const override {
        GetRoughGainArray(bytes, patches);
    }
    // The array of a tracking-generator sweep of TGptsPer20M points per
    // patch; overwrites the solved gain and attenuation with the given ones.
    void BuildQSTGCorrectionArray(const Settings* set, const SweepInfo* info, int TGptsPer20M,
                                  int gain, int atten) override;

    // Replaces the rough gains (310 bytes each); null leaves one as it is.
    // Nothing reaches flash.
    void SetRoughGains(const uint8_t* low, const uint8_t* high);
    // The 20 MHz row nearest freq, 0 to 309; a tie takes the lower row.
    int GetRoughGainIndex(double freq) const;
    uint8_t GetRoughGain(double freq) const;
    // Run-length (count, gain) pairs for the command, one count per patch;
    // at most 128 pairs: a plan that needs more stops at the limit. Returns
    // the pairs written. The list has no terminator.
    int GetRoughGainArray(uint8_t arr[ROUGH_GAIN_ARRAY_BYTES], const PatchInfo& patches) const;

    // Stores value in the first empty timebase slot and makes it the ratio.
    // Returns the slot's image offset, or -1 when every slot is taken.
    int AddTimebaseCorrection(double value);

    // The terms of a correction, in dB. rf_band is an LO row.
    double GetRFCorrection(int rf_band, double freq) const;
    // freq is the distance from the IF centre; center_offset is unused.
    double GetIFCorrection(int rf_band, double freq, double center_offset) const;
    double GetSlopeCorrection(double center, double if_freq) const;
    double GetSingleCorrection(int rf_band, double center, double if_freq,
                               double if_center_offset) const;

    int GetIFBandIndex(double freq) const;
    const RFCorrMaple* GetRFBandStruct(double freq) const;

    // For the device and tests: the solved indices and the temperature.
    int GainIndex() const { return m_gain; }
    int AttenIndex() const { return m_atten; }
    int TempIndex() const { return m_t; }
    float TempFraction() const { return m_tp; }

    // Tables, public like the settings record: the service calls and the
    // tests read them directly.
    int32_t m_gain = 0;
    int32_t m_atten = 0;
    std::unique_ptr<RFCorrMaple> rf_bands[MAPLE_RF_ROWS];
    std::unique_ptr<IFCorrMaple> if_bands[MAPLE_IF_TABLES];
    SlopePoly_Maple slope_functions[MAPLE_TEMPS][MAPLE_ROUGH_ROWS];
    std::unique_ptr<TriggerCorrMaple> m_trigDelays;
    float internalTemps[MAPLE_TEMPS];
    int32_t auto_high_bands[MAPLE_TEMPS];
    int32_t auto_low_bands[MAPLE_TEMPS];
    int32_t auto_high_ix[MAPLE_TEMPS];
    int32_t auto_low_ix[MAPLE_TEMPS];
    uint8_t rg_low[MAPLE_ROUGH_ROWS];
    uint8_t rg_high[MAPLE_ROUGH_ROWS];
    double m_IFSelfCal[SELF_CAL_CONSTANTS];
    double timebase_corrections[MAPLE_TIMEBASE_SLOTS];
    int32_t mapleVersion;

private:
    void SetTemperature(double temp);
    void SolveGainAtten();
    // Margin of a pair at the current temperature's fixed point.
    float Margin(int gain, int atten) const;
    void FindMinCorrections();
    void SetDefaultTemps();
    const RFCorrMaple& Row(int rf_band) const;
    // The interpolation of the table's two temperatures for curve index i.
    float TempMix(const float* c0, const float* c1, int i) const;
};

// DeviceMaple::AddTimebaseCorrection without the device: the new ratio is
// the current one less ppm * 1e-6; with a free slot it is stored and its
// flash write handed to write. False, with nothing changed, when the slots
// are full.
bool add_timebase_correction_maple(CorrectionsMaple& corr, double ppm, const FlashPageWriter& write);

// Row of the Maple's LO table for a frequency: the first row whose upper
// edge lies above it; 10 when none does.
int maple_lo_row(int mapleVersion, double freq);

}  // namespace qs
