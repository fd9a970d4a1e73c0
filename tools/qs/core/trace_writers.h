// Sweep results as text: our CSV, and the row layout of the common
// power-sweep tools so that existing heat-map scripts read our sweeps.
#pragma once

#include <ctime>
#include <utility>
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
    timespec utc{};  // when the (first) sweep was asked for
    int sweeps = 1;  // how many sweeps were averaged into the levels
};

// The points of a trace that lie from lowHz to highHz (half a bin of slack
// at each end): a sweep shows what was asked, not the device's whole first
// and last step. Points below floorHz (the instrument's lowest frequency)
// go whatever the slack. Returns the first index and the count.
std::pair<size_t, size_t> CropRange(const Trace& trace, double lowHz, double highHz, double floorHz = 0.0);
Trace Crop(const Trace& trace, double lowHz, double highHz, double floorHz = 0.0);

// Sweeps averaged in power (mW), the way a level meter integrates; a level
// of -inf or below stays out of nothing, it simply adds no power.
class PowerAverage {
public:
    void Add(const Trace& sweep);
    int Count() const { return m_count; }
    // The average so far, with the first sweep's frequencies and time, and
    // the count in `sweeps`.
    Trace Result() const;
    void Clear() { m_count = 0; }

private:
    double m_startHz = 0.0, m_binHz = 0.0;  // the first sweep's axis
    timespec m_utc{};                      // and time
    std::vector<double> m_minMw, m_maxMw;
    int m_count = 0;
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

// The same record as rows "date, time, Hz low, Hz high, Hz bin width,
// samples, dB, dB, ...", at most maxBinsPerRow levels a row, all rows with
// the record's one UTC time stamp in whole seconds. Levels are the max trace
// (the min trace too under the average detector, where the two are the
// same). Each row's Hz low is the previous row's Hz high, and the numbers
// are exact to the millihertz, so that low + i * bin width gives every
// point's frequency; samples is the number of sweeps in each level.
void WritePowerSweep(std::ostream& out, const Trace& trace, size_t maxBinsPerRow = 1024);

}  // namespace qstool
