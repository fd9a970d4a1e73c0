#include "calibration/corrections_maple.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>

#include "dsp/qs_lib.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace qs {

const GainAtten g_auto_table[MAPLE_AUTO_TABLE_ROWS] = {
    {3, 0}, {2, 0}, {3, 1}, {2, 1}, {3, 2}, {2, 2}, {3, 3},
    {1, 0}, {0, 0}, {1, 1}, {0, 1}, {1, 2}, {0, 2}, {1, 3},
};

namespace {

// Upper edges of the LO table rows of each revision, Hz. They must agree
// with the LO tables of the sweep planning.
const double kMapleRowTop1[MAPLE_RF_ROWS] = {16e6,   1890e6, 2510e6, 3150e6, 4310e6,
                                             5110e6, 5590e6, 5610e6, 5810e6, 6800e6};
const double kMapleRowTop2[MAPLE_RF_ROWS] = {16e6,   1890e6, 2510e6, 3150e6, 4210e6,
                                             5110e6, 5510e6, 5610e6, 5810e6, 6800e6};

constexpr size_t OFF_ROUGH_LOW = offsetof(CorrOnFlash_Maple, rough_low);
constexpr size_t OFF_ROUGH_HIGH = offsetof(CorrOnFlash_Maple, rough_high);
constexpr size_t OFF_RF = offsetof(CorrOnFlash_Maple, rf_bands);
constexpr size_t OFF_IF = offsetof(CorrOnFlash_Maple, if_bands);
constexpr size_t OFF_SLOPE = offsetof(CorrOnFlash_Maple, if_curve);
constexpr size_t OFF_TEMPS = offsetof(CorrOnFlash_Maple, temps);
constexpr size_t OFF_TRIG = offsetof(CorrOnFlash_Maple, trig_delays);
constexpr size_t OFF_OSC = offsetof(CorrOnFlash_Maple, oscRatio);
constexpr size_t OFF_TIMEBASE = offsetof(CorrOnFlash_Maple, timebase_cals);
constexpr size_t IF_TABLE_BYTES = sizeof(IFCorrMaple::b);
constexpr size_t SLOPE_BYTES = 6 * sizeof(float);

int clamp_index(int v, int lo, int hi) { return v < lo ? lo : (v > hi ? hi : v); }


}  // namespace

int maple_lo_row(int mapleVersion, double freq) {
    const double* top = mapleVersion == 2 ? kMapleRowTop2 : kMapleRowTop1;
    for (int row = 0; row < MAPLE_RF_ROWS; ++row)
        if (top[row] > freq) return row;
    return MAPLE_RF_ROWS;
}

CorrectionsMaple::CorrectionsMaple(int version) : Corrections(ss), mapleVersion(version) {
    const RFCorrParams* params = rf_corr_params_maple(version);
    for (int row = 0; row < MAPLE_RF_ROWS; ++row) rf_bands[row].reset(new RFCorrMaple(params[row]));
    for (int i = 0; i < MAPLE_IF_TABLES; ++i) if_bands[i].reset(new IFCorrMaple(IFCentersMaple[i]));
    m_trigDelays.reset(new TriggerCorrMaple());
    SetDefaultTemps();
    std::memset(rg_low, 0, sizeof rg_low);
    std::memset(rg_high, 8, sizeof rg_high);
    for (int t = 0; t < MAPLE_TEMPS; ++t) {
        auto_high_bands[t] = auto_low_bands[t] = 1;
        auto_high_ix[t] = auto_low_ix[t] = 1;
    }
    std::memset(m_IFSelfCal, 0, sizeof m_IFSelfCal);
    // Erased slots, so that appending to a device with a blank image acts
    // as on one with an empty list.
    std::fill(std::begin(timebase_corrections), std::end(timebase_corrections),
              std::numeric_limits<double>::quiet_NaN());
}

CorrectionsMaple::~CorrectionsMaple() = default;

void CorrectionsMaple::SetDefaultTemps() {
    for (int i = 0; i < MAPLE_TEMPS; ++i) internalTemps[i] = static_cast<float>(i * 10 + 5);
}

bool CorrectionsMaple::Initialize(const unsigned char* mem) {
    if (is_flash_blank(mem + OFF_ROUGH_LOW, 32)) return false;

    std::memcpy(rg_low, mem + OFF_ROUGH_LOW, sizeof rg_low);
    std::memcpy(rg_high, mem + OFF_ROUGH_HIGH, sizeof rg_high);

    size_t off = OFF_RF;
    for (auto& row : rf_bands) {
        row->DeflattenBytes(mem + off);
        off += row->ByteCount();
    }
    for (int i = 0; i < MAPLE_IF_TABLES; ++i) if_bands[i]->DeflattenBytes(mem + OFF_IF + i * IF_TABLE_BYTES);
    for (int t = 0; t < MAPLE_TEMPS; ++t)
        for (int r = 0; r < MAPLE_ROUGH_ROWS; ++r)
            slope_functions[t][r].DeflattenBytes(mem + OFF_SLOPE + size_t(t * MAPLE_ROUGH_ROWS + r) * SLOPE_BYTES);

    // The factory stores temperatures below zero offset by 512.
    for (int i = 0; i < MAPLE_TEMPS; ++i) {
        float v = image_read<float>(mem, OFF_TEMPS + i * sizeof(float));
        if (v > 256.0f) v -= 512.0f;
        internalTemps[i] = v;
    }
    m_trigDelays->DeflattenBytes(mem + OFF_TRIG);
    m_oscRatio = image_read<double>(mem, OFF_OSC);
    std::memcpy(timebase_corrections, mem + OFF_TIMEBASE, sizeof timebase_corrections);

    // Timebase values are appended to erased slots (NaN); the last one
    // written is the one in force.
    if (!std::isnan(timebase_corrections[0])) {
        int last = 0;
        while (last + 1 < MAPLE_TIMEBASE_SLOTS && !std::isnan(timebase_corrections[last + 1])) ++last;
        m_oscRatio = timebase_corrections[last];
    }

    FindMinCorrections();
    return true;
}

void CorrectionsMaple::FindMinCorrections() {
    // Rows 0 and 9 lie outside the range the automatic choice looks at.
    for (int t = 0; t < MAPLE_TEMPS; ++t) {
        float minHigh = 200.0f;
        float minLow = 200.0f;
        for (int row = 1; row <= 8; ++row) {
            const RFCorrMaple& r = *rf_bands[row];
            const float* high = r.b[1][3][t];
            const float* low = r.b[1][0][t];
            int ih = 0;
            int il = 0;
            for (int i = 1; i < r.m_steps; ++i) {
                if (high[i] < high[ih]) ih = i;
                if (low[i] < low[il]) il = i;
            }
            if (high[ih] < minHigh) {
                minHigh = high[ih];
                auto_high_bands[t] = row;
                auto_high_ix[t] = ih;
            }
            if (low[il] < minLow) {
                minLow = low[il];
                auto_low_bands[t] = row;
                auto_low_ix[t] = il;
            }
        }
    }
}

void CorrectionsMaple::ZeroCorrections() {
    m_oscRatio = 1.0;
    for (auto& row : rf_bands) row->Zero();
    for (auto& t : if_bands) t->Zero();
    SetDefaultTemps();
}

void CorrectionsMaple::ClearSelfCalConstants() { std::memset(m_IFSelfCal, 0, sizeof m_IFSelfCal); }

void CorrectionsMaple::SetSelfCalConstants(double* data) {
    if (data) std::memcpy(m_IFSelfCal, data, sizeof m_IFSelfCal);
}

// --- Gain and attenuation ---------------------------------------------------

void CorrectionsMaple::SetTemperature(double temp) {
    // Index 11 never takes part: at or above index 10 the curve of 10 reads.
    PlaceTemperature(internalTemps, 10, 9, temp);
}

bool CorrectionsMaple::Configure(double temp, const Settings& set, const SweepInfo&) {
    m_temp = temp;
    m_ref = set.m_reference;
    SetTemperature(temp);

    // Validation keeps gain in -1..3 and attenuation at most 30 dB; the
    // clamps only keep a bad record from indexing outside the tables.
    m_gain = set.m_gain < 0 ? -1 : std::min(set.m_gain, 3);
    if (!(set.m_atten >= 0.0)) {
        m_atten = -1;
    } else {
        m_atten = std::min(static_cast<int>(std::min(set.m_atten, 40.0) / 10.0), 3);
        if (m_gain >= 0) return true;
    }
    SolveGainAtten();
    if (m_atten < 0) m_atten = 3;
    if (m_gain < 0) m_gain = 1;
    return true;
}

float CorrectionsMaple::Margin(int gain, int atten) const {
    const bool high = gain >= 2;
    const int row = clamp_index(high ? auto_high_bands[m_t] : auto_low_bands[m_t], 0, MAPLE_RF_ROWS - 1);
    const RFCorrMaple& r = *rf_bands[row];
    const int ix = clamp_index(high ? auto_high_ix[m_t] : auto_low_ix[m_t], 0, r.m_steps - 1);
    return static_cast<float>(static_cast<double>(r.b[atten][gain][m_t][ix]) - m_ref);
}

void CorrectionsMaple::SolveGainAtten() {
    const bool autoGain = m_gain < 0;
    const bool autoAtten = m_atten < 0;

    if (autoGain && autoAtten) {
        // Warm and well below 0 dBm the measured ladder beats the tables.
        if (m_temp > 31.0 && m_temp < 49.0 && m_ref < -19.0) {
            static const struct {
                double below;
                GainAtten pair;
            } ladder[] = {{-49.0, {3, 0}}, {-44.0, {2, 0}}, {-39.0, {3, 1}}, {-34.0, {2, 1}},
                          {-29.0, {3, 2}}, {-24.0, {2, 2}}, {-19.0, {3, 3}}};
            for (const auto& step : ladder) {
                if (m_ref < step.below) {
                    m_gain = step.pair.gain;
                    m_atten = step.pair.atten;
                    return;
                }
            }
            return;
        }
        for (const GainAtten& pair : g_auto_table) {
            if (Margin(pair.gain, pair.atten) > 7.0f) {
                m_gain = pair.gain;
                m_atten = pair.atten;
                return;
            }
        }
        return;
    }
    if (autoAtten) {
        for (int a = 3; a >= 1; --a) {
            if (Margin(m_gain, a) > 10.0f) {
                m_atten = a;
                return;
            }
        }
        return;
    }
    if (autoGain) {
        for (int g = 3; g >= 1; --g) {
            if (Margin(g, m_atten) > 10.0f) {
                m_gain = g;
                return;
            }
        }
    }
}

uint8_t CorrectionsMaple::GetGain(int) { return static_cast<uint8_t>(m_gain); }

uint8_t CorrectionsMaple::GetAtten(int) {
    const int a = clamp_index(m_atten, 0, 3);
    if (a == 3) return 30;
    // Gains 0 and 2 run with 5 dB more in the attenuator.
    if (m_gain == 0 || m_gain == 2) return static_cast<uint8_t>(a * 10 + 5);
    return static_cast<uint8_t>(a * 10);
}

// --- Rough gains ------------------------------------------------------------

void CorrectionsMaple::SetRoughGains(const uint8_t* low, const uint8_t* high) {
    if (low) std::memcpy(rg_low, low, sizeof rg_low);
    if (high) std::memcpy(rg_high, high, sizeof rg_high);
}

int CorrectionsMaple::GetRoughGainIndex(double freq) const {
    double i = std::trunc(freq / 2e7);
    if (std::fabs(i * 2e7 - freq) > 1e7) i += 1.0;
    return clamp_trunc(i, 0, MAPLE_ROUGH_ROWS - 1);
}

uint8_t CorrectionsMaple::GetRoughGain(double freq) const {
    const int i = GetRoughGainIndex(freq);
    return m_gain < 2 ? rg_low[i] : rg_high[i];
}

int CorrectionsMaple::GetRoughGainArray(uint8_t arr[ROUGH_GAIN_ARRAY_BYTES],
                                        const PatchInfo& patches) const {
    constexpr int MAX_PAIRS = ROUGH_GAIN_ARRAY_BYTES / 2;
    int pairs = 0;
    int cur = 0;  // byte index of the current count
    auto open = [&](int count, uint8_t g) {
        if (pairs == MAX_PAIRS) return false;
        cur = pairs * 2;
        arr[cur] = static_cast<uint8_t>(count);
        arr[cur + 1] = g;
        ++pairs;
        return true;
    };

    int runBand = 0;
    uint8_t prevGain = 0;
    const int n = patches.NumPatches();
    for (int k = 0; k < n; ++k) {
        const Patch& p = patches[k];
        // The low band's row stands for 0 Hz whatever its centre field says.
        const uint8_t g = GetRoughGain(p.band == 0 ? 0.0 : p.center_freq);
        const int band = p.band & 0xFF;
        if (k == 0 || band != runBand) {
            if (!open(1, g)) break;
            runBand = band;
        } else if (g == prevGain) {
            // A count is one byte: a full one continues in a pair of count 0.
            if (++arr[cur] == 255 && !open(0, g)) break;
        } else if (!open(1, g)) {
            break;
        }
        prevGain = g;
    }
    return pairs;
}

int CorrectionsMaple::AddTimebaseCorrection(double value) {
    for (int slot = 0; slot < MAPLE_TIMEBASE_SLOTS; ++slot) {
        if (std::isnan(timebase_corrections[slot])) {
            timebase_corrections[slot] = value;
            m_oscRatio = value;
            return static_cast<int>(OFF_TIMEBASE) + 8 * slot;
        }
    }
    return -1;
}

bool add_timebase_correction_maple(CorrectionsMaple& corr, double ppm, const FlashPageWriter& write) {
    const double value = corr.GetOscRatio() - ppm * 1e-6;
    const int offset = corr.AddTimebaseCorrection(value);
    if (offset < 0) return false;
    const TimebaseFlashWrite w = make_timebase_write(offset, value);
    if (write) write(w.page, w.data);
    return true;
}

// --- Correction terms -------------------------------------------------------

const RFCorrMaple& CorrectionsMaple::Row(int rf_band) const {
    return *rf_bands[clamp_index(rf_band, 0, MAPLE_RF_ROWS - 1)];
}

float CorrectionsMaple::TempMix(const float* c0, const float* c1, int i) const {
    return c0[i] * (1.0f - m_tp) + c1[i] * m_tp;
}

double CorrectionsMaple::GetRFCorrection(int rf_band, double freq) const {
    const RFCorrMaple& r = Row(rf_band);
    const int a = clamp_index(m_atten, 0, 3);
    const int g = clamp_index(m_gain, 0, 3);
    const float* c0 = r.b[a][g][m_t];
    const float* c1 = r.b[a][g][m_t + 1];

    if (&r != rf_bands[0].get()) {
        // Read at the step at or below freq, no interpolation in frequency.
        const int i = clamp_trunc((freq - r.m_start) / r.m_stepSize, 0, r.m_steps - 1);
        return TempMix(c0, c1, i);
    }

    // The low band: 30 steps per decade from m_start, interpolated.
    const double f = freq < 0.0 ? 1.0 : freq;
    const double x = 30.0 * std::log10(f / r.m_start);
    int lo = 0;
    int hi = 1;
    float p = 0.0f;
    // Below the first step (0 Hz gives minus infinity) the first two values
    // are read as they stand.
    if (x >= 0.0) {
        const int n = static_cast<int>(std::floor(std::min(x, 1e9)));
        lo = n;
        hi = n + 1;
        if (hi >= r.m_steps) {
            hi = r.m_steps - 1;
            lo = r.m_steps - 2;
        }
        // The fraction of the unclamped step: above the table the last two
        // values are interpolated, not extrapolated to its end.
        p = static_cast<float>(x - n);
    }
    const float q = 1.0f - p;
    return (c0[lo] * q + c0[hi] * p) * (1.0f - m_tp) + (c1[lo] * q + c1[hi] * p) * m_tp;
}

double CorrectionsMaple::GetIFCorrection(int rf_band, double freq, double) const {
    const IFCorrMaple& t = *if_bands[clamp_index(Row(rf_band).if_band, 0, MAPLE_IF_TABLES - 1)];
    // 78,125 Hz per step, index 191 at the centre.
    const double x = freq / 78125.0;
    const float p = static_cast<float>(x - static_cast<double>(std::floor(static_cast<float>(x))));
    const int i = clamp_trunc(std::floor(x) + 191.0, 0, IFCorrMaple::steps - 2);
    const float q = 1.0f - p;
    const float v = (t.b[m_t][i] * q + t.b[m_t][i + 1] * p) * (1.0f - m_tp) +
                    (t.b[m_t + 1][i] * q + t.b[m_t + 1][i + 1] * p) * m_tp;
    return -v;
}

double CorrectionsMaple::GetSlopeCorrection(double center, double if_freq) const {
    int r = GetRoughGainIndex(center);
    // One temperature only: the slope is not interpolated.
    if (m_gain >= 2) return -slope_functions[m_t][r].Solve(if_freq);
    if (r == 1) return -slope_functions[m_t][0].Solve(if_freq);
    double v = -slope_functions[m_t][r].Solve(if_freq);
    // At low gain the slope of the lowest rows was measured too steep.
    if (r <= 6) v *= 1.0 - (7 - r) * 0.1;
    return v;
}

double CorrectionsMaple::GetSingleCorrection(int rf_band, double center, double if_freq,
                                             double if_center_offset) const {
    if (&Row(rf_band) == rf_bands[0].get()) return GetRFCorrection(0, center + if_freq);
    return GetRFCorrection(rf_band, center) +
           (GetSlopeCorrection(center, if_freq) + GetIFCorrection(rf_band, if_freq, if_center_offset));
}

int CorrectionsMaple::GetIFBandIndex(double freq) const {
    return Row(maple_lo_row(mapleVersion, freq)).if_band;
}

const RFCorrMaple* CorrectionsMaple::GetRFBandStruct(double freq) const {
    return &Row(maple_lo_row(mapleVersion, freq));
}

int CorrectionsMaple::GetTriggerDelay(double freq) {
    const int r = clamp_index(maple_lo_row(mapleVersion, freq), 0, MAPLE_RF_ROWS - 1);
    const float v = m_trigDelays->b[m_t][r] * (1.0f - m_tp) + m_trigDelays->b[m_t + 1][r] * m_tp;
    return round_clamped(v);
}

// --- Arrays -----------------------------------------------------------------

namespace {

void to_linear(VecDouble& v, size_t count) {
    for (size_t i = 0; i < count && i < v.size(); ++i) v[i] = std::pow(10.0, 0.05 * v[i]);
}

}  // namespace

void CorrectionsMaple::BuildCorrectionArray(const Settings* set, const SweepInfo* info, bool) {
    const std::vector<Patch>& patches = info->patchInfo.Patches();
    const size_t quarter = info->fftSize > 0 ? size_t(info->fftSize / 4) : 0;
    const size_t total = quarter * patches.size();
    // The tail of a narrow sweep, which no patch fills, stays neutral in
    // either scale.
    m_carray.assign(total, set->m_logScale ? 0.0 : 1.0);
    if (set->m_fullScale) return;

    size_t pos = 0;
    for (const Patch& p : patches) {
        double f = static_cast<double>(p.if_offset - (p.length / 2) * info->dsRatio) * info->binSize;
        double c = p.center_freq;
        if (info->dsRatio > 1 && p.band != 0) {
            // A narrow sweep reads the RF tables at the 20 MHz grid point
            // and the slope from there, but the IF filter where the slice
            // truly sits: around the wanted centre, within 400 kHz of the
            // LO's. The written offset put the whole slice at the IF's
            // -10 MHz edge, and narrow levels read 0.2 to 1.3 dB off.
            const double lo = p.center_freq;
            const double grid = c > 2e7 ? 2e7 * std::floor(c / 2e7 + 0.5) : c;
            double rf = info->bandZeroNarrowCenter - 1e7 / info->dsRatio;
            const double rfTable = GetRFCorrection(p.band, grid);
            for (int k = 0; k < p.length && pos < total; ++k) {
                m_carray[pos++] = rfTable + (GetSlopeCorrection(grid, rf - grid) +
                                             GetIFCorrection(p.band, rf - lo, p.if_center));
                rf += info->binSize;
            }
            continue;
        }
        if (info->dsRatio > 1) {
            // The low band samples directly: the slice is the RF itself.
            c = info->bandZeroNarrowCenter;
            f = -1e7 / info->dsRatio;
        }
        for (int k = 0; k < p.length && pos < total; ++k) {
            m_carray[pos++] = GetSingleCorrection(p.band, c, f, p.if_center);
            f += info->binSize;
        }
    }
    if (!set->m_logScale) to_linear(m_carray, pos);
}

void CorrectionsMaple::BuildIFCorrectionArray(const Settings*, const SweepInfo* info, VecDouble& array) {
    const int n = info->fftSize > 0 ? info->fftSize / 2 : 0;
    array.assign(size_t(n), 0.0);
    if (info->initialBand != 0) {
        if (info->patchInfo.NumPatches() == 0) return;
        const Patch& p = info->patchInfo[0];
        const double rf = GetRFCorrection(p.band, p.center_freq);
        double f = -2e7;
        for (int i = 0; i < n; ++i) {
            array[size_t(i)] = GetSlopeCorrection(p.center_freq, f) + (rf + GetIFCorrection(p.band, f, p.if_center));
            f += info->binSize;
        }
        return;
    }
    for (int i = 0; i < n; ++i) array[size_t(i)] = GetRFCorrection(0, (4e7 / n) * i);
}

void CorrectionsMaple::BuildDirectCorrectionArray(VecDouble& array, double center) {
    array.assign(2048, GetRFCorrection(0, center));
}

void CorrectionsMaple::BuildQSTGCorrectionArray(const Settings* set, const SweepInfo* info,
                                                int TGptsPer20M, int gain, int atten) {
    const size_t total = info->traceLen > -8 ? size_t(info->traceLen + 8) : 0;
    m_atten = clamp_index(atten, 0, 3);
    m_gain = clamp_index(gain, 0, 3);
    m_carray.assign(total, set->m_logScale ? 0.0 : 1.0);
    if (set->m_fullScale) return;

    size_t pos = 0;
    int first = info->tgInitialCount;
    for (const Patch& p : info->patchInfo.Patches()) {
        for (int j = std::max(first, 0); j < TGptsPer20M && pos < total; ++j) {
            const double f = (j + 0.5) * 2e7 / TGptsPer20M - 1e7;
            m_carray[pos++] = GetSingleCorrection(p.band, p.center_freq, f, p.if_center);
        }
        first = 0;
    }
    if (!set->m_logScale) to_linear(m_carray, pos);
}

}  // namespace qs
