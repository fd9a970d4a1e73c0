#include "core/trace_writers.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "core/si_units.h"
#include "qs_api.h"

namespace qstool {

namespace {

const char* ShapeName(unsigned shape) {
    switch (shape) {
        case QS_RBW_SHAPE_GAUSSIAN: return "gaussian";
        case QS_RBW_SHAPE_LOWPASS: return "lowpass";
        default: return "native";
    }
}

const char* WindowName(unsigned window) {
    switch (window) {
        case QS_WINDOW_BLACKMAN: return "blackman";
        case QS_WINDOW_HAMMING: return "hamming";
        case QS_WINDOW_FLAT_TOP: return "flattop";
        default: return "nuttall";
    }
}

std::tm UtcFields(const timespec& utc) {
    std::tm fields{};
    const time_t seconds = utc.tv_sec;
    gmtime_r(&seconds, &fields);
    return fields;
}

}  // namespace

std::string FormatUtc(const timespec& utc) {
    const std::tm f = UtcFields(utc);
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", f.tm_year + 1900,
                  f.tm_mon + 1, f.tm_mday, f.tm_hour, f.tm_min, f.tm_sec,
                  static_cast<int>(utc.tv_nsec / 1000000));
    return text;
}

std::string DescribeSettings(const SweepDescription& d) {
    const SweepOptions& o = d.options;
    char level[32];
    std::snprintf(level, sizeof level, "%g dBm", o.refDbm);
    std::string text = FormatHz(o.startHz) + " to " + FormatHz(o.stopHz) + ", RBW " +
                       FormatHz(d.rbwHz) + ", VBW " + FormatHz(d.vbwHz) + ", ref " + level +
                       ", " + ShapeName(o.shape);
    // The window shapes only the native RBW.
    if (o.shape == QS_RBW_SHAPE_NATIVE) text += std::string("/") + WindowName(o.window);
    text += o.detector == QS_DETECTOR_AVERAGE ? ", average" : ", minmax";
    if (o.attenDb >= 0.0) text += ", atten " + FormatExact(o.attenDb) + " dB";
    if (o.gain >= 0) text += ", gain " + std::to_string(o.gain);
    if (o.ppm != 0.0) text += ", time base " + FormatExact(o.ppm) + " ppm";
    return text;
}

void WriteCsvSweep(std::ostream& out, const SweepDescription& description, const Trace& trace) {
    out << "# qs sweep, " << (description.device.empty() ? "" : description.device + ", ")
        << DescribeSettings(description) << ", bin " << FormatExact(trace.binHz) << " Hz"
        << (trace.sweeps > 1 ? ", power average of " + std::to_string(trace.sweeps) + " sweeps" : "") << ", "
        << FormatUtc(trace.utc) << "\n"
        << "frequency_hz,min_dbm,max_dbm\n";
    const size_t points = std::min(trace.minDbm.size(), trace.maxDbm.size());
    char row[96];
    for (size_t i = 0; i < points; ++i) {
        const int n = std::snprintf(row, sizeof row, "%.3f,%.2f,%.2f\n",
                                    trace.startHz + static_cast<double>(i) * trace.binHz,
                                    trace.minDbm[i], trace.maxDbm[i]);
        out.write(row, n);
    }
}

std::pair<size_t, size_t> CropRange(const Trace& trace, double lowHz, double highHz, double floorHz) {
    const size_t points = std::min(trace.minDbm.size(), trace.maxDbm.size());
    if (points == 0 || !(trace.binHz > 0.0)) return {0, points};
    const double first = std::max(std::ceil((lowHz - trace.startHz) / trace.binHz - 0.5),
                                  std::ceil((floorHz - trace.startHz) / trace.binHz));
    const double last = std::floor((highHz - trace.startHz) / trace.binHz + 0.5);
    const double lo = std::max(0.0, first);
    const double hi = std::min(static_cast<double>(points) - 1.0, last);
    if (hi < lo) return {0, 0};
    return {static_cast<size_t>(lo), static_cast<size_t>(hi - lo) + 1};
}

Trace Crop(const Trace& trace, double lowHz, double highHz, double floorHz) {
    const auto [first, count] = CropRange(trace, lowHz, highHz, floorHz);
    Trace out;
    out.startHz = trace.startHz + static_cast<double>(first) * trace.binHz;
    out.binHz = trace.binHz;
    out.utc = trace.utc;
    out.sweeps = trace.sweeps;
    out.minDbm.assign(trace.minDbm.begin() + first, trace.minDbm.begin() + first + count);
    out.maxDbm.assign(trace.maxDbm.begin() + first, trace.maxDbm.begin() + first + count);
    return out;
}

namespace {

void AddPower(std::vector<double>& sumMw, const std::vector<double>& dbm, bool first) {
    if (first) sumMw.assign(dbm.size(), 0.0);
    const size_t n = std::min(sumMw.size(), dbm.size());
    for (size_t i = 0; i < n; ++i) sumMw[i] += std::pow(10.0, dbm[i] / 10.0);
}

std::vector<double> MeanDbm(const std::vector<double>& sumMw, int count) {
    std::vector<double> dbm(sumMw.size());
    for (size_t i = 0; i < sumMw.size(); ++i) dbm[i] = 10.0 * std::log10(sumMw[i] / count);
    return dbm;
}

}  // namespace

void PowerAverage::Add(const Trace& sweep) {
    if (m_count == 0) {
        m_startHz = sweep.startHz;
        m_binHz = sweep.binHz;
        m_utc = sweep.utc;
    }
    AddPower(m_minMw, sweep.minDbm, m_count == 0);
    AddPower(m_maxMw, sweep.maxDbm, m_count == 0);
    ++m_count;
}

Trace PowerAverage::Result() const {
    Trace t;
    t.startHz = m_startHz;
    t.binHz = m_binHz;
    t.utc = m_utc;
    t.sweeps = m_count;
    if (m_count == 0) return t;
    t.minDbm = MeanDbm(m_minMw, m_count);
    t.maxDbm = MeanDbm(m_maxMw, m_count);
    return t;
}

void WritePowerSweep(std::ostream& out, const Trace& trace, size_t maxBinsPerRow) {
    const std::tm f = UtcFields(trace.utc);
    char stamp[40];
    std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02d, %02d:%02d:%02d", f.tm_year + 1900,
                  f.tm_mon + 1, f.tm_mday, f.tm_hour, f.tm_min, f.tm_sec);
    const size_t points = trace.maxDbm.size();
    if (maxBinsPerRow == 0) maxBinsPerRow = points;
    const std::string bin = FormatExact(trace.binHz);
    char field[64];
    for (size_t first = 0; first < points; first += maxBinsPerRow) {
        const size_t count = std::min(maxBinsPerRow, points - first);
        // Both edges from the same expression, so that rows join exactly.
        const double lowHz = trace.startHz + static_cast<double>(first) * trace.binHz;
        const double highHz = trace.startHz + static_cast<double>(first + count) * trace.binHz;
        out << stamp << ", " << FormatExact(lowHz) << ", " << FormatExact(highHz) << ", " << bin << ", "
            << trace.sweeps;
        for (size_t i = first; i < first + count; ++i) {
            const int n = std::snprintf(field, sizeof field, ", %.2f", trace.maxDbm[i]);
            out.write(field, n);
        }
        out << "\n";
    }
}

}  // namespace qstool
