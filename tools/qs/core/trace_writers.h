// Sweep results as text: our CSV, and the row layout of the common
// power-sweep tools so that existing heat-map scripts read our sweeps.
#pragma once

#include <ctime>
#include <ostream>
#include <string>
#include <vector>

#include "core/options.h"

namespace qstool {

// One trace as fetched: point i is at startHz + i * binHz.
struct Trace {
    double startHz = 0.0;
    double binHz = 0.0;
    std::vector<double> minDbm;
    std::vector<double> maxDbm;
    timespec utc{};  // when the sweep was asked for
};

// What the settings and the device were, for the CSV comment and the title.
struct SweepDescription {
    SweepOptions options;
    double rbwHz = 0.0;  // as sent, after defaults
    double vbwHz = 0.0;
    std::string device;  // "Maple 12345678"
};

// "2026-11-23T01:56:16.123Z".
std::string FormatUtc(const timespec& utc);

// "2.4 GHz to 2.5 GHz, RBW 100 kHz, VBW 100 kHz, ref -20 dBm, native/nuttall,
// minmax": the settings in one line.
std::string DescribeSettings(const SweepDescription& description);

// A comment line with the settings, the device and the UTC time, a header
// row, then one row per point: frequency in Hz, min dBm, max dBm.
void WriteCsvSweep(std::ostream& out, const SweepDescription& description, const Trace& trace);

// The same sweep as rows "date, time, Hz low, Hz high, Hz bin width,
// samples, dB, dB, ...", at most maxBinsPerRow levels a row, all rows with
// the sweep's one UTC time stamp. Levels are the max trace (the min trace
// too under the average detector, where the two are the same). Hz high is
// Hz low plus the row's bins times the bin width; samples is the number of
// levels in the row.
void WritePowerSweep(std::ostream& out, const Trace& trace, size_t maxBinsPerRow = 1024);

}  // namespace qstool
