// The Larch: its open sequence and its IF self-calibration.
//
// At open and on qsSelfCal the Larch measures the shape of its IF pass band:
// two capture passes of 288 steps each sweep the device's internal tone
// across the IF, 39,062.5 Hz apart from -11.25 MHz. The shape, less its mean
// over the middle of the band, becomes the corrections' 576 self-calibration
// constants, and the middle of its -2 dB band becomes idealIFOffset, where
// the sweep plans centre their patches.
//
// Everything runs on the thread that opens the device or calls qsSelfCal;
// the interface thread and the engine's workers run underneath as in a
// sweep. The self-calibration rewrites the settings, the plan and the
// command block, so a measurement cannot go on after it.
#pragma once

#include "device/device.h"
#include "device/lo_tables_larch.h"

namespace qs {

class CorrectionsLarch;
class SweepEngine;

// The arithmetic after the two passes, on the 576 peak values in dB:
// subtracts the mean of points 144 to 431 from every point, then finds the
// -2 dB edges (searching from point 64 down and from point 512 up; an edge
// not found falls back to point 1 or 575) and returns the middle of the band
// between them as a fraction of 20 MHz.
double self_cal_if_offset(double* c);

class DeviceLarch : public Device {
public:
    static constexpr int CAL_STEPS = 288;  // steps of one capture pass

    explicit DeviceLarch(CypressInterface* usb);
    ~DeviceLarch() override;

    // Self-calibration, calibration image, self-calibration again, the
    // ports. Always qsNoError: the Larch opens whatever its flash holds.
    qsStatus OpenDevice() override;

    // Reads the calibration image (pages 8 to 15) whatever the transfers
    // report, takes the identity from its header and loads the tables.
    // Always qsNoError.
    qsStatus InitCorrections();

    // Measures the IF pass band and keeps its shape and centre. Ends any
    // measurement first and leaves the device idle. Always qsNoError.
    qsStatus SelfCalIF() override;

    // Plans a swept measurement: FFT size, LO steps on the 20 MHz, 10 MHz
    // (rejection) or 400 kHz (narrow) grid centred where the self-
    // calibration found the IF band's middle, an extra step for each
    // residual spur inside the span, gain and attenuation per band, the
    // command block, the patch list, the correction array and the engine.
    // The flag is not read. qsBandwidthErr for an RBW above the span.
    qsStatus ConfigureSweepMode(unsigned flag) override;

    // Lays the plan out as sub-bands of m_cmd and as patches: the residual
    // steps first, then one sub-band per LO row. Fills initialBand,
    // activeBandCnt and the residual locations. Always 0.
    int SetupCommand();

    // The four control bytes of a sub-band; the low byte of the port mask
    // goes into byte 0.
    void PackSettings(const s3Ctrl_t* s, uint8_t* settings) const;

    // Plans real-time mode: one LO position on the 400 kHz grid, the trace
    // around the centre, the IF corrections, the engine; then starts the
    // stream. qsInvalidParameterErr (nothing changed) for a span or RBW
    // outside the real-time range; a sweep time below 1 ms is raised.
    qsStatus ConfigureRealTime(unsigned flag) override;

    // Plans the streaming mode at the settings' IQ centre and starts the
    // stream: a DirectStream for QS_STREAM_FLAG_DIRECT, else an IQStream.
    qsStatus ConfigureIQ(unsigned flag) override;

    // Plans audio mode at the settings' audio frequency rounded to the
    // 400 kHz grid, 20 MHz around it, and starts the stream.
    qsStatus ConfigureAudioDemod() override;

    // The one-position command of the streaming modes: sub-band 0 streams
    // from the LO position of `center` and one patch describes it; a centre
    // near a residual spur reads the IF table as a residual step does.
    // Waits until the mailbox is empty first. Always 0.
    int SetupRealTimeCommand(double center);

    // Plans a tracking-generator sweep as the Maple does, at the Larch's
    // receiver settings: 30 dB for the primary pass, 10 dB for the
    // secondary. qsNotSupportedErr on firmware below 5.
    qsStatus ConfigureTgMode(unsigned flag) override;

    // Fills m_cmd (the primary pass), m_secCmd (the same at the secondary
    // attenuation) and the patch list from the plan. Always 0.
    int SetupTGCommand() override;
    // The oscillator words of a sub-band that starts at freq in the row of
    // lut: 100 kHz units, the first oscillator's halved in bands 2 and 3.
    void SetOscillatorWords(subBand_t& sb, const LOLUTLarch& lut, double freq) const;

    // Self-calibration settings and a plan and command block at their
    // open-time values.
    void PrepForSelfCal();

    // Sets up and sends one capture pass: side 0 the lower half of the IF,
    // side 1 the upper. qsNoError, or qsAllocationLimitErr when its engine
    // cannot be built (nothing is then sent).
    qsStatus ConfigureIFSelfCal(int side);

protected:
    CorrectionsLarch& CorrLarch();
    // The engine of the self-calibration pass in progress (owned by
    // m_engine); valid from ConfigureIFSelfCal's success to the next Abort.
    SweepEngine* m_calEngine = nullptr;
};

}  // namespace qs
