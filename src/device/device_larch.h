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

// What the Larch's measurements are planned with, beside its tuner.
extern const ModelRecord kLarchRecord;

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
    const Tuner& GetTuner() const override { return m_tuner; }
    Settings* NewSettings() const override;

    // Reads the calibration image (pages 8 to 15) whatever the transfers
    // report, takes the identity from its header and loads the tables.
    // Always qsNoError.
    qsStatus InitCorrections();

    // Measures the IF pass band and keeps its shape and centre. Ends any
    // measurement first and leaves the device idle. Always qsNoError.
    qsStatus SelfCalIF() override;

    // Self-calibration settings and a plan and command block at their
    // open-time values.
    void PrepForSelfCal();

    // Sets up and sends one capture pass: side 0 the lower half of the IF,
    // side 1 the upper. qsNoError, or qsAllocationLimitErr when its engine
    // cannot be built (nothing is then sent).
    qsStatus ConfigureIFSelfCal(int side);

private:
    // The engine of the capture pass in progress, which the device owns as
    // its engine; kept typed for its peak pass.
    SweepEngine* m_calEngine = nullptr;

    LarchTuner m_tuner;
};

}  // namespace qs
