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
    return text;
}

void WriteCsvSweep(std::ostream& out, const SweepDescription& description, const Trace& trace) {
    out << "# qs sweep, " << (description.device.empty() ? "" : description.device + ", ")
        << DescribeSettings(description) << ", " << FormatUtc(trace.utc) << "\n"
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

void WritePowerSweep(std::ostream& out, const Trace& trace, size_t maxBinsPerRow) {
    const std::tm f = UtcFields(trace.utc);
    char stamp[40];
    std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02d, %02d:%02d:%02d", f.tm_year + 1900,
                  f.tm_mon + 1, f.tm_mday, f.tm_hour, f.tm_min, f.tm_sec);
    const size_t points = trace.maxDbm.size();
    if (maxBinsPerRow == 0) maxBinsPerRow = points;
    char field[64];
    for (size_t first = 0; first < points; first += maxBinsPerRow) {
        const size_t count = std::min(maxBinsPerRow, points - first);
        const double lowHz = trace.startHz + static_cast<double>(first) * trace.binHz;
        const double highHz = lowHz + static_cast<double>(count) * trace.binHz;
        int n = std::snprintf(field, sizeof field, ", %.0f, %.0f, %.2f, %zu", std::round(lowHz),
                              std::round(highHz), trace.binHz, count);
        out << stamp;
        out.write(field, n);
        for (size_t i = first; i < first + count; ++i) {
            n = std::snprintf(field, sizeof field, ", %.2f", trace.maxDbm[i]);
            out.write(field, n);
        }
        out << "\n";
    }
}

}  // namespace qstool
