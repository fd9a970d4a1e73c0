// The receiver behind the firmware of a Maple or a Larch: turns the scene at
// the antenna into the converter's samples for each LO step a command asks
// for.
//
// A step is decoded from its sub-band as the hardware would. Maple: the
// control bytes give the path (hardware band in the top bits of byte 3, none
// for direct sampling) and the attenuator code (its low five bits), the
// rough gain list of the command gives the IF amplifier's code for the step,
// and the oscillator words with the LO table row of that band give the RF
// centre that lands on 20 MHz. Larch: bytes 2 and 3 give band, gain and
// attenuation; LO1 counts 100 kHz (200 kHz in hardware bands 2 and 3) and
// LO2 100 kHz. A Larch capture command (self-calibration) sends its internal
// tone through the IF instead, at -11.25 MHz + (288 x side + step) x
// 39,062.5 Hz from the IF centre. A tone then appears at 20 MHz plus its offset from
// the centre (minus, on a flipped row), moved by any second oscillator word
// other than the row's own; the low band sees the antenna directly. Levels
// come from the device's gain model (sim_gain_model.h) at the firmware's
// temperature, so that they agree with the calibration image.
//
// Samples: tones by recursive oscillators, phase-continuous in the run's
// time order of samples; white Gaussian noise at the scene's density and the
// gain at the step's centre, over the converter's own 1.5 steps rms and its
// offset of a few steps (a line at 0 Hz, the direct path's feed-through),
// drawn from a table by a generator seeded from
// the packet's place in the run, so that a packet is the same whichever
// order the channels are read in; rounded to 14 bits and clipped at full
// scale; a packet that clips steps the converter's overflow count. A stream
// stays at its first LO step.
#pragma once

#include <cstdint>
#include <vector>

#include "sim_calibration.h"
#include "sim_firmware.h"

namespace qssim {

// One LO step as the receiver sees it.
struct ReceiverStep {
    bool valid = false;     // a path the receiver knows
    int row = 0;            // LO table row; 0 samples directly
    double centreHz = 0.0;  // nominal RF at 20 MHz of the converter
    double lo2ErrorHz = 0;  // second oscillator's distance from the row's own word
    bool flip = false;
    int attenCode = 0;
    int roughCode = 0;
    bool larch = false;
    int gain = 0;            // Larch gain code
    int attenIndex = 0;      // Larch attenuation index
    bool calTone = false;    // Larch capture: the internal tone, not the antenna
    double calOffsetHz = 0;  // its offset from the IF centre
};

class ReceiverSource : public SampleSource {
public:
    explicit ReceiverSource(const FactoryCalibration* factory);

    void FillPacket(const PacketContext& ctx, const Scene& scene, int16_t* out,
                    int count) override;
    bool LastPacketClipped() const override { return m_clipped; }

    // The step `step` of sub-band `subBand` of a command.
    ReceiverStep DecodeStep(const Command& command, int subBand, int step) const;
    ReceiverStep DecodeLarchStep(const Command& command, int subBand, int step) const;

    // Where a tone of the true frequency rfHz lands in a step, as a fraction
    // of the sample rate, and its gain in dB; false when the path stops it.
    bool ToneResponse(const ReceiverStep& s, double rfHz, double celsius, double* cycles,
                      double* gainDb) const;
    // The gain at the step's centre, which sets the level of the noise.
    double CentreGainDb(const ReceiverStep& s, double celsius) const;

private:
    const FactoryCalibration* m_factory;
    std::vector<float> m_acc;  // one packet, reused
    bool m_clipped = false;
};

}  // namespace qssim
