// The Maple: its open sequence and the planning of its measurements.
//
// Planning runs on the caller's thread inside Device::Initiate, after
// Abort has destroyed the previous engine, so it has the plan, the command
// block and the calibration to itself.
#pragma once

#include "device/device.h"
#include "device/lo_tables_maple.h"

namespace qs {

class CorrectionsMaple;

class DeviceMaple : public Device {
public:
    explicit DeviceMaple(CypressInterface* usb);
    ~DeviceMaple() override;

    qsStatus OpenDevice() override;

    // Plans a swept measurement: FFT size, LO steps, packets per step, the
    // trace's start and length, gain and attenuation, the command block,
    // the patch list and the correction array. The flag's top bit asks for
    // the low band's start-up sweep instead.
    qsStatus ConfigureSweepMode(unsigned flag) override;

    // Plans audio mode: a 20 MHz band at the LO grid position nearest the
    // demodulation frequency, the audio engine (which tunes the remainder
    // itself), and the stream started at once.
    qsStatus ConfigureAudioDemod() override;

    // Lays the plan out as sub-bands of m_cmd and as patches; fills
    // initialBand and activeBandCnt. Always 0.
    int SetupCommand();

    // The one-position command of the streaming modes: sub-band 0 streams
    // from the LO position of `center` (row 0 when bandZero) and one patch
    // describes it. Waits until the mailbox is empty first. Always 0.
    int SetupRealTimeCommand(double center, bool bandZero);

    // The four control bytes of a sub-band. s.gain is not packed on this
    // model; the low byte of the port mask goes into byte 0.
    void PackSettings(const s3Ctrl_t* s, uint8_t* settings) const;

    int GetRev() const { return MapleRev(); }

    // Reads the calibration image (pages 8 to 19): identity, validity and
    // the tables. The status of a failed flash read, qsUncalibratedDevice
    // when the image does not load, else qsNoError.
    qsStatus InitCorrections();

    // The start-up sweep of the open sequence: 2 to 4 GHz at the defaults,
    // run on the uncalibrated tables, its trace dropped. Its status.
    qsStatus InitializationSweep();

    // Adds ppm to the time base and keeps it in the next free flash slot.
    bool AddTimebaseCorrection(double ppm);

    // Replaces the calibration's rough gains of the two halves.
    void ApplyRoughGains(const unsigned char* low, const unsigned char* high);

protected:
    // The low band alone, for the start-up sweep.
    qsStatus ConfigureBandZeroOnlySweep();

    // The one place where a planned sweep gets its engine: SweepEngine_Maple
    // for dsRatio 1, NarrowSweep above. Returns qsNoError once the engine
    // exists; until then a planned sweep refuses to start.
    qsStatus BuildSweepEngine();

    CorrectionsMaple& CorrMaple();

    const LOLUTMaple* lolutMaple;
};

}  // namespace qs
