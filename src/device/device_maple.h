// The Maple: its record and tuner, its calibration, its open sequence and
// its service calls (time-base slots and rough gains in flash).
#pragma once

#include "device/device.h"
#include "device/lo_tables_maple.h"

namespace qs {

class CorrectionsMaple;

// What the Maple's measurements are planned with, beside its tuner.
extern const ModelRecord kMapleRecord;

class DeviceMaple : public Device {
public:
    explicit DeviceMaple(CypressInterface* usb);
    ~DeviceMaple() override;

    // The start-up sweep, the calibration image, the ports. A failed
    // start-up sweep or flash read fails the open; an image that does not
    // load opens uncalibrated (qsUncalibratedDevice).
    qsStatus OpenDevice() override;
    const Tuner& GetTuner() const override { return m_tuner; }
    Settings* NewSettings() const override;

    // Reads the calibration image (pages 8 to 19): identity, validity and
    // the tables. The status of a failed flash read, qsUncalibratedDevice
    // when the image does not load, else qsNoError.
    qsStatus InitCorrections();

    // The start-up sweep of the open sequence: 2 to 4 GHz at the defaults,
    // run on the uncalibrated tables, its trace dropped. Its status.
    qsStatus InitializationSweep();

    // Adds ppm to the time base and keeps it in the next free flash slot.
    // qsInvalidParameterErr for an error no oscillator has,
    // qsDeviceNotIdleErr while a measurement runs (it writes the flash).
    qsStatus AddTimebaseCorrection(double ppm) override;
    qsStatus QueryMapleRev(int& rev) const override {
        rev = MapleRev();
        return qsNoError;
    }
    // Replaces the calibration's rough gains of the two halves.
    qsStatus ApplyRoughGains(const unsigned char* low, const unsigned char* high) override;

protected:
    CorrectionsMaple& CorrMaple();

private:

    MapleTuner m_tuner;
};

}  // namespace qs
