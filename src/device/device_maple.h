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

    // Plans real-time mode: one LO position on the 800 kHz grid, the trace
    // around the centre, the IF corrections, the engine; then starts the
    // stream. qsInvalidParameterErr (nothing changed) for a span or RBW
    // outside the real-time range; a sweep time below 1 ms is raised.
    qsStatus ConfigureRealTime(unsigned flag) override;

    // Plans the streaming mode at the settings' IQ centre and starts the
    // stream: a DirectStream for QS_STREAM_FLAG_DIRECT or
    // QS_STREAM_FLAG_BAND_ZERO, else an IQStream. Centres below 16 MHz
    // stream from the low band (row 0) with its flat correction.
    qsStatus ConfigureIQ(unsigned flag) override;

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

    // Plans a tracking-generator sweep: a frequency step from a fixed list
    // that brings the points nearest to m_tgSweepSize, the points fitted
    // into 20 MHz patches, the receiver's RBW and VBW (kept in the active
    // settings), both passes' commands and correction arrays, and the
    // engine. qsNotSupportedErr on firmware below 5.
    qsStatus ConfigureTgMode(unsigned flag) override;

    // Fills m_cmd (the primary pass), m_secCmd (the same at the secondary
    // attenuation) and the patch list from the plan. Always 0.
    int SetupTGCommand() override;

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

    // The one place where a planned sweep gets its engine: SweepEngine
    // for dsRatio 1, NarrowSweep above. Throws as the engines do.
    void BuildSweepEngine();

    CorrectionsMaple& CorrMaple();

    const LOLUTMaple* lolutMaple;
};

}  // namespace qs
