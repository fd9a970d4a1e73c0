#include "sim_calibration.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "qs_sim.h"
#include "sim_firmware.h"

namespace qssim {

namespace {

const double kLog2Db = 20.0 * std::log10(2.0);  // a real tone's bin holds a quarter of its amplitude squared

const RfTableGrid kMaple1Grids[kMapleRows] = {
    {105, 9000.0, 1.0 / 30.0, true, 0},   {94, 20e6, 20e6, false, 1},
    {31, 1900e6, 20e6, false, 2},         {32, 2520e6, 20e6, false, 3},
    {58, 3160e6, 20e6, false, 4},         {40, 4320e6, 20e6, false, 5},
    {24, 5120e6, 20e6, false, 6},         {1, 5600e6, 20e6, false, 7},
    {10, 5620e6, 20e6, false, 8},         {30, 5820e6, 20e6, false, 9},
};

const RfTableGrid kMaple2Grids[kMapleRows] = {
    {105, 9000.0, 1.0 / 30.0, true, 0},   {94, 20e6, 20e6, false, 1},
    {31, 1900e6, 20e6, false, 2},         {32, 2520e6, 20e6, false, 3},
    {53, 3160e6, 20e6, false, 4},         {45, 4220e6, 20e6, false, 5},
    {20, 5120e6, 20e6, false, 6},         {5, 5520e6, 20e6, false, 7},
    {10, 5620e6, 20e6, false, 8},         {30, 5820e6, 20e6, false, 9},
};

const RfTableGrid kLarchGrids[kLarchRfTables] = {
    {41, 10000.0, 0.05, true, 0},     {20, 1e6, 1e6, false, 0},
    {197, 20e6, 10e6, false, 0},      {116, 1990e6, 10e6, false, 2},
    {166, 3150e6, 10e6, false, 3},    {160, 4810e6, 10e6, false, 4},
};

void PutU16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

void PutU32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

void PutFloat(uint8_t* p, float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    PutU32(p, bits);
}

void PutDouble(uint8_t* p, double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, 8);
    PutU32(p, static_cast<uint32_t>(bits));
    PutU32(p + 4, static_cast<uint32_t>(bits >> 32));
}

// The 32-bit wrapping sum of the little-endian words of [begin, end).
uint32_t WordSum(const uint8_t* begin, const uint8_t* end) {
    uint32_t sum = 0;
    for (const uint8_t* p = begin; p + 4 <= end; p += 4)
        sum += static_cast<uint32_t>(p[0] | (p[1] << 8) | (p[2] << 16)) | (uint32_t{p[3]} << 24);
    return sum;
}

// Negative temperatures are stored 512 up, as the factory writes them.
float StoredTemp(double celsius) { return static_cast<float>(celsius < 0.0 ? celsius + 512.0 : celsius); }

// Least-squares fit of g(x) by c1 x + ... + c6 x^6 over -4/3 <= x <= 4/3:
// the polynomial of a 20 MHz row, read up to 20 MHz each side.
template <typename G>
void FitSlope(G g, double centre, float out[6]) {
    double ata[6][7] = {};
    constexpr int kPoints = 81;
    for (int k = 0; k < kPoints; ++k) {
        const double x = -4.0 / 3.0 + (8.0 / 3.0) * k / (kPoints - 1);
        const double y = g(centre, x);
        double pw[6];
        double v = x;
        for (int i = 0; i < 6; ++i, v *= x) pw[i] = v;
        for (int i = 0; i < 6; ++i) {
            for (int j = 0; j < 6; ++j) ata[i][j] += pw[i] * pw[j];
            ata[i][6] += pw[i] * y;
        }
    }
    // Gaussian elimination with partial pivoting; the system is small and
    // well conditioned on this range.
    for (int c = 0; c < 6; ++c) {
        int pivot = c;
        for (int r = c + 1; r < 6; ++r)
            if (std::fabs(ata[r][c]) > std::fabs(ata[pivot][c])) pivot = r;
        for (int j = 0; j < 7; ++j) std::swap(ata[c][j], ata[pivot][j]);
        for (int r = c + 1; r < 6; ++r) {
            const double f = ata[r][c] / ata[c][c];
            for (int j = c; j < 7; ++j) ata[r][j] -= f * ata[c][j];
        }
    }
    double coef[6];
    for (int c = 5; c >= 0; --c) {
        double s = ata[c][6];
        for (int j = c + 1; j < 6; ++j) s -= ata[c][j] * coef[j];
        coef[c] = s / ata[c][c];
    }
    for (int i = 0; i < 6; ++i) out[i] = static_cast<float>(coef[i]);
}

// The value of a stored slope polynomial at x.
double SlopeAt(const float c[6], double x) {
    double v = 0.0, p = x;
    for (int i = 0; i < 6; ++i, p *= x) v += c[i] * p;
    return v;
}

// The calibration source's level error at a frequency: the factory's own
// uncertainty, a few hundredths of a dB, the same in every table measured
// at that frequency.
double SourceErrorDb(unsigned serial, double freq) {
    uint32_t x = static_cast<uint32_t>(serial) * 2654435761u ^ static_cast<uint32_t>(std::llround(freq / 1e3));
    x ^= x >> 15;
    x *= 0x2C1B3C6Du;
    x ^= x >> 12;
    return (static_cast<int>(x % 61u) - 30) * 0.001;
}

}  // namespace

double RfTableGrid::Freq(int i) const {
    return logarithmic ? start * std::pow(10.0, i * stepSize) : start + i * stepSize;
}

const RfTableGrid* MapleRfGrids(int rev) { return rev == 2 ? kMaple2Grids : kMaple1Grids; }

const RfTableGrid* LarchRfGrids() { return kLarchGrids; }

int RoughRowOf(double freq) {
    int i = static_cast<int>(freq / 2e7);
    if (std::fabs(i * 2e7 - freq) > 1e7) ++i;
    return std::clamp(i, 0, kMapleRoughRows - 1);
}

FactoryCalibration::FactoryCalibration(int productId, unsigned serial)
    : m_model(productId, serial), m_productId(productId), m_serial(serial),
      m_kind(QSSIM_FLASH_CALIBRATED) {}

bool FactoryCalibration::SetTimebaseSlots(int used, double ppm) {
    if (!IsMaple(m_productId) || used < 0 || used > maple_image::kTimebaseSlots) return false;
    m_timebaseUsed = used;
    m_timebasePpm = ppm;
    return true;
}

bool FactoryCalibration::SetLarchIfCentre(double hz) {
    if (m_productId != QSSIM_PID_LARCH) return false;
    m_model.SetLarchIfCentre(hz);
    return true;
}

double FactoryCalibration::ClockRatio() const {
    if (m_kind != QSSIM_FLASH_CALIBRATED || m_timebaseUsed == 0) return 1.0;
    return 1.0 - m_timebasePpm * 1e-6;
}

void FactoryCalibration::Write(uint8_t* flash, uint32_t fpgaId) const {
    const bool maple = IsMaple(m_productId);
    const size_t pages = maple ? 12 : 8;
    uint8_t* image = flash + kImageFlashOffset;
    std::memset(image, 0xFF, pages * kFlashPageBytes);
    if (m_productId != QSSIM_PID_LARCH && !maple) return;  // a foreign product has no image
    if (m_kind == QSSIM_FLASH_ERASED) return;
    if (maple)
        WriteMaple(image, fpgaId);
    else
        WriteLarch(image, fpgaId);
}

void FactoryCalibration::WriteHeader(uint8_t* image, uint32_t fpgaId) const {
    using namespace maple_image;  // the Larch's header has the same first 144 bytes
    std::memset(image, 0, 256);
    PutU32(image + kSid, m_serial);
    PutU32(image + kFpgaId, fpgaId);
    PutU16(image + kHardwareVersion, static_cast<uint16_t>(m_productId));
    PutU16(image + kFirmwareVersion, kCalFirmwareVersion);
    PutU16(image + kCorrVersion, IsMaple(m_productId) ? 3 : 2);
    std::snprintf(reinterpret_cast<char*>(image + kDatetime), 64, "2025-03-%02u %02u:%02u:00",
                  1 + m_serial % 28, 8 + m_serial % 9, m_serial % 60);
    std::snprintf(reinterpret_cast<char*>(image + kCopyright), 64,
                  "factory calibration, simulated receiver");
}

void FactoryCalibration::WriteMaple(uint8_t* image, uint32_t fpgaId) const {
    using namespace maple_image;
    std::memset(image, 0, kTimebase);
    if (m_kind == QSSIM_FLASH_BLANK_HEADER)
        std::memset(image, 0xFF, 256);
    else
        WriteHeader(image, fpgaId);
    if (m_kind == QSSIM_FLASH_BLANK_TABLES) {
        std::memset(image + 256, 0xFF, kBytes - 256);
        return;
    }
    const GainModel& m = m_model;
    const int rev = m.MapleRev();

    for (int r = 0; r < kMapleRoughRows; ++r) {
        image[kRoughLow + r] = m.RoughCode(false, r);
        image[kRoughHigh + r] = m.RoughCode(true, r);
    }

    // RF tables: curve (a, g, t) of S steps at float ((a * 4 + g) * 12 + t) * S.
    uint8_t* p = image + kRfBands;
    const RfTableGrid* grids = MapleRfGrids(rev);
    for (int row = 0; row < kMapleRows; ++row) {
        const RfTableGrid& grid = grids[row];
        for (int a = 0; a < 4; ++a)
            for (int g = 0; g < 4; ++g)
                for (int t = 0; t < kMapleTemps; ++t)
                    for (int i = 0; i < grid.steps; ++i, p += 4) {
                        const double f = grid.Freq(i);
                        // A low-band step takes the rough gain of row 0.
                        const int rough = m.RoughCode(g >= 2, row == 0 ? 0 : RoughRowOf(f));
                        // Measured: the unit's gain at the step's centre, as
                        // the factory's source and meter see it.
                        const double gain = m.MapleCentreGainDb(row, f, GainModel::MapleAttenCode(g, a), rough,
                                                                m.TableTemp(t)) +
                                            SourceErrorDb(m_serial, f);
                        PutFloat(p, static_cast<float>(kLog2Db - gain));
                    }
    }

    // Slope polynomials per 20 MHz row: a fit of the gain measured across
    // the slice, 81 points over +-20 MHz, relative to its centre.
    const auto measured = [&](double rf, double centre) {
        const int row = MapleRowOf(rev, centre);
        return m.MapleGainDb(row, centre, rf, 1, m.RoughCode(false, RoughRowOf(centre)), 25.0);
    };
    std::vector<float> slopes(size_t(kMapleRoughRows) * 6);
    for (int r = 0; r < kMapleRoughRows; ++r) {
        const double centre = std::max(r * 2e7, 20e6);
        FitSlope(
            [&](double c, double x) {
                // The slice's shape without its IF filter: a flat source swept
                // across it at a fixed centre, the filter taken out by a
                // second sweep with the IF moved (what the IF table holds).
                const double rf = c + x * kSlopeScale;
                const int row = MapleRowOf(rev, c);
                return measured(rf, c) - measured(c, c) - m.IfResponseDb(row, rf - c);
            },
            centre, &slopes[size_t(r) * 6]);
    }
    // IF tables, one per row, the same at every temperature: a tone swept
    // across the IF of one step in the middle of the row, less the gain at
    // the step's centre and less the slope the polynomial already gives;
    // what the fine ripple did at that step stays in the table. The low
    // band has no IF filter.
    p = image + kIfBands;
    for (int row = 0; row < kMapleRows; ++row) {
        const RfTableGrid& grid = grids[row];
        const double ref = grid.Freq(grid.steps / 2);
        const float* slope = &slopes[size_t(RoughRowOf(ref)) * 6];
        float table[kIfPoints] = {};
        for (int i = 0; row != 0 && i < kIfPoints; ++i) {
            const double delta = (i - kIfCentreIndex) * kIfSpacing;
            table[i] = static_cast<float>(measured(ref + delta, ref) - measured(ref, ref) -
                                          SlopeAt(slope, delta / kSlopeScale));
        }
        for (int t = 0; t < kMapleTemps; ++t)
            for (int i = 0; i < kIfPoints; ++i, p += 4) PutFloat(p, table[i]);
    }
    p = image + kIfCurve;
    for (int t = 0; t < kMapleTemps; ++t)
        for (float c : slopes) {
            PutFloat(p, c);
            p += 4;
        }
    for (int t = 0; t < kMapleTemps; ++t) PutFloat(image + kTemps + 4 * t, StoredTemp(m.TableTemp(t)));
    for (int t = 0; t < kMapleTemps; ++t)
        for (int row = 0; row < kMapleRows; ++row)
            PutFloat(image + kTrigDelays + 4 * (t * kMapleRows + row),
                     static_cast<float>(92.0 + 1.3 * row + 0.02 * (m.TableTemp(t) - 25.0)));

    PutDouble(image + kOscRatio, 1.0);
    PutU32(image + kCrc, WordSum(image + 256, image + kCrc));
    std::memset(image + kTimebase, 0xFF, kBytes - kTimebase);
    for (int k = 0; k < m_timebaseUsed; ++k)
        PutDouble(image + kTimebase + 8 * k,
                  1.0 - m_timebasePpm * 1e-6 * (k + 1) / m_timebaseUsed);
}

void FactoryCalibration::WriteLarch(uint8_t* image, uint32_t fpgaId) const {
    using namespace larch_image;
    std::memset(image, 0, kBytes);
    if (m_kind == QSSIM_FLASH_BLANK_HEADER)
        std::memset(image, 0xFF, 256);
    else
        WriteHeader(image, fpgaId);
    if (m_kind != QSSIM_FLASH_BLANK_HEADER)
        for (int i = 0; i < 16; ++i) image[kMix + i] = static_cast<uint8_t>(0x11 * (i % 4));
    if (m_kind == QSSIM_FLASH_BLANK_TABLES) {
        std::memset(image + 256, 0xFF, kBytes - 256);
        return;
    }
    const GainModel& m = m_model;
    const double selfCalMean = m.LarchSelfCalMeanDb();
    // RF tables: curve (a, g, t) of S steps at float ((a * 4 + g) * 8 + t) * S.
    uint8_t* p = image + kBand0A;
    for (int k = 0; k < kLarchRfTables; ++k) {
        const RfTableGrid& grid = kLarchGrids[k];
        for (int a = 0; a < 4; ++a)
            for (int g = 0; g < 4; ++g)
                for (int t = 0; t < kLarchTemps; ++t)
                    for (int i = 0; i < grid.steps; ++i, p += 4) {
                        const double f = grid.Freq(i);
                        const int row = grid.loRow == 0 && f >= 1.2e9 ? 1 : grid.loRow;
                        const double gain =
                            m.LarchPathDb(row, f, g, a, m.TableTemp(t)) + selfCalMean + SourceErrorDb(m_serial, f);
                        PutFloat(p, static_cast<float>(kLog2Db - gain));
                    }
    }
    // IF tables 0 to 3 (rows 0 and 1, then rows 2, 3, 4): the filter that
    // the self-calibration does not see, 301 points 200 kHz apart, running
    // from 30 MHz above the IF centre down to 30 MHz below it.
    // Measured by sweeping a tone across the IF of one step in the middle
    // of the row's range: the unit's fine ripple over that step is in the
    // table with the filter.
    const int ifRow[4] = {0, 2, 3, 4};
    for (int k = 0; k < 4; ++k) {
        const LoRow& lo = LarchLoTable()[ifRow[k]];
        const double ref = std::round((lo.minRF + lo.maxRF) / 2e7) * 1e7;
        for (int t = 0; t < kLarchTemps; ++t)
            for (int i = 0; i < kIfPoints; ++i) {
                const double x = 30e6 - i * kIfSpacing;
                PutFloat(image + kIf0 + k * kIfBytes + 4 * (t * kIfPoints + i),
                         static_cast<float>(m.LarchFrontIfDb(ifRow[k], x) + m.FineDb(ref + x) - m.FineDb(ref)));
            }
    }
    for (int t = 0; t < kLarchTemps; ++t) {
        PutFloat(image + kInternalTemp + 4 * t, StoredTemp(m.TableTemp(t)));
        for (int band = 0; band < 4; ++band)
            PutFloat(image + kTriggerDelays + 4 * (t * 4 + band),
                     static_cast<float>(86.5 + 0.8 * band + 0.04 * t));
    }
    PutDouble(image + kOscRatio, 1.0);
    PutU32(image + kChecksum, WordSum(image + 256, image + kChecksum));
}

}  // namespace qssim
