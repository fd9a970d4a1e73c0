// A simulated tracking generator: its physics, its factory calibration and
// the commands it takes from its serial line.
//
// Physics, different for every serial number: the output at zero
// attenuation is a few dB of smooth ripple over a slope; each attenuator
// stage (1, 2, 4, 8 and 16 dB on version 1; 0.5 dB to 16 dB on the Rowan)
// loses a few percent more or less than its name and drifts by a tenth of a
// dB over the range; the time base runs a few ppm off, so every frequency
// word comes out that much off unless the host trims it.
//
// The factory calibration is made by measuring that output the way a
// factory would, at the grid of the EEPROM's tables, and written in the
// table layout of the version (levels at zero attenuation and each stage's
// true loss per 20 MHz column on version 1; levels at the 8 dB point and
// the attenuator's errors per 100 MHz row on the Rowan). The time-base trim
// goes into the table on version 1 and into the bridge's user area on the
// Rowan.
//
// Commands are SLIP frames (END 0xC0, ESC 0xDB) taken in the order they
// come, whatever the host's pacing: a frame that arrives while the last one
// is still being acted on waits its turn. A hardware sweep (S, T, then G)
// steps one point each time the analyser it is cabled to starts the next
// point of a generator sweep, its attenuation following the ALC runs that
// L loaded.
#pragma once

#include <cstdint>
#include <vector>

namespace qssim {

constexpr int kTgEepromBytes = 4096;

class GeneratorModel {
public:
    GeneratorModel(int version, unsigned serial);

    bool Rowan() const { return m_rowan; }
    double MaxHz() const { return m_rowan ? 12.4e9 : 4.4e9; }
    int MaxCode() const { return m_rowan ? 63 : 31; }
    // True output frequency over nominal.
    double ClockRatio() const { return m_clockRatio; }
    // The true output level at hz with attenuator code `code`.
    double LevelDbm(double hz, int code) const;

    // The factory's EEPROM image, measured from the model.
    std::vector<uint8_t> FactoryImage() const;
    // The time-base ratio the factory stores in the bridge's user area
    // (0 when the trim lives in the table).
    double UserAreaTimebase() const;

private:
    double FullLevelDbm(double hz) const;
    double StageLossDb(int stage, double hz) const;

    bool m_rowan;
    unsigned m_serial;
    double m_clockRatio;
    double m_level0, m_slope;
    double m_rippleAmp[2], m_ripplePeriod[2], m_ripplePhase[2];
    double m_stageGain[6], m_stageDrift[6];
};

struct GeneratorFrame {
    std::vector<uint8_t> payload;
    std::vector<uint8_t> wire;  // as received, the closing END included
};

class Generator {
public:
    enum EepromKind { kCalibrated = 0, kBlank = 1, kSilent = 2 };

    Generator(int version, unsigned serial);

    const GeneratorModel& Model() const { return m_model; }
    void SetEeprom(int kind);

    // Bytes from the serial line; the EEPROM's answers go to *reply.
    void Receive(const uint8_t* data, int len, std::vector<uint8_t>* reply);
    const std::vector<GeneratorFrame>& Frames() const { return m_frames; }

    // The analyser starts the points of a generator sweep: an armed sweep
    // (G) begins at its first point.
    void BeginSweepRun();
    // What the port puts out at point `point` of the sweep run in progress
    // (point >= 0), or now (point < 0); false when nothing comes out.
    bool OutputAt(int64_t point, double* hz, double* dbm);
    // What the port puts out now.
    bool Output(double* hz, double* dbm) const;

private:
    void Execute(const std::vector<uint8_t>& p, std::vector<uint8_t>* reply);
    bool Emit(uint32_t word, int code, double* hz, double* dbm) const;
    int AlcCode(int64_t point) const;

    GeneratorModel m_model;
    std::vector<uint8_t> m_eeprom;
    bool m_silent = false;

    // SLIP receiver.
    std::vector<uint8_t> m_frame, m_wire;
    bool m_escape = false;
    std::vector<GeneratorFrame> m_frames;

    uint32_t m_cwWord = 0;
    int m_code = 31;
    int m_ref = 0;
    uint32_t m_sweepStart = 0, m_sweepStep = 0;
    int m_sweepCount = 0;
    bool m_armed = false, m_sweeping = false;
    int64_t m_point = 0;  // the sweep point last put out
    struct Alc {
        int code = 0;
        int count = 0;
    };
    Alc m_alc[64];
    int m_alcUsed = 0;
};

}  // namespace qssim
