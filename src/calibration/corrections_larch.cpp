#include "calibration/corrections_larch.h"

#include <climits>
#include <cmath>
#include <cstring>

#include "device/lo_tables_larch.h"
#include "dsp/qs_lib.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace qs {

const CorrectionsLarch::GainAtten CorrectionsLarch::g_auto_table[AUTO_TABLE_ROWS] = {
    {3, 0}, {2, 0}, {2, 1}, {2, 2}, {1, 0}, {1, 1}, {1, 2}, {1, 3}, {0, 3},
};

namespace {

constexpr double kSelfCalFirstHz = -11250000.0;  // point 0 of the self-calibration
constexpr double kSelfCalStepHz = 39062.5;
constexpr double kIFTableTopHz = 30000000.0;  // point 0 of an IF table, above the centre
constexpr double kIFTableStepHz = 200000.0;
// A margin must exceed this for a gain to be taken.
constexpr float kMarginDb = 10.0f;

int clamp_index(int v, int lo, int hi) { return v < lo ? lo : (v > hi ? hi : v); }

// Floor of a double into lo..hi; NaN reads as lo. Converting an
// out-of-range double to int is undefined, so the clamp comes first.
int clamp_floor(double d, int lo, int hi) {
    if (!(d > lo)) return lo;
    if (d >= hi) return hi;
    return static_cast<int>(std::floor(d));
}

void to_linear(VecDouble& v) {
    for (double& x : v) x = std::pow(10.0, 0.05 * x);
}

// Bands whose gain-2 rows are held 10 dB lower when judged.
bool gain2_penalised(int band) { return band == 0 || band == 1 || band == 3; }

constexpr size_t OFF_RF[LARCH_RF_TABLES] = {
    offsetof(CorrOnFlash, band0A), offsetof(CorrOnFlash, band0B), offsetof(CorrOnFlash, band0C),
    offsetof(CorrOnFlash, band1),  offsetof(CorrOnFlash, band2),  offsetof(CorrOnFlash, band3),
};
constexpr size_t OFF_IF[4] = {offsetof(CorrOnFlash, IF0), offsetof(CorrOnFlash, IF1),
                              offsetof(CorrOnFlash, IF2), offsetof(CorrOnFlash, IF3)};
constexpr size_t OFF_TEMPS = offsetof(CorrOnFlash, internalTemp);
constexpr size_t OFF_TRIG = offsetof(CorrOnFlash, triggerDelays);
constexpr size_t OFF_OSC = offsetof(CorrOnFlash, oscRatio);

std::unique_ptr<RFCorrLarch> make_rf(int i) {
    const RFCorrParams& p = RFCorrParamsLarch[i];
    return std::unique_ptr<RFCorrLarch>(new RFCorrLarch(p.steps, p.start, p.stop, p.stepSize));
}

}  // namespace

CorrectionsLarch::CorrectionsLarch()
    : Corrections(sizeof(CorrOnFlash)),
      B0A(make_rf(0)), B0B(make_rf(1)), B0C(make_rf(2)), B1(make_rf(3)), B2(make_rf(4)), B3(make_rf(5)),
      m_trigDelays(new TriggerCorrLarch()) {
    for (int i = 0; i < 4; ++i) IFBands[i].reset(new IFCorrLarch(IFCentersLarch[i]));
    for (int i = 0; i < LARCH_TEMPS; ++i) internalTemps[i] = static_cast<float>(i * 10 + 15);
    std::memset(m_IFSelfCal, 0, sizeof m_IFSelfCal);
}

CorrectionsLarch::~CorrectionsLarch() = default;

RFCorrLarch* CorrectionsLarch::RFTable(int i) const {
    RFCorrLarch* const tables[LARCH_RF_TABLES] = {B0A.get(), B0B.get(), B0C.get(),
                                                  B1.get(),  B2.get(),  B3.get()};
    return tables[i < 0 ? 0 : (i >= LARCH_RF_TABLES ? LARCH_RF_TABLES - 1 : i)];
}

void CorrectionsLarch::ZeroCorrections() {
    m_oscRatio = 1.0;
    for (int i = 0; i < LARCH_RF_TABLES; ++i) RFTable(i)->Zero();
    for (int i = 0; i < LARCH_TEMPS; ++i) internalTemps[i] = static_cast<float>(i * 10 + 15);
}

bool CorrectionsLarch::Initialize(const unsigned char* mem) {
    ZeroCorrections();
    if (is_flash_blank(mem + OFF_RF[0], 8)) return false;

    for (int i = 0; i < LARCH_RF_TABLES; ++i) RFTable(i)->DeflattenBytes(mem + OFF_RF[i]);
    for (int i = 0; i < 4; ++i) IFBands[i]->DeflattenBytes(mem + OFF_IF[i]);
    m_trigDelays->DeflattenBytes(mem + OFF_TRIG);
    std::memcpy(internalTemps, mem + OFF_TEMPS, sizeof internalTemps);
    m_oscRatio = image_read<double>(mem, OFF_OSC);

    // The factory's 40 MHz point of B0C is unreliable at the lower six
    // temperatures; it is rebuilt from its neighbours.
    for (int a = 0; a < 4; ++a)
        for (int g = 0; g < 4; ++g)
            for (int t = 0; t <= 5; ++t) {
                float* c = B0C->b[a][g][t];
                c[2] = (c[1] + c[3]) / 2.0f;
            }
    return true;
}

uint8_t CorrectionsLarch::GetGain(int band) {
    return static_cast<uint8_t>(m_bandGains[band < 0 ? 0 : (band >= LARCH_BANDS ? LARCH_BANDS - 1 : band)]);
}

uint8_t CorrectionsLarch::GetAtten(int band) {
    return static_cast<uint8_t>(
        m_bandAttens[band < 0 ? 0 : (band >= LARCH_BANDS ? LARCH_BANDS - 1 : band)] * 10);
}

void CorrectionsLarch::ClearSelfCalConstants() { std::memset(m_IFSelfCal, 0, sizeof m_IFSelfCal); }

void CorrectionsLarch::SetSelfCalConstants(double* data) {
    if (data) std::memcpy(m_IFSelfCal, data, sizeof m_IFSelfCal);
}

// --- Gain and attenuation ---------------------------------------------------

void CorrectionsLarch::SetTemperature(double temp) {
    // Index 7 never takes part: at or above index 6 the curve of 7 reads whole.
    PlaceTemperature(internalTemps, 6, 6, temp);
}

bool CorrectionsLarch::Configure(double temp, const Settings& set, const SweepInfo&) {
    m_temp = temp;
    m_ref = set.Ref();
    SetTemperature(temp);

    double a = set.Atten();
    if (!(a >= -1.0)) a = -1.0;  // NaN too
    if (a > 30.0) a = 30.0;
    const int g = set.Gain();
    for (int band = 0; band < LARCH_BANDS; ++band) {
        m_bandAttens[band] = a < 0.0 ? -1 : static_cast<int>(std::floor(a / 10.0));
        m_bandGains[band] = -1;
    }
    if (a >= 0.0 && g != -1) {
        for (int32_t& bg : m_bandGains) bg = clamp_index(g, 0, 3);
        return true;
    }
    for (int band = 0; band < LARCH_BANDS; ++band) {
        const LOLUTLarch& row = lolutLarch[band];
        double s = std::max(set.Start(), row.minRF);
        if (row.maxRF < s) s = row.minRF;
        GetBandGain(band, s, set.Stop());
    }
    return true;
}

int CorrectionsLarch::FindMinimum(const RFCorrLarch& r, const float* curve, double s, double e) const {
    // The start index of float(s); the walk itself steps in float as the
    // factory's search did, so that the same point wins.
    int i = clamp_trunc((static_cast<double>(static_cast<float>(s)) - r.m_start) / r.m_stepSize, 0,
                        r.m_steps - 1);
    float best = 2000.0f;
    int n = i;
    for (float f = static_cast<float>(s); static_cast<double>(f) < e && i < r.m_steps;
         f = static_cast<float>(static_cast<double>(f) + r.m_stepSize), ++i) {
        if (curve[i] < best) {
            best = curve[i];
            n = i;
        }
    }
    return n;
}

float CorrectionsLarch::Margin(int band, const RFCorrLarch& r, int gain, int atten, int n) const {
    float m = static_cast<float>(static_cast<double>(r.b[atten][gain][m_t][n]) - m_ref);
    if (gain == 2 && gain2_penalised(band)) m -= 10.0f;
    return m;
}

void CorrectionsLarch::GetBandGain(int band, double start, double stop) {
    band = clamp_index(band, 0, LARCH_BANDS - 1);
    const RFCorrLarch& r = *GetBandStruct(band, start);
    double s = std::max(r.m_start, start);
    if (r.m_stop < s) s = r.m_start;
    double e = std::min(r.m_stop, stop);
    if (e < r.m_start) e = r.m_stop;

    const int fixedAtten = m_bandAttens[band];
    if (fixedAtten != -1) {
        const int a = clamp_index(fixedAtten, 0, 3);
        const int n = FindMinimum(r, r.b[a][0][m_t], s, e);
        int gain = 0;
        for (int g = 3; g >= 1; --g) {
            if (Margin(band, r, g, a, n) > kMarginDb) {
                gain = g;
                break;
            }
        }
        m_bandGains[band] = gain;
        return;
    }

    const int n = FindMinimum(r, r.b[0][0][m_t], s, e);
    GainAtten result = {0, 0};
    for (int row = 1; row <= AUTO_TABLE_ROWS; ++row) {
        if (row == 6 && m_ref > 1.0) continue;
        const GainAtten& pair = g_auto_table[row - 1];
        const float margin = Margin(band, r, pair.gain, pair.atten, n);
        if (!(margin > kMarginDb)) continue;
        if (m_ref > -9.0 && pair.gain == 1 && pair.atten == 0) {
            // Near the top of the range this row runs the path too hot: the
            // high gain behind full attenuation stands in, unless a later
            // row qualifies and the margin here was small.
            result = {2, 3};
            if (margin >= 16.0f) break;
            continue;
        }
        result = pair;
        break;
    }
    // Neighbouring bands share parts of the path; these pairings keep them
    // in ranges that were measured together.
    if (band == 4 && m_bandGains[3] == 1) {
        if (m_bandAttens[3] == 0) result.atten = 1;
        else if (m_bandAttens[3] == 2) result.atten = 3;
    }
    if (band == 2) {
        if (m_bandGains[1] == 1 && m_bandAttens[1] == 0)
            result = {1, 2};
        else if (m_bandGains[1] == 2 && m_bandAttens[1] == 2 && result.gain == 2 && result.atten == 2)
            result = {2, 3};
    }
    m_bandGains[band] = result.gain;
    m_bandAttens[band] = result.atten;
}

// --- Correction terms -------------------------------------------------------

RFCorrLarch* CorrectionsLarch::GetBandStruct(int band, double freq) const {
    if (band == 0 || band == 1) {
        if (freq < B0A->m_stop) return B0A.get();
        if (freq < B0B->m_stop) return B0B.get();
        return B0C.get();
    }
    if (band == 2) return B1.get();
    if (band == 3) return B2.get();
    return B3.get();
}

double CorrectionsLarch::GetSelfCalCorrection(double freq) const {
    const double x = (freq - kSelfCalFirstHz) / kSelfCalStepHz;
    const int i = clamp_floor(x, 0, SELF_CAL_CONSTANTS - 2);
    // The fraction is taken from the clamped point: past either end the
    // first or last pair goes on in a straight line, as the filter's edge does.
    const double p = static_cast<float>(x - i);
    return -((1.0 - p) * m_IFSelfCal[i] + p * m_IFSelfCal[i + 1]);
}

double CorrectionsLarch::GetIFCorrection(int band, double freq, double center_offset) const {
    const int k = band <= 1 ? 0 : clamp_index(band - 1, 1, 3);
    const IFCorrLarch& t = *IFBands[k];
    // The factory's table runs the other way from freq.
    const double x2 = (kIFTableTopHz - freq + center_offset) / kIFTableStepHz;
    const int i2 = clamp_floor(x2, 0, IFCorrLarch::steps - 2);
    const float p2 = static_cast<float>(x2 - i2);
    const float q2 = 1.0f - p2;
    const float v = (t.b[m_t][i2] * q2 + t.b[m_t][i2 + 1] * p2) * (1.0f - m_tp) +
                    (t.b[m_t + 1][i2] * q2 + t.b[m_t + 1][i2 + 1] * p2) * m_tp;
    return -static_cast<double>(v) + GetSelfCalCorrection(freq);
}

double CorrectionsLarch::GetSingleCorrection(int band, double CF, double IF, double if_center_offset) const {
    band = clamp_index(band, 0, LARCH_BANDS - 1);
    double f = CF + IF;
    const int a = clamp_index(m_bandAttens[band], 0, 3);
    const int g = clamp_index(m_bandGains[band], 0, 3);
    const RFCorrLarch& r = *GetBandStruct(band, f);
    const double ifc = GetIFCorrection(band, IF, if_center_offset);

    const int last = r.m_steps - 1;
    int lo, hi;
    float p;
    if (&r == B0A.get()) {
        // The lowest table counts steps of 1/20 decade from its start.
        if (f < 0.0) f += 1e7;
        const double x = 20.0 * std::log10(f / r.m_start);
        if (!(x >= 0.0)) {
            lo = 0;
            hi = 1;
            p = 0.0f;
        } else {
            lo = clamp_floor(x, 0, last);
            hi = lo + 1;
            if (hi > last) {
                hi = last;
                lo = last - 1;
            }
            // The fraction of the unclamped step: above the table the last
            // two values are interpolated, not extrapolated.
            p = std::isfinite(x) ? static_cast<float>(x - std::floor(x)) : 0.0f;
        }
    } else {
        const double x = (f - r.m_start) / r.m_stepSize;
        if (!(x >= 0.0)) {
            // Below the table (a patch reaching under its row): its first value.
            lo = 0;
            hi = 1;
            p = 0.0f;
        } else {
            lo = clamp_trunc(x, 0, last);
            hi = lo + 1;
            if (hi > last) {
                hi = last;
                lo = last - 1;
            }
            p = static_cast<float>((r.m_stepSize - (hi * r.m_stepSize + r.m_start - f)) / r.m_stepSize);
        }
    }
    const float* c0 = r.b[a][g][m_t];
    const float* c1 = r.b[a][g][m_t + 1];
    const float q = 1.0f - p;
    const float v = (c0[lo] * q + c0[hi] * p) * (1.0f - m_tp) + (c1[lo] * q + c1[hi] * p) * m_tp;
    return static_cast<double>(v) + ifc;
}

int CorrectionsLarch::GetTriggerDelay(double freq) {
    const int h = clamp_index(get_hardware_band_Larch(freq), 0, 3);
    const float v = m_trigDelays->b[m_t][h] * (1.0f - m_tp) + m_trigDelays->b[m_t + 1][h] * m_tp;
    return round_clamped(v);
}

// --- Arrays -----------------------------------------------------------------

void CorrectionsLarch::BuildCorrectionArray(const Settings* set, const SweepInfo* info, bool) {
    BuildCorrectionArrayDb(set, info);
    if (!set->m_logScale) to_linear(m_carray);
}

void CorrectionsLarch::BuildCorrectionArrayDb(const Settings* set, const SweepInfo* info) {
    const int ds = info->dsRatio > 0 ? info->dsRatio : 1;
    const int length = info->fftSize > 0 ? info->fftSize / (ds * 4) : 0;
    const int half = info->fftSize > 0 ? info->fftSize / (ds * 8) : 0;
    const int steps = info->stepCount > 0 ? info->stepCount : 0;
    m_carray.assign(size_t(steps) * size_t(length), 0.0);

    const int patches = std::min(steps, info->patchInfo.NumPatches());
    for (int i = 0; i < patches; ++i) {
        const Patch& p = info->patchInfo[i];
        double* out = m_carray.data() + size_t(i) * size_t(length);
        double f = static_cast<double>(p.if_offset - half) * info->binSize;
        if (ds > 1) f += (info->narrow_center[0] - 20000) * 1000.0;
        const double cf = p.center_freq;
        // Below 130 MHz the IF has a tilt the tables do not hold.
        const bool tilt = cf > 1.99e7 && cf < 1.301e8;
        for (int k = 0; k < length; ++k) {
            if (set->m_fullScale) {
                out[k] = GetSelfCalCorrection(f);
            } else {
                out[k] = GetSingleCorrection(p.band, cf, f, p.if_center);
                if (tilt) out[k] += (1.5e8 - cf) / 1.5e8 * f / 2e7;
            }
            f += info->binSize;
        }
    }
}

void CorrectionsLarch::BuildIFCorrectionArray(const Settings* set, const SweepInfo* info, VecDouble& array) {
    const int n = info->fftSize > 0 ? info->fftSize / 2 : 0;
    array.assign(size_t(n), 0.0);
    // In dB: built linear for a linear scale, the streaming set-ups turned
    // it linear a second time, and a Larch's real-time frames in linear
    // units read their corrections wrong by up to several dB.
    BuildCorrectionArrayDb(set, info);
    const int o = info->fftSize / 8 + info->IFOffset;
    for (size_t k = 0; k < m_carray.size(); ++k) {
        const long at = long(o) + long(k);
        if (at < 0) continue;
        if (at >= n) break;
        array[size_t(at)] = m_carray[k];
    }
}

void CorrectionsLarch::BuildQSTGCorrectionArray(const Settings* set, const SweepInfo* info, int TGptsPer20M,
                                                int gain, int atten) {
    const size_t total = info->traceLen > -8 ? size_t(info->traceLen + 8) : 0;
    for (int band = 0; band < LARCH_BANDS; ++band) {
        m_bandGains[band] = clamp_index(gain, 0, 3);
        m_bandAttens[band] = clamp_index(atten, 0, 3);
    }
    m_carray.assign(total, set->m_logScale ? 0.0 : 1.0);
    if (set->m_fullScale) return;

    size_t pos = 0;
    int first = info->tgInitialCount;
    for (const Patch& p : info->patchInfo.Patches()) {
        for (int j = std::max(first, 0); j < TGptsPer20M && pos < total; ++j) {
            double f = (j + 0.5) * 2e7 / TGptsPer20M - 1e7;
            f = std::min(std::max(f, -9900000.0), 9900000.0);
            m_carray[pos++] = GetSingleCorrection(p.band, p.center_freq, f, p.if_center);
        }
        first = 0;
    }
    if (!set->m_logScale)
        for (size_t i = 0; i < pos; ++i) m_carray[i] = std::pow(10.0, 0.05 * m_carray[i]);
}

}  // namespace qs
