// The factory calibration of a simulated analyser: writes the calibration
// image into the device's flash from the device's own gain model, so that a
// host applying the image reads back the level that reached the antenna.
//
// Image placement and layouts are the instrument's flash format, written
// here from this simulator's own knowledge of it: the image starts at read
// page 8 (byte 0x80000); the Maple's takes 603,472 bytes of pages 8 to 19,
// the Larch's 398,384 bytes of pages 8 to 15. Float tables are
// little-endian IEEE floats, as the host reads them.
//
// What the tables hold, in dB: an RF table value is 20 log10(2) minus the
// gain at the step's centre (the correction that turns the power of a bin of
// a transform normalised by its length into dBm); an IF table holds the IF
// filter's gain (the host subtracts it); a slope polynomial holds the gain's
// change across the 20 MHz slice (the host subtracts it too).
#pragma once

#include <cstdint>

#include "sim_gain_model.h"

namespace qssim {

constexpr uint32_t kImageFlashOffset = 0x80000;
constexpr uint16_t kCalFirmwareVersion = 6;  // tracking-generator sweeps need 5 or above

// Maple image fields, byte offsets from the image start.
namespace maple_image {
constexpr uint32_t kSid = 0;
constexpr uint32_t kFpgaId = 4;
constexpr uint32_t kHardwareVersion = 8;
constexpr uint32_t kFirmwareVersion = 10;
constexpr uint32_t kCorrVersion = 12;
constexpr uint32_t kDatetime = 16;
constexpr uint32_t kCopyright = 80;
constexpr uint32_t kRoughLow = 256;
constexpr uint32_t kRoughHigh = 566;
constexpr uint32_t kRfBands = 876;
constexpr uint32_t kIfBands = 327276;
constexpr uint32_t kIfCurve = 511596;
constexpr uint32_t kTemps = 600876;
constexpr uint32_t kTrigDelays = 600924;
constexpr uint32_t kOscRatio = 601408;
constexpr uint32_t kCrc = 601416;
constexpr uint32_t kTimebase = 601424;
constexpr uint32_t kBytes = 603472;
constexpr int kTimebaseSlots = 256;
constexpr int kIfPoints = 384;
constexpr int kIfCentreIndex = 191;
constexpr double kIfSpacing = 78125.0;
constexpr double kSlopeScale = 1.5e7;  // polynomial argument: IF offset over this
}  // namespace maple_image

// Larch image fields.
namespace larch_image {
constexpr uint32_t kMix = 144;
constexpr uint32_t kBand0A = 256;
constexpr uint32_t kIf0 = 358656;
constexpr uint32_t kIfBytes = 9632;
constexpr uint32_t kInternalTemp = 397184;
constexpr uint32_t kTriggerDelays = 397216;
constexpr uint32_t kOscRatio = 397344;
constexpr uint32_t kChecksum = 397352;
constexpr uint32_t kBytes = 398384;
constexpr int kIfPoints = 301;
constexpr double kIfSpacing = 200000.0;
}  // namespace larch_image

// One RF table of the image: its steps and their frequencies.
struct RfTableGrid {
    int steps;
    double start;
    double stepSize;   // Hz, or decades per step when logarithmic
    bool logarithmic;
    int loRow;         // the LO row (Maple) or band table (Larch) it serves
    double Freq(int i) const;
};
// The ten Maple tables of a revision, in image order.
const RfTableGrid* MapleRfGrids(int rev);
// The six Larch tables, in image order.
const RfTableGrid* LarchRfGrids();
constexpr int kLarchRfTables = 6;

// The rough gain row of a frequency: the nearest multiple of 20 MHz, the
// lower on a tie, 0 to 309.
int RoughRowOf(double freq);

class FactoryCalibration {
public:
    FactoryCalibration(int productId, unsigned serial);

    const GainModel& Model() const { return m_model; }
    unsigned Serial() const { return m_serial; }

    // What the flash holds: one of the QSSIM_FLASH_... kinds.
    void SetKind(int kind) { m_kind = kind; }
    int Kind() const { return m_kind; }

    // Maple only: `used` timebase slots hold measured clock ratios, the
    // newest (slot used - 1) being 1 - ppm x 1e-6 and older ones stepping
    // towards 1. False for a Larch or a count outside 0 to 256.
    bool SetTimebaseSlots(int used, double ppm);

    // Larch only: the middle of the IF filter that the self-calibration
    // measures, hz from the nominal IF centre. False for a Maple.
    bool SetLarchIfCentre(double hz);

    // The device's true clock over the nominal one, as its image states it:
    // the newest timebase slot, or the factory's ratio.
    double ClockRatio() const;

    // Erases the image's pages of a whole flash (kFlashBytes) and writes the
    // image of the kind chosen. fpgaId goes into the header.
    void Write(uint8_t* flash, uint32_t fpgaId) const;

private:
    void WriteMaple(uint8_t* image, uint32_t fpgaId) const;
    void WriteLarch(uint8_t* image, uint32_t fpgaId) const;
    void WriteHeader(uint8_t* image, uint32_t fpgaId) const;

    GainModel m_model;
    int m_productId;
    unsigned m_serial;
    int m_kind;
    int m_timebaseUsed = 0;
    double m_timebasePpm = 0.0;
};

}  // namespace qssim
