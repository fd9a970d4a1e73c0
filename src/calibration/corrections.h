// The calibration of one device: the abstract Corrections every device
// owns, and the open-time load of the calibration image from flash.
//
// A Corrections object exists from the device's constructor on, in the
// state of an uncalibrated device (all table values 0, oscillator ratio
// 1.0), so the start-up sweep that runs before the image is read still has
// corrections to use. Everything here runs on the thread that opens the
// device or calls qsInitiate, while no engine is alive; engines only read
// the finished array through GetCorrections.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "qs_api.h"

namespace qs {

class Settings;
struct SweepInfo;
class PatchInfo;

// The form in which correction arrays travel.
using VecDouble = std::vector<double>;

constexpr int SELF_CAL_CONSTANTS = 576;  // two passes of 288 IF steps

class Corrections {
public:
    virtual ~Corrections() = default;
    Corrections(const Corrections&) = delete;
    Corrections& operator=(const Corrections&) = delete;

    // Loads an image of at least the model's image size; false if its
    // tables are blank, and then nothing changes.
    virtual bool Initialize(const unsigned char* mem) = 0;
    // Temperature and settings of a measurement; solves gain and
    // attenuation. Always true.
    virtual bool Configure(double temp, const Settings& set, const SweepInfo& info) = 0;
    virtual uint8_t GetGain(int band) = 0;
    virtual uint8_t GetAtten(int band) = 0;
    // Fills m_carray for the plan.
    virtual void BuildCorrectionArray(const Settings* set, const SweepInfo* info, bool zero_span) = 0;
    // One value per IF bin into array, in dB whatever the scale: the
    // streaming set-ups turn it linear where they need it.
    virtual void BuildIFCorrectionArray(const Settings* set, const SweepInfo* info,
                                        VecDouble& array) = 0;
    // The directly sampled low band's IF corrections about center, in dB; a
    // model without such a band is never asked, and gets 0 dB.
    virtual void BuildDirectCorrectionArray(VecDouble& array, double center) {
        (void)center;
        array.assign(2048, 0.0);
    }
    // The command block's rough-gain bytes for the plan's patches; a model
    // whose device takes none leaves them as they are.
    virtual void FillRoughGains(uint8_t* bytes, const PatchInfo& patches) const {
        (void)bytes;
        (void)patches;
    }
    // The corrections of a tracking-generator sweep of TGptsPer20M points
    // per patch, every band at the given gain and attenuation index.
    virtual void BuildQSTGCorrectionArray(const Settings* set, const SweepInfo* info, int TGptsPer20M,
                                          int gain, int atten) = 0;
    // Back to the tables of an uncalibrated device.
    virtual void ZeroCorrections() = 0;
    // Samples between a trigger and its signal at freq.
    virtual int GetTriggerDelay(double freq) = 0;
    virtual void ClearSelfCalConstants() = 0;
    // Copies SELF_CAL_CONSTANTS doubles; null is ignored.
    virtual void SetSelfCalConstants(double* data) = 0;

    // Initialize with the length of the buffer checked first: an image
    // shorter than the model's layout is refused like a blank one. This is
    // the entry for bytes of unknown size.
    bool InitializeFrom(const unsigned char* mem, size_t len) {
        return mem != nullptr && len >= m_imageSize && Initialize(mem);
    }
    size_t ImageSize() const { return m_imageSize; }

    double GetOscRatio() const { return m_oscRatio; }
    void SetOscRatio(double r) { m_oscRatio = r; }
    const VecDouble& GetCorrections() const { return m_carray; }

protected:
    explicit Corrections(size_t imageSize) : m_imageSize(imageSize) {}

    // Places temp among the table temperatures temps[0..top]: m_t and m_tp
    // interpolate between neighbours; below temps[0] the first curve reads,
    // from temps[top] on the curve after tailIndex reads whole.
    void PlaceTemperature(const float* temps, int top, int tailIndex, double temp);

    double m_temp = 0.0;      // degrees Celsius at the last Configure
    double m_ref = 0.0;       // reference level at the last Configure, dBm
    int32_t m_t = 0;          // lower temperature index
    float m_tp = 0.0f;        // fraction towards the next temperature
    double m_oscRatio = 1.0;  // true over nominal frequency
    VecDouble m_carray;

private:
    size_t m_imageSize;
};

// --- Loading the image from flash ------------------------------------------
//
// The device core plugs its flash access in here. The reader fills one
// 65,536-byte page and returns the transport's transfer status after the
// read; the writer sends one 256-byte write page. Both run on the opening
// (or calling) thread and may block on the interface thread.

using FlashPageReader = std::function<qsStatus(int page, unsigned char* out)>;
using FlashPageWriter = std::function<void(int page, const unsigned char* data)>;

// The device fields the header sets. A blank header clears valid and
// leaves sid and firmwareVersion alone.
struct DeviceIdentity {
    bool valid = true;
    unsigned sid = 0;
    int firmwareVersion = 0;
};

// Maple: reads pages 8 to 19 and stops at the first failed transfer,
// returning its status with corr and id untouched. Then takes the identity
// and loads corr; qsUncalibratedDevice when the tables are blank.
qsStatus load_calibration_maple(const FlashPageReader& read, Corrections& corr, DeviceIdentity& id);
// Larch: reads pages 8 to 15 whatever the transfers report, takes the
// identity, loads corr, and always answers qsNoError.
qsStatus load_calibration_larch(const FlashPageReader& read, Corrections& corr, DeviceIdentity& id);

}  // namespace qs
