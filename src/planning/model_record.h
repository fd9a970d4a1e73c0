// The numbers and rules in which the two models' measurements differ,
// beside their tuners. Each model fills one record; the set-ups and the
// planning functions are written once over it.
#pragma once

#include <cstdint>

#include "settings/sweep_info.h"

namespace qs {

struct ModelRecord {
    // The LO grid of the streaming modes (real-time, I/Q, audio), Hz.
    double streamGridHz;
    // The LO grid of a narrow sweep (its second look steps one grid down), Hz.
    double narrowGridHz;
    // Narrow sweeps (dsRatio 16 and 256) only for starts from here up, Hz.
    double narrowMinStartHz;
    // I/Q centres below this stream the directly sampled low band; 0: none.
    double directIQTopHz;
    // qsSetIFOffset's manual offset moves a sweep's slices.
    bool manualIFOffset;
    // Full-scale traces plan wide sweeps on a 10 MHz grid.
    bool fullScaleTenMHzGrid;
    // A narrow sweep always reads 4 packets more per step (else only below
    // an RBW of 800 Hz, as every sweep does).
    bool narrowExtraPackets;
    // Points a wide sweep's trace takes past the span.
    int sweepExtraPoints;
    // The first trace point is the bin at or below the start (else the
    // nearest one).
    bool sweepSkipRoundsDown;
    // The low band can be swept alone and raw (QS_SWEEP_FLAG_BAND_ZERO_ONLY).
    bool lowBandRawSweep;

    // Real-time limits, both ends included, and points past the span.
    double realTimeMinSpanHz, realTimeMaxSpanHz;
    double realTimeMinRbwHz, realTimeMaxRbwHz;
    int realTimeExtraPoints;

    // What the monitor's USB current reading is multiplied by to be amps
    // (a Maple reports half its supply current).
    float usbCurrentScale;

    // Generator sweeps: the attenuation index each pass's corrections are
    // read at, the primary pass's attenuation code, and how the secondary
    // command rewrites byte 3 of each sub-band (bits under mask set to bits).
    int tgPrimaryAttenIndex;
    int tgSecondaryAttenIndex;
    uint8_t tgPrimaryAttenCode;
    uint8_t tgSecondaryMask;
    uint8_t tgSecondaryBits;
    // Where the generator sweep's engine reads each point's tone.
    TgPeakRules tgPeaks;
};

}  // namespace qs
