// The device commands of a plan: pure functions from a plan (SweepInfo)
// and the model's tuner to the command block and the plan's patches.
// Each appends the patches the device will step through, in step order.
#pragma once

#include <cstdint>
#include <functional>

#include "planning/model_record.h"
#include "planning/tuner.h"
#include "settings/sweep_info.h"
#include "transport/wire_formats.h"

namespace qs {

// A row's gain and attenuation as the calibration solved them.
struct RowGain {
    uint8_t gain;
    uint8_t atten;
};
using GainOfRow = std::function<RowGain(int row)>;

// Packets per step are a power of two, or three times one, which the
// device takes as 1.5 times the next lower power: the two packet-size
// fields of the control bytes for ppf.
void set_packet_size(s3Ctrl_t& s, int ppf);

// A swept measurement: the residual steps first (one sub-band and one patch
// each, and their places in the trace into rps), then one sub-band per LO
// row from the plan's initial centre. Fills initialBand and activeBandCnt.
void BuildSweepCommand(SweepInfo& si, ResidualInfo& rps, const Tuner& tuner, bool imageReject, unsigned portMask,
                       const GainOfRow& gainOf, DeviceCommand& cmd);

// The one-position command of the streaming modes: sub-band 0 streams from
// the LO position `center` (row 0 when lowBand), one patch describes it.
// Near a residual spur both oscillators move up by the residual steps' IF
// shift, and the patch reads the IF there. Only sub-band 0 is written.
void BuildStreamCommand(SweepInfo& si, const Tuner& tuner, double center, bool lowBand, unsigned portMask,
                        const GainOfRow& gainOf, DeviceCommand& cmd);

// The primary pass of a generator sweep, the receiver at gain `gain` and
// the model's primary attenuation: a sub-band per LO row counting the
// generator points of its steps (TGCountPerPatch tells the device when to
// step the LO, TGstartingIndex where the first step starts).
void BuildTgCommand(SweepInfo& si, const Tuner& tuner, const ModelRecord& model, int gain, unsigned portMask,
                    DeviceCommand& cmd);

// The secondary pass: the primary's command at the model's secondary
// attenuation.
DeviceCommand SecondaryTgCommand(const DeviceCommand& primary, const ModelRecord& model);

}  // namespace qs
