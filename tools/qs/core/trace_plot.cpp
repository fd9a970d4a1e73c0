#include "core/trace_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace qstool {

namespace {

constexpr double kMarginLeft = 78.0;
constexpr double kMarginRight = 24.0;
constexpr double kMarginTop = 52.0;
constexpr double kMarginBottom = 58.0;
constexpr double kFontSize = 12.0;
constexpr double kTitleSize = 13.0;
constexpr double kMinRangeDb = 20.0;
constexpr double kMaxRangeDb = 200.0;

struct FrequencyUnit {
    double scale;
    const char* name;
};

FrequencyUnit UnitFor(double hz) {
    if (hz >= 1e9) return {1e9, "GHz"};
    if (hz >= 1e6) return {1e6, "MHz"};
    if (hz >= 1e3) return {1e3, "kHz"};
    return {1.0, "Hz"};
}

// Enough decimals that neighbouring ticks differ in their labels.
int DecimalsFor(double step) {
    if (step >= 1.0) return 0;
    return static_cast<int>(std::ceil(-std::log10(step) - 1e-9));
}

double FrequencyAt(const Trace& trace, size_t i) {
    return trace.startHz + static_cast<double>(i) * trace.binHz;
}

void SetColour(cairo_t* cr, Rgb c, double alpha = 1.0) {
    cairo_set_source_rgba(cr, c.r, c.g, c.b, alpha);
}

void ShowText(cairo_t* cr, double x, double y, const std::string& text, double alignX,
              double alignY) {
    cairo_text_extents_t ext;
    cairo_text_extents(cr, text.c_str(), &ext);
    cairo_move_to(cr, x - ext.x_bearing - ext.width * alignX,
                  y - ext.y_bearing - ext.height * alignY);
    cairo_show_text(cr, text.c_str());
}

void DrawAxes(cairo_t* cr, const PlotFrame& f) {
    cairo_set_line_width(cr, 1.0);
    cairo_set_font_size(cr, kFontSize);

    const FrequencyUnit unit = UnitFor(std::max(std::fabs(f.lowHz), std::fabs(f.highHz)));
    const int maxFreqTicks = std::max(2, static_cast<int>(f.width / 90.0));
    const std::vector<double> freqTicks = NiceTicks(f.lowHz, f.highHz, maxFreqTicks);
    const double freqStep = freqTicks.size() > 1 ? freqTicks[1] - freqTicks[0] : f.highHz - f.lowHz;
    const int decimals = DecimalsFor(freqStep / unit.scale);
    for (double hz : freqTicks) {
        const double x = std::round(f.X(hz)) + 0.5;
        cairo_set_source_rgb(cr, 0.88, 0.88, 0.88);
        cairo_move_to(cr, x, f.top);
        cairo_line_to(cr, x, f.top + f.height);
        cairo_stroke(cr);
        char label[48];
        std::snprintf(label, sizeof label, "%.*f", decimals, hz / unit.scale);
        cairo_set_source_rgb(cr, 0.15, 0.15, 0.15);
        ShowText(cr, x, f.top + f.height + 6.0, label, 0.5, 0.0);
    }
    const std::string freqName = std::string("Frequency (") + unit.name + ")";
    ShowText(cr, f.left + f.width / 2.0, f.top + f.height + 30.0, freqName, 0.5, 0.0);

    const int maxLevelTicks = std::max(2, std::min(11, static_cast<int>(f.height / 28.0)));
    for (double dbm : NiceTicks(f.lowDbm, f.highDbm, maxLevelTicks)) {
        const double y = std::round(f.Y(dbm)) + 0.5;
        cairo_set_source_rgb(cr, 0.88, 0.88, 0.88);
        cairo_move_to(cr, f.left, y);
        cairo_line_to(cr, f.left + f.width, y);
        cairo_stroke(cr);
        char label[32];
        std::snprintf(label, sizeof label, "%g", dbm);
        cairo_set_source_rgb(cr, 0.15, 0.15, 0.15);
        ShowText(cr, f.left - 6.0, y, label, 1.0, 0.5);
    }
    cairo_save(cr);
    cairo_translate(cr, 16.0, f.top + f.height / 2.0);
    cairo_rotate(cr, -M_PI / 2.0);
    ShowText(cr, 0.0, 0.0, "Level (dBm)", 0.5, 0.5);
    cairo_restore(cr);

    cairo_set_source_rgb(cr, 0.3, 0.3, 0.3);
    cairo_rectangle(cr, f.left + 0.5, f.top + 0.5, f.width - 1.0, f.height - 1.0);
    cairo_stroke(cr);
}

// The traces reduced to what a pixel column can show: per column the lowest
// min and the highest max, or the points themselves when they are fewer
// than the columns.
struct Envelope {
    std::vector<double> x, low, high;
};

Envelope MakeEnvelope(const Trace& trace, const PlotFrame& f) {
    const size_t points = std::min(trace.minDbm.size(), trace.maxDbm.size());
    auto level = [&](double v) { return std::isfinite(v) ? v : f.lowDbm; };
    Envelope e;
    if (points <= static_cast<size_t>(f.width)) {
        for (size_t i = 0; i < points; ++i) {
            e.x.push_back(f.X(FrequencyAt(trace, i)));
            e.low.push_back(level(trace.minDbm[i]));
            e.high.push_back(level(trace.maxDbm[i]));
        }
        return e;
    }
    const int columns = static_cast<int>(f.width);
    e.x.resize(columns);
    e.low.assign(columns, HUGE_VAL);
    e.high.assign(columns, -HUGE_VAL);
    for (size_t i = 0; i < points; ++i) {
        const int c = std::clamp(static_cast<int>(f.X(FrequencyAt(trace, i)) - f.left), 0,
                                 columns - 1);
        e.low[c] = std::min(e.low[c], level(trace.minDbm[i]));
        e.high[c] = std::max(e.high[c], level(trace.maxDbm[i]));
    }
    // Points are denser than columns, so every column got some; drop any that did not.
    size_t kept = 0;
    for (int c = 0; c < columns; ++c) {
        if (e.high[c] < e.low[c]) continue;
        e.x[kept] = f.left + c + 0.5;
        e.low[kept] = e.low[c];
        e.high[kept] = e.high[c];
        ++kept;
    }
    e.x.resize(kept);
    e.low.resize(kept);
    e.high.resize(kept);
    return e;
}

void TracePath(cairo_t* cr, const Envelope& e, const std::vector<double>& levels,
               const PlotFrame& f) {
    for (size_t i = 0; i < e.x.size(); ++i) cairo_line_to(cr, e.x[i], f.Y(levels[i]));
}

void DrawTraces(cairo_t* cr, const Trace& trace, const PlotFrame& f) {
    const Envelope e = MakeEnvelope(trace, f);
    if (e.x.empty()) return;
    cairo_save(cr);
    cairo_rectangle(cr, f.left, f.top, f.width, f.height);
    cairo_clip(cr);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);

    // The band between min and max, then each edge.
    cairo_new_path(cr);
    TracePath(cr, e, e.high, f);
    for (size_t i = e.x.size(); i-- > 0;) cairo_line_to(cr, e.x[i], f.Y(e.low[i]));
    cairo_close_path(cr);
    SetColour(cr, kMinTraceColour, 0.35);
    cairo_fill(cr);

    cairo_set_line_width(cr, 1.2);
    cairo_new_path(cr);
    TracePath(cr, e, e.low, f);
    SetColour(cr, kMinTraceColour);
    cairo_stroke(cr);
    cairo_new_path(cr);
    TracePath(cr, e, e.high, f);
    SetColour(cr, kMaxTraceColour);
    cairo_stroke(cr);
    cairo_restore(cr);
}

void DrawLegend(cairo_t* cr, const PlotFrame& f) {
    cairo_set_font_size(cr, kFontSize);
    double x = f.left + f.width - 120.0;
    const double y = f.top - 12.0;
    const struct {
        Rgb colour;
        const char* name;
    } entries[] = {{kMaxTraceColour, "max"}, {kMinTraceColour, "min"}};
    for (const auto& entry : entries) {
        SetColour(cr, entry.colour);
        cairo_set_line_width(cr, 3.0);
        cairo_move_to(cr, x, y);
        cairo_line_to(cr, x + 22.0, y);
        cairo_stroke(cr);
        cairo_set_source_rgb(cr, 0.15, 0.15, 0.15);
        ShowText(cr, x + 28.0, y, entry.name, 0.0, 0.5);
        x += 62.0;
    }
}

}  // namespace

std::vector<double> NiceTicks(double low, double high, int maxTicks) {
    std::vector<double> ticks;
    if (!(high > low) || maxTicks < 2) return ticks;
    const double raw = (high - low) / (maxTicks - 1);
    const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 5.0, 10.0, 20.0}) {
        const double step = m * magnitude;
        const double first = std::ceil(low / step - 1e-9);
        const double last = std::floor(high / step + 1e-9);
        if (last - first + 1.0 > maxTicks) continue;
        for (double k = first; k <= last; k += 1.0) ticks.push_back(k * step);
        return ticks;
    }
    return ticks;
}

PlotFrame LayoutPlot(const Trace& trace, int width, int height) {
    PlotFrame f;
    f.left = kMarginLeft;
    f.top = kMarginTop;
    f.width = std::max(1.0, width - kMarginLeft - kMarginRight);
    f.height = std::max(1.0, height - kMarginTop - kMarginBottom);
    const size_t points = std::min(trace.minDbm.size(), trace.maxDbm.size());
    f.lowHz = trace.startHz;
    f.highHz = points > 1 ? FrequencyAt(trace, points - 1) : trace.startHz + trace.binHz;
    if (!(f.highHz > f.lowHz)) f.highHz = f.lowHz + 1.0;

    double lowest = HUGE_VAL, highest = -HUGE_VAL;
    for (size_t i = 0; i < points; ++i) {
        if (std::isfinite(trace.minDbm[i])) lowest = std::min(lowest, trace.minDbm[i]);
        if (std::isfinite(trace.maxDbm[i])) highest = std::max(highest, trace.maxDbm[i]);
        if (std::isfinite(trace.maxDbm[i])) lowest = std::min(lowest, trace.maxDbm[i]);
        if (std::isfinite(trace.minDbm[i])) highest = std::max(highest, trace.minDbm[i]);
    }
    if (!(highest >= lowest)) {
        lowest = -100.0;
        highest = 0.0;
    }
    f.highDbm = std::ceil(highest / 10.0) * 10.0;
    f.lowDbm = std::floor(lowest / 10.0) * 10.0;
    // Levels right at a whole 10 dB would touch the frame.
    if (f.highDbm - highest < 2.0) f.highDbm += 10.0;
    if (lowest - f.lowDbm < 2.0) f.lowDbm -= 10.0;
    if (f.highDbm - f.lowDbm < kMinRangeDb) f.lowDbm = f.highDbm - kMinRangeDb;
    if (f.highDbm - f.lowDbm > kMaxRangeDb) f.lowDbm = f.highDbm - kMaxRangeDb;
    return f;
}

void DrawPlot(cairo_t* cr, const Trace& trace, const std::string& title, int width, int height) {
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_source_rgb(cr, 1.0, 1.0, 1.0);
    cairo_paint(cr);
    const PlotFrame f = LayoutPlot(trace, width, height);
    cairo_set_source_rgb(cr, 0.0, 0.0, 0.0);
    cairo_set_font_size(cr, kTitleSize);
    ShowText(cr, 12.0, 10.0, title, 0.0, 0.0);
    DrawAxes(cr, f);
    DrawTraces(cr, trace, f);
    DrawLegend(cr, f);
}

bool WriteCairoPng(const std::string& path, int width, int height,
                   const std::function<void(cairo_surface_t*, cairo_t*)>& draw, std::string* error) {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    cairo_status_t status = cairo_surface_status(surface);
    if (status == CAIRO_STATUS_SUCCESS) {
        cairo_t* cr = cairo_create(surface);
        draw(surface, cr);
        status = cairo_status(cr);
        cairo_destroy(cr);
    }
    if (status == CAIRO_STATUS_SUCCESS) status = cairo_surface_write_to_png(surface, path.c_str());
    cairo_surface_destroy(surface);
    if (status != CAIRO_STATUS_SUCCESS) {
        *error = cairo_status_to_string(status);
        return false;
    }
    return true;
}

bool WritePlotPng(const std::string& path, const Trace& trace, const std::string& title,
                  int width, int height, std::string* error) {
    return WriteCairoPng(
        path, width, height, [&](cairo_surface_t*, cairo_t* cr) { DrawPlot(cr, trace, title, width, height); }, error);
}

}  // namespace qstool
