#include "core/realtime_picture.h"

#include <cairo.h>

#include "core/trace_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace qstool {

namespace {

constexpr int kTitleHeight = 22;
constexpr int kLevelScale = 2;  // picture rows per level row

// A picture of width x height below a title line, filled by paint(pixels,
// stride in 32-bit words), with draw(cr) on top; written as a PNG.
template <typename Paint, typename Draw>
bool WritePng(const std::string& path, int width, int height, const std::string& title, Paint paint, Draw draw,
              std::string* error) {
    return WriteCairoPng(
        path, width, height + kTitleHeight,
        [&](cairo_surface_t* surface, cairo_t* cr) {
            cairo_surface_flush(surface);
            auto* pixels = reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(surface));
            const int stride = cairo_image_surface_get_stride(surface) / 4;
            std::fill(pixels, pixels + static_cast<size_t>(stride) * (height + kTitleHeight), 0xFFFFFFu);
            paint(pixels + static_cast<size_t>(stride) * kTitleHeight, stride);
            cairo_surface_mark_dirty(surface);
            cairo_set_source_rgb(cr, 0, 0, 0);
            cairo_set_font_size(cr, 12.0);
            cairo_move_to(cr, 4.0, 15.0);
            cairo_show_text(cr, title.c_str());
            cairo_translate(cr, 0.0, kTitleHeight);
            draw(cr);
        },
        error);
}

// The trace across the picture's width, whatever its point count.
void TraceLine(cairo_t* cr, const std::vector<float>& dbm, double refDbm, double rangeDb, double width, double height) {
    const double step = dbm.empty() ? 0.0 : width / static_cast<double>(dbm.size());
    bool drawing = false;
    for (size_t i = 0; i < dbm.size(); ++i) {
        if (!std::isfinite(dbm[i])) {
            drawing = false;
            continue;
        }
        const double y = std::clamp((refDbm - dbm[i]) / rangeDb, 0.0, 1.0) * height;
        if (drawing)
            cairo_line_to(cr, (i + 0.5) * step, y);
        else
            cairo_move_to(cr, (i + 0.5) * step, y);
        drawing = true;
    }
    cairo_stroke(cr);
}

}  // namespace

unsigned HeatColour(double value) {
    // Black, blue, red, yellow, white at 0, 1/4, 1/2, 3/4 and 1.
    static const double kStops[5][3] = {{0, 0, 0}, {0, 0, 1}, {1, 0, 0}, {1, 1, 0}, {1, 1, 1}};
    const double v = std::isfinite(value) ? std::clamp(value, 0.0, 1.0) * 4.0 : 0.0;
    const int i = std::min(3, static_cast<int>(v));
    const double t = v - i;
    unsigned rgb = 0;
    for (int c = 0; c < 3; ++c) {
        const double x = kStops[i][c] + (kStops[i + 1][c] - kStops[i][c]) * t;
        rgb = (rgb << 8) | static_cast<unsigned>(std::lround(x * 255.0));
    }
    return rgb;
}

bool WritePersistencePng(const std::string& path, const RealtimeFrame& f, const std::string& title,
                         std::string* error) {
    const int height = f.levels * kLevelScale;
    // Densities span orders of magnitude: a root shows the rare ones.
    float peak = 0.0f;
    for (float d : f.density) peak = std::max(peak, d);
    const auto paint = [&](uint32_t* pixels, int stride) {
        for (int y = 0; y < height; ++y) {
            const int row = f.levels - 1 - y / kLevelScale;
            for (int x = 0; x < f.width; ++x) {
                const float d = f.density[static_cast<size_t>(row) * f.width + x];
                pixels[static_cast<size_t>(y) * stride + x] = HeatColour(peak > 0.0f ? std::sqrt(d / peak) : 0.0);
            }
        }
    };
    const auto draw = [&](cairo_t* cr) {
        cairo_set_line_width(cr, 1.0);
        cairo_set_source_rgb(cr, 0.45, 0.75, 1.0);
        TraceLine(cr, f.minDbm, f.refDbm, f.rangeDb, f.width, height);
        cairo_set_source_rgb(cr, 0.2, 1.0, 0.3);
        TraceLine(cr, f.maxDbm, f.refDbm, f.rangeDb, f.width, height);
    };
    return WritePng(path, f.width, height, title, paint, draw, error);
}

bool WriteWaterfallPng(const std::string& path, const std::vector<std::vector<float>>& rows, double lowDbm,
                       double highDbm, const std::string& title, std::string* error) {
    const int width = rows.empty() ? 1 : static_cast<int>(rows.front().size());
    const int height = std::max<int>(1, static_cast<int>(rows.size()));
    const auto paint = [&](uint32_t* pixels, int stride) {
        for (size_t y = 0; y < rows.size(); ++y)
            for (int x = 0; x < width && x < static_cast<int>(rows[y].size()); ++x)
                pixels[y * stride + x] = HeatColour((rows[y][x] - lowDbm) / (highDbm - lowDbm));
    };
    return WritePng(path, std::max(width, 320), height, title, paint, [](cairo_t*) {}, error);
}

}  // namespace qstool
