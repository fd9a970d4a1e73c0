// A sweep as a picture: min and max traces over labelled frequency and
// level axes, with the settings as the title line.
#pragma once

#include <cairo.h>

#include <functional>
#include <string>
#include <vector>

#include "core/trace_writers.h"

namespace qstool {

// Where the plot area lies in the picture and what its edges stand for.
struct PlotFrame {
    double left = 0.0, top = 0.0, width = 0.0, height = 0.0;  // pixels
    double lowHz = 0.0, highHz = 0.0;
    double lowDbm = 0.0, highDbm = 0.0;

    double X(double hz) const { return left + (hz - lowHz) / (highHz - lowHz) * width; }
    double Y(double dbm) const { return top + (highDbm - dbm) / (highDbm - lowDbm) * height; }
};

struct Rgb {
    double r, g, b;
};
constexpr Rgb kMaxTraceColour{0.05, 0.25, 0.75};
constexpr Rgb kMinTraceColour{0.45, 0.70, 0.95};

// Round tick values from low to high, 1, 2 or 5 times a power of ten apart:
// the finest such spacing that gives at most maxTicks of them.
std::vector<double> NiceTicks(double low, double high, int maxTicks);

// The frame for a trace on a picture of width x height: the trace's
// frequency range, and a level range of whole 10 dB that holds every finite
// level of both traces, at least 20 dB and at most 200 dB tall.
PlotFrame LayoutPlot(const Trace& trace, int width, int height);

// Draws the whole picture on cr, which covers width x height pixels.
void DrawPlot(cairo_t* cr, const Trace& trace, const std::string& title, int width, int height);

// Makes a width x height RGB picture, lets draw paint it (on the surface's
// pixels, through cr, or both) and writes it as a PNG file. On failure
// returns false with a reason.
bool WriteCairoPng(const std::string& path, int width, int height,
                   const std::function<void(cairo_surface_t*, cairo_t*)>& draw, std::string* error);

// Writes the picture as a PNG file. On failure returns false with a reason.
bool WritePlotPng(const std::string& path, const Trace& trace, const std::string& title,
                  int width, int height, std::string* error);

}  // namespace qstool
