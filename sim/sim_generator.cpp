#include "sim_generator.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace qssim {
namespace {

constexpr double kPi = 3.14159265358979323846;

// A number in [-1, 1) fixed by the serial and a salt.
double Spread(unsigned serial, unsigned salt) {
    uint64_t x = (uint64_t{serial} << 20) ^ (uint64_t{salt} * 0x9E3779B97F4A7C15ull);
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    x ^= x >> 31;
    return static_cast<double>(x >> 11) / static_cast<double>(uint64_t{1} << 52) - 1.0;
}

void Put16(std::vector<uint8_t>& image, int offset, int value) {
    image[offset] = static_cast<uint8_t>(value & 0xFF);
    image[offset + 1] = static_cast<uint8_t>((value >> 8) & 0xFF);
}

// The factory's power meter: a few hundredths of a dB of its own.
double Measured(double trueDbm, unsigned serial, unsigned salt) {
    return trueDbm + 0.02 * Spread(serial, 7000u + salt);
}

// The version-1 level tables: grid frequency of entry i and the place of
// each table in the image.
struct V1Band {
    int offset, entries;
    double first, step;
};
constexpr V1Band kV1Bands[] = {
    {68, 28, 1e6, 1e6},          {124, 22, 30e6, 5e6},      {168, 14, 140e6, 10e6},
    {196, 28, 280e6, 10e6},      {252, 56, 550e6, 10e6},    {364, 112, 1.1e9, 10e6},
    {588, 222, 2.2e9, 10e6},
};
constexpr int kV1AttenOffset = 1032;  // five tables of 222 columns, 1 dB stage first
constexpr int kV1Columns = 222;

constexpr V1Band kRowanBands[] = {
    {68, 16, 0.999999e6, 1e6},   {84, 24, 20e6, 5e6},       {108, 14, 140e6, 10e6},
    {122, 28, 280e6, 10e6},      {150, 56, 550e6, 10e6},    {206, 112, 1.1e9, 10e6},
    {318, 182, 2.2e9, 10e6},     {500, 322, 4e9, 10e6},     {822, 582, 7.2e9, 10e6},
};
constexpr int kRowanOffsetsAt = 1404;  // 130 rows of 16 bytes, one per 100 MHz
constexpr int kRowanRows = 130;

// The fixture loss the host adds back to a version-1 level read at or above
// 28 MHz, which the factory therefore leaves in the table.
double V1FixtureDb(double hz) { return hz >= 28e6 ? 0.7 - 1e-10 * hz : 0.0; }

// The same for the Rowan's levels.
double RowanFixtureDb(double hz) {
    if (hz >= 7.2e9) return 0.7;
    if (hz >= 3.2e9) return 0.3;
    if (hz >= 2.2e9) return (3.2e9 - hz) * 0.4 / 1e9 + 0.3;
    if (hz >= 16e6) return 0.7;
    if (hz < 150000.0) return -0.4;
    if (hz < 250000.0) return -0.2;
    return 0.0;
}

}  // namespace

GeneratorModel::GeneratorModel(int version, unsigned serial) : m_rowan(version == 2), m_serial(serial) {
    // Within the +-4 ppm that the table's trim can hold.
    m_clockRatio = 1.0 + 3e-6 * Spread(serial, 1);
    m_level0 = (m_rowan ? -1.5 : -3.0) + 0.4 * Spread(serial, 2);
    m_slope = (m_rowan ? -3.0 : -1.2) + 0.3 * Spread(serial, 3);
    const double span = MaxHz();
    m_rippleAmp[0] = 0.75 + 0.25 * Spread(serial, 4);
    m_rippleAmp[1] = 0.3 + 0.1 * Spread(serial, 5);
    m_ripplePeriod[0] = span * (0.3 + 0.05 * Spread(serial, 6));
    m_ripplePeriod[1] = span * (0.07 + 0.01 * Spread(serial, 7));
    m_ripplePhase[0] = kPi * Spread(serial, 8);
    m_ripplePhase[1] = kPi * Spread(serial, 9);
    for (int k = 0; k < 6; ++k) {
        m_stageGain[k] = 1.0 + 0.03 * Spread(serial, 20u + k);
        m_stageDrift[k] = 0.12 * Spread(serial, 30u + k);
    }
}

double GeneratorModel::FullLevelDbm(double hz) const {
    double level = m_level0 + m_slope * hz / MaxHz();
    for (int k = 0; k < 2; ++k)
        level += m_rippleAmp[k] * std::sin(2 * kPi * hz / m_ripplePeriod[k] + m_ripplePhase[k]);
    return level;
}

double GeneratorModel::StageLossDb(int stage, double hz) const {
    // Version 1's stages are 1, 2, 4, 8 and 16 dB; the Rowan has a 0.5 dB
    // stage below them.
    const double nominal = m_rowan ? 0.5 * (1 << stage) : double(1 << stage);
    const int k = m_rowan ? stage : stage + 1;
    return nominal * m_stageGain[k] + m_stageDrift[k] * hz / MaxHz();
}

double GeneratorModel::LevelDbm(double hz, int code) const {
    code = std::clamp(code, 0, MaxCode());
    double level = FullLevelDbm(hz);
    const int stages = m_rowan ? 6 : 5;
    for (int s = 0; s < stages; ++s)
        if (code & (1 << s)) level -= StageLossDb(s, hz);
    return level;
}

double GeneratorModel::UserAreaTimebase() const { return m_rowan ? 1.0 / m_clockRatio : 0.0; }

std::vector<uint8_t> GeneratorModel::FactoryImage() const {
    std::vector<uint8_t> image(kTgEepromBytes, 0xFF);
    const unsigned serial = m_serial;
    Put16(image, 0, m_rowan ? 2 : 1);
    // The trim multiplies every frequency word: 1 / ratio, in ppb about
    // 32768. The Rowan's is in the bridge, and the table's stays neutral.
    const int trim = static_cast<int>(std::lround((1.0 / m_clockRatio - 1.0) * 1e9));
    Put16(image, 2, m_rowan ? 32768 : 32768 + trim);
    const char text[] = "factory calibration, 2026-03-02";
    std::memset(&image[4], 0, 64);
    std::memcpy(&image[4], text, sizeof text);

    if (!m_rowan) {
        unsigned salt = 0;
        for (const V1Band& band : kV1Bands) {
            for (int i = 0; i < band.entries; ++i) {
                const double hz = band.first + band.step * i;
                const double level = Measured(LevelDbm(hz, 0), serial, salt++) + V1FixtureDb(hz);
                Put16(image, band.offset + 2 * i, static_cast<int>(std::lround(level * 100.0)));
            }
        }
        // Each stage's true loss, by switching it alone in at the middle of
        // its 20 MHz column; stored as the (negative) change of level.
        for (int stage = 0; stage < 5; ++stage) {
            for (int c = 0; c < kV1Columns; ++c) {
                const double hz = (c + 0.5) * 20e6;
                const double with = Measured(LevelDbm(hz, 1 << stage), serial, salt++);
                const double change = with - Measured(LevelDbm(hz, 0), serial, salt++);
                Put16(image, kV1AttenOffset + stage * 2 * kV1Columns + 2 * c,
                      static_cast<int>(std::lround(change * 100.0)));
            }
        }
        return image;
    }

    unsigned salt = 0;
    // Levels at the 8 dB point (code 16), in steps of -0.1 dBm.
    for (const V1Band& band : kRowanBands) {
        for (int i = 0; i < band.entries; ++i) {
            const double hz = band.first + band.step * i;
            const double level = Measured(LevelDbm(hz, 16), serial, salt++) + RowanFixtureDb(hz);
            image[band.offset + i] = static_cast<uint8_t>(std::clamp<long>(std::lround(-10.0 * level), 0, 255));
        }
    }
    // The attenuator's errors against 0.5 dB a code, from the 8 dB point, at
    // the middle of each 100 MHz row: codes 0, 1 and 7 alone, then the mean
    // over each run of eight codes that the host treats as one.
    for (int r = 0; r < kRowanRows; ++r) {
        const double hz = r * 1e8 + 5e7;
        const double ref = Measured(LevelDbm(hz, 16), serial, salt++);
        auto error = [&](int code) { return Measured(LevelDbm(hz, code), serial, salt++) - ref - 8.0 + 0.5 * code; };
        auto mean = [&](int first) {
            double sum = 0;
            for (int c = first; c < first + 8; ++c) sum += error(c);
            return sum / 8.0;
        };
        const double offsets[9] = {error(0), error(1), error(7), mean(8), mean(24),
                                   mean(32), mean(40), mean(48), mean(56)};
        uint8_t* row = &image[kRowanOffsetsAt + 16 * r];
        std::memset(row, 0x80, 16);
        for (int j = 0; j < 9; ++j)
            row[j] = static_cast<uint8_t>(std::clamp<long>(std::lround((offsets[j] + 2.56) / 0.02), 0, 255));
    }
    return image;
}

Generator::Generator(int version, unsigned serial) : m_model(version, serial) { SetEeprom(kCalibrated); }

void Generator::SetEeprom(int kind) {
    m_silent = kind == kSilent;
    if (kind == kBlank) {
        // Never calibrated: erased, and the calibration text's first byte
        // holds the mark of an empty table.
        m_eeprom.assign(kTgEepromBytes, 0xFF);
        m_eeprom[4] = 0x80;
    } else {
        m_eeprom = m_model.FactoryImage();
    }
}

void Generator::Receive(const uint8_t* data, int len, std::vector<uint8_t>* reply) {
    for (int i = 0; i < len; ++i) {
        const uint8_t b = data[i];
        m_wire.push_back(b);
        if (b == 0xC0) {
            if (!m_frame.empty()) {
                m_frames.push_back({m_frame, m_wire});
                Execute(m_frame, reply);
            }
            m_frame.clear();
            m_wire.clear();
            m_escape = false;
        } else if (m_escape) {
            // A byte escaped wrongly is kept as it came, as a lenient
            // receiver would; the frame's length then tells.
            m_frame.push_back(b == 0xDC ? 0xC0 : b == 0xDD ? 0xDB : b);
            m_escape = false;
        } else if (b == 0xDB) {
            m_escape = true;
        } else {
            m_frame.push_back(b);
        }
    }
}

void Generator::Execute(const std::vector<uint8_t>& p, std::vector<uint8_t>* reply) {
    auto word = [&p] { return uint32_t{p[1]} | uint32_t{p[2]} << 8 | uint32_t{p[3]} << 16 | uint32_t{p[4]} << 24; };
    const size_t n = p.size();
    switch (p[0]) {
        case 'F':
            if (n != 5) return;
            m_cwWord = word();
            m_sweeping = false;
            return;
        case 'A':
            if (n != 2) return;
            m_code = std::min<int>(p[1], m_model.MaxCode());
            return;
        case 'R':
            if (n == 2 && m_model.Rowan() && p[1] <= 2) m_ref = p[1];
            return;
        case 'S':
            if (n == 5) m_sweepStart = word();
            return;
        case 'T':
            if (n == 5) m_sweepStep = word();
            return;
        case 'G':
            if (n != 3) return;
            m_sweepCount = p[1] | p[2] << 8;
            m_armed = m_sweeping = m_sweepCount > 0;
            m_point = 0;
            return;
        case 'L':
            if (n != 5 || p[1] >= 64) return;
            m_alc[p[1]] = {std::min<int>(p[2], m_model.MaxCode()), p[3] << 8 | p[4]};
            m_alcUsed = std::max(m_alcUsed, p[1] + 1);
            return;
        case 'E': {
            if (n != 5 || p[1] != 0xFF || p[2] != 0x01 || m_silent) return;
            const int address = p[3] | p[4] << 8;
            for (int i = 0; i < 4; ++i) reply->push_back(m_eeprom[(address + i) % kTgEepromBytes]);
            return;
        }
        default: return;
    }
}

void Generator::BeginSweepRun() {
    if (!m_armed) return;
    m_armed = false;
    m_point = 0;
}

int Generator::AlcCode(int64_t point) const {
    if (m_alcUsed == 0) return m_code;
    int64_t end = 0;
    for (int i = 0; i < m_alcUsed; ++i) {
        end += m_alc[i].count;
        if (point < end) return m_alc[i].code;
    }
    return m_alc[m_alcUsed - 1].code;
}

bool Generator::Emit(uint32_t word, int code, double* hz, double* dbm) const {
    // Locked to a reference from outside, the output is as exact as that
    // reference; the simulator's is perfect.
    const double ratio = m_ref == 1 ? 1.0 : m_model.ClockRatio();
    *hz = word * 10.0 * ratio;
    if (*hz <= 0.0 || *hz > m_model.MaxHz() * 1.001) return false;
    *dbm = m_model.LevelDbm(*hz, code);
    return true;
}

bool Generator::OutputAt(int64_t point, double* hz, double* dbm) {
    if (!m_sweeping) return Emit(m_cwWord, m_code, hz, dbm);
    if (point >= 0) m_point = std::min<int64_t>(point, m_sweepCount - 1);
    return Output(hz, dbm);
}

bool Generator::Output(double* hz, double* dbm) const {
    if (!m_sweeping) return Emit(m_cwWord, m_code, hz, dbm);
    const uint32_t word = m_sweepStart + static_cast<uint32_t>(m_point) * m_sweepStep;
    return Emit(word, AlcCode(m_point), hz, dbm);
}

}  // namespace qssim
