// Planning: from the active settings, the model's record and tuner and the
// time base to a measurement plan (SweepInfo). Pure functions: they read
// their arguments and write only the plan they are given, so they are
// tested directly, without a device.
//
// The plan works in nominal frequency; oscRatio (true over nominal) maps it
// back, so bin sizes and start frequencies in the plan are true ones.
#pragma once

#include "qs_api.h"
#include "planning/model_record.h"
#include "planning/tuner.h"
#include "settings/sweep_info.h"

namespace qs {

class Settings;

// Where a narrow sweep tunes, for its slice centres once its first patch
// is known: the LO grid index of the first look, the wanted centre in kHz,
// and the nominal ends of the span.
struct NarrowTuning {
    int gridIndex = 0;
    int centreKHz = 0;
    double lowHz = 0.0;
    double highHz = 0.0;
};

// A swept measurement: FFT size, decimation, IF offset, LO steps (and the
// model's residual steps inside the span), packets per step, trace start
// and length. qsBandwidthErr for an RBW above the span.
qsStatus PlanSweep(const Settings& set, const ModelRecord& model, const Tuner& tuner, double oscRatio,
                   SweepInfo& si, ResidualInfo& rps, NarrowTuning& narrow);

// A narrow sweep's two slice centres (kHz from the IF's 0, as the engine
// mixes them), from where its first patch landed; a directly sampled first
// patch reads the RF itself and moves the plan's centre there.
void PlanNarrowCentres(const ModelRecord& model, const Patch& first, bool direct, const NarrowTuning& narrow,
                       SweepInfo& si);

// The low band alone at one position, raw from 0 Hz (the start-up sweep's
// check of the data path).
void PlanLowBandRawSweep(const Settings& set, double oscRatio, SweepInfo& si);

// Whether a sweep plan's buffers fit in a quarter of memoryBytes (0: not
// known, taken as fitting).
bool SweepFitsInMemory(const SweepInfo& si, double memoryBytes);

// Real-time mode: one LO position on the stream grid, the trace about the
// centre. Raises a sweep time below 1 ms in set. qsInvalidParameterErr
// (plan untouched) for a span or RBW outside the model's range. *loHz gets
// the nominal LO position.
qsStatus PlanRealTime(Settings& set, const ModelRecord& model, double oscRatio, SweepInfo& si, double* loHz);

// The streaming mode at the settings' centre; turns the log scale off.
// Returns the nominal LO position; *direct tells whether the centre lies
// in the directly sampled low band.
double PlanStream(Settings& set, const ModelRecord& model, double oscRatio, SweepInfo& si, bool* direct);

// Audio: 20 MHz about the LO position nearest the demodulation frequency,
// which becomes the settings' centre. Returns that position.
double PlanAudio(Settings& set, const ModelRecord& model, double oscRatio, SweepInfo& si);

// A generator sweep: the frequency step whose point count comes nearest to
// the wanted one, trace length and patches, the receiver's RBW, VBW and
// window (written to set), FFT size and packets per point. Returns the
// points per 20 MHz patch.
int PlanTgSweep(Settings& set, SweepInfo& si);

// The patch of a generator sweep and the LO grid of its centres.
constexpr double TG_PATCH_HZ = 2e7;
constexpr double TG_LO_GRID_HZ = 800000.0;

}  // namespace qs
