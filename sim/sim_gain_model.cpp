#include "sim_gain_model.h"

#include <algorithm>
#include <cmath>

#include "qs_sim.h"

namespace qssim {

namespace {

constexpr double kPi = 3.14159265358979323846;

const LoRow kMaple1[kMapleRows] = {
    {0, 10000.0, 16e6, 160e6, 160e6, false},
    {1, 16e6, 1890e6, 2420e6, 2280e6, false},
    {2, 1890e6, 2510e6, 1260e6, 1400e6, true},
    {2, 2510e6, 3150e6, 1260e6, 1120e6, false},
    {3, 3150e6, 4310e6, 2420e6, 2560e6, true},
    {4, 4310e6, 5110e6, 2420e6, 2560e6, true},
    {5, 5110e6, 5590e6, 1260e6, 1120e6, false},
    {5, 5590e6, 5610e6, 1268e6, 1128e6, false},
    {5, 5610e6, 5810e6, 1260e6, 1120e6, false},
    {6, 5810e6, 6800e6, 1260e6, 1120e6, false},
};

const LoRow kMaple2[kMapleRows] = {
    {0, 10000.0, 16e6, 160e6, 160e6, false},
    {1, 16e6, 1890e6, 2420e6, 2560e6, true},
    {2, 1890e6, 2510e6, 1220e6, 1360e6, true},
    {2, 2510e6, 3150e6, 1220e6, 1080e6, false},
    {3, 3150e6, 4210e6, 2420e6, 2280e6, false},
    {4, 4210e6, 5110e6, 2420e6, 2560e6, true},
    {5, 5110e6, 5510e6, 1220e6, 1080e6, false},
    {6, 5510e6, 5610e6, 1220e6, 1080e6, false},
    {6, 5610e6, 5810e6, 1220e6, 1080e6, false},
    {6, 5810e6, 6800e6, 1220e6, 1080e6, false},
};

const LoRow kLarch[kLarchRows] = {
    {0, 100000.0, 1200e6, 2440e6, 2300e6, false},
    {0, 1200e6, 1990e6, 2440e6, 2300e6, false},
    {1, 1990e6, 3150e6, 1260e6, 1120e6, false},
    {2, 3150e6, 4810e6, 2440e6, 2300e6, false},
    {3, 4810e6, 6800e6, 1260e6, 1120e6, false},
};

// Path gains before the IF amplifier: the low band first, then rows 1 to 9,
// which lose a little more the higher they reach.
const double kFront[kMapleRows] = {18.0, 17.0, 16.5, 16.0, 15.0, 14.5, 14.0, 13.5, 13.5, 12.5};

uint32_t Mix(uint32_t x) {
    x ^= x >> 16;
    x *= 0x7FEB352Du;
    x ^= x >> 15;
    x *= 0x846CA68Bu;
    x ^= x >> 16;
    return x;
}

}  // namespace

const LoRow* MapleLoTable(int rev) { return rev == 2 ? kMaple2 : kMaple1; }

int MapleRowOf(int rev, double freq) {
    const LoRow* table = MapleLoTable(rev);
    for (int r = 0; r < kMapleRows; ++r)
        if (table[r].maxRF > freq) return r;
    return kMapleRows;
}

int MapleRevOf(int productId) { return productId == QSSIM_PID_MAPLE_REV2 ? 2 : 1; }

bool IsMaple(int productId) {
    return productId == QSSIM_PID_MAPLE_REV1 || productId == QSSIM_PID_MAPLE_REV2;
}

const LoRow* LarchLoTable() { return kLarch; }

GainModel::GainModel(int productId, unsigned serial)
    : m_productId(productId), m_rev(MapleRevOf(productId)) {
    // No two devices are alike: up to +-0.6 dB per path, fixed by the serial.
    for (int r = 0; r < kMapleRows; ++r)
        m_rowSpread[r] = (static_cast<int>(Mix(serial * 31u + r) % 121u) - 60) * 0.01;
    // Two standing waves per unit: periods of 4 to 6 and 11 to 15 MHz.
    for (int k = 0; k < 2; ++k) {
        const uint32_t h = Mix(serial * 977u + 7u * k + 1u);
        m_finePeriodHz[k] = (k == 0 ? 4e6 : 11e6) + (h % 1000u) * (k == 0 ? 2e3 : 4e3);
        m_finePhase[k] = (Mix(h) % 6283u) * 1e-3;
    }
}

double GainModel::FineDb(double rfHz) const {
    return 0.12 * std::sin(2 * kPi * rfHz / m_finePeriodHz[0] + m_finePhase[0]) +
           0.07 * std::sin(2 * kPi * rfHz / m_finePeriodHz[1] + m_finePhase[1]);
}

double GainModel::TableTemp(int t) const {
    // The Maple was measured from -10 to 100 degrees, the Larch from 0 to 70.
    return IsMaple(m_productId) ? -10.0 + 10.0 * t : 10.0 * t;
}

int GainModel::TableTemps() const { return IsMaple(m_productId) ? kMapleTemps : kLarchTemps; }

uint8_t GainModel::RoughCode(bool highGain, int roughRow) const {
    // One code more above 3.2 GHz, where the path loses more.
    const int lift = roughRow * 20e6 > 3.2e9 ? 1 : 0;
    return static_cast<uint8_t>((highGain ? 13 : 2) + lift);
}

int GainModel::MapleAttenCode(int gain, int attenIndex) {
    int code = attenIndex == 3 ? 30 : attenIndex * 10 + ((gain == 0 || gain == 2) ? 5 : 0);
    return code == 0 ? 1 : code;
}

double GainModel::FrontDb(int row) const {
    const int r = std::clamp(row, 0, kMapleRows - 1);
    return kFront[r] + m_rowSpread[r];
}

double GainModel::ShapeDb(double rfHz) {
    if (rfHz <= 150e6) return 0.0;
    const double x = rfHz - 150e6;
    const double fade = x >= 250e6 ? 1.0 : 0.5 - 0.5 * std::cos(kPi * x / 250e6);
    const double ripple = 0.8 * std::sin(2 * kPi * x / 900e6) + 0.8 * std::sin(2 * kPi * x / 2.3e9 + 0.7) -
                          0.8 * std::sin(0.7);
    return fade * ripple - 4.0 * x / 6.25e9;
}

double GainModel::VgaDb(int roughCode) { return 2.5 * roughCode; }

double GainModel::AttenDb(int attenCode, double rfHz) {
    // The attenuator's steps grow a little with frequency.
    return (attenCode & 0x1F) * (1.0 + 0.012 * rfHz / 1e9);
}

double GainModel::DriftDb(double celsius) {
    const double d = celsius - 25.0;
    return -0.025 * d - 0.0004 * d * d;
}

double GainModel::IfResponseDb(int row, double deltaHz) const {
    // The filter sits at the second IF, where a flipped row runs the other
    // way; a ripple of its own per row, and a tilt.
    const bool flip = MapleLoTable(m_rev)[std::clamp(row, 0, kMapleRows - 1)].flip;
    const double x = (flip ? -deltaHz : deltaHz) / 1e6;  // MHz at the second IF
    const double phase = 0.4 + 0.7 * row;
    const double ripple = 0.25 * (std::cos(2 * kPi * x / 7.0 + phase) - std::cos(phase));
    const double edge = std::pow(std::fabs(x) / 11.5, 8);
    return ripple + 0.03 * x - 3.0 * edge;
}

double GainModel::LowBandDb(double fHz) {
    const double f = std::max(fHz, 1.0);
    const double highPass = -10.0 * std::log10(1.0 + std::pow(12e3 / f, 4));
    const double antiAlias = -10.0 * std::log10(1.0 + std::pow(f / 32e6, 8));
    return highPass + antiAlias - 0.3 * std::log10(f / 1e5);
}

double GainModel::MapleGainDb(int row, double centreHz, double rfHz, int attenCode, int roughCode,
                              double celsius) const {
    if (row <= 0)
        return FrontDb(0) + LowBandDb(rfHz) + FineDb(rfHz) + VgaDb(roughCode) - AttenDb(attenCode, rfHz) +
               DriftDb(celsius);
    return FrontDb(row) + ShapeDb(rfHz) + FineDb(rfHz) + VgaDb(roughCode) - AttenDb(attenCode, rfHz) +
           DriftDb(celsius) + IfResponseDb(row, rfHz - centreHz);
}

double GainModel::MapleCentreGainDb(int row, double centreHz, int attenCode, int roughCode,
                                    double celsius) const {
    return MapleGainDb(row, centreHz, centreHz, attenCode, roughCode, celsius);
}

double GainModel::LarchPathDb(int row, double rfHz, int gain, int attenIndex,
                              double celsius) const {
    // Rows 0 and 1 are one path (band 0) with one calibration table: its
    // gain runs on across 1.2 GHz instead of stepping there.
    const int r = std::clamp(row, 0, kLarchRows - 1) <= 1 ? 0 : row;
    return 30.0 - 1.5 * r + m_rowSpread[r] + 8.0 * (gain - 2) - 10.0 * attenIndex + ShapeDb(rfHz) +
           FineDb(rfHz) + DriftDb(celsius) - 10.0 * std::log10(1.0 + std::pow(20e3 / std::max(rfHz, 1.0), 4));
}

double GainModel::LarchSelfCalIfDb(double ifOffsetHz) const {
    const double x = (ifOffsetHz - m_larchIfCentreHz) / 1e6;
    return 0.3 * std::cos(2 * kPi * x / 6.0 + 0.5) + 0.02 * x - 3.0 * std::pow(std::fabs(x) / 10.5, 8);
}

double GainModel::LarchSelfCalMeanDb() const {
    // Points 144 to 431 of the 576, 39,062.5 Hz apart from -11.25 MHz.
    double sum = 0;
    for (int i = 144; i < 432; ++i) sum += LarchSelfCalIfDb(-11.25e6 + i * 39062.5);
    return sum / 288;
}

double GainModel::LarchFrontIfDb(int row, double ifOffsetHz) const {
    const double x = ifOffsetHz / 1e6;
    const double phase = 0.9 + 0.5 * row;
    return 0.15 * (std::cos(2 * kPi * x / 17.0 + phase) - std::cos(phase)) - 0.015 * x;
}

double GainModel::LarchLowTiltDb(double centreHz, double deltaHz) {
    if (centreHz <= 1.99e7 || centreHz >= 1.301e8) return 0.0;
    return -(1.5e8 - centreHz) / 1.5e8 * deltaHz / 2e7;
}

double GainModel::LarchGainDb(int row, double centreHz, double rfHz, double ifOffsetHz, int gain,
                              int attenIndex, double celsius, double lo2ShiftHz) const {
    return LarchPathDb(row, rfHz, gain, attenIndex, celsius) + LarchSelfCalIfDb(ifOffsetHz) +
           LarchFrontIfDb(row, ifOffsetHz - lo2ShiftHz) + LarchLowTiltDb(centreHz, rfHz - centreHz);
}

}  // namespace qssim
