// The picture: axes that hold the data, a peak where the axes say it is,
// also when there are many more points than pixel columns.
#include <gtest/gtest.h>

#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include <cmath>
#include <string>
#include <vector>

#include "core/trace_plot.h"

using qstool::LayoutPlot;
using qstool::NiceTicks;
using qstool::PlotFrame;
using qstool::Trace;

namespace {

constexpr int kWidth = 800;
constexpr int kHeight = 400;

// A noise floor around -95 dBm with one bin at peakDbm.
Trace ToneTrace(size_t points, size_t peakIndex, double peakDbm) {
    Trace t;
    t.startHz = 1.4e9;
    t.binHz = 200e6 / static_cast<double>(points - 1);
    for (size_t i = 0; i < points; ++i) {
        t.minDbm.push_back(-100.0 + (i % 3));
        t.maxDbm.push_back(i == peakIndex ? peakDbm : -95.0 + (i % 5));
    }
    return t;
}

bool NearColour(const unsigned char* pixel, qstool::Rgb c) {
    // Image surfaces keep B, G, R in memory order on little-endian hosts.
    return std::abs(pixel[2] - c.r * 255.0) < 8.0 && std::abs(pixel[1] - c.g * 255.0) < 8.0 &&
           std::abs(pixel[0] - c.b * 255.0) < 8.0;
}

// Whether the max trace's colour is within a few pixels of (x, y).
bool MaxTraceNear(cairo_surface_t* surface, double x, double y) {
    const unsigned char* data = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    for (int dy = -3; dy <= 3; ++dy)
        for (int dx = -2; dx <= 2; ++dx) {
            const int px = static_cast<int>(x) + dx, py = static_cast<int>(y) + dy;
            if (px < 0 || py < 0 || px >= kWidth || py >= kHeight) continue;
            if (NearColour(data + py * stride + px * 4, qstool::kMaxTraceColour)) return true;
        }
    return false;
}

bool PeakIsDrawnWhereTheAxesPutIt(const Trace& trace, size_t peakIndex) {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight);
    cairo_t* cr = cairo_create(surface);
    // Without smoothing a line's pixels have its exact colour.
    cairo_set_antialias(cr, CAIRO_ANTIALIAS_NONE);
    qstool::DrawPlot(cr, trace, "title", kWidth, kHeight);
    cairo_destroy(cr);
    cairo_surface_flush(surface);
    const PlotFrame f = LayoutPlot(trace, kWidth, kHeight);
    const double x = f.X(trace.startHz + peakIndex * trace.binHz);
    const bool atPeak = MaxTraceNear(surface, x, f.Y(trace.maxDbm[peakIndex]));
    // And not drawn as high a little to the side, where there is no peak.
    const bool beside = MaxTraceNear(surface, x + 40.0, f.Y(trace.maxDbm[peakIndex]));
    cairo_surface_destroy(surface);
    return atPeak && !beside;
}

// The font caches live as long as the process; released at the end so that
// the leak checker sees only what the plot itself would lose.
class ReleaseFontCaches : public ::testing::Environment {
    void TearDown() override {
        cairo_debug_reset_static_data();
        FcFini();
    }
};
::testing::Environment* const kReleaseFontCaches =
    ::testing::AddGlobalTestEnvironment(new ReleaseFontCaches);

}  // namespace

TEST(TracePlot, TicksAreRoundAndInsideTheRange) {
    const std::vector<double> levels = NiceTicks(-100.0, 0.0, 11);
    ASSERT_EQ(levels.size(), 11u);
    EXPECT_EQ(levels.front(), -100.0);
    EXPECT_EQ(levels[1] - levels[0], 10.0);

    const std::vector<double> freqs = NiceTicks(2.4e9, 2.5e9, 8);
    ASSERT_GE(freqs.size(), 2u);
    EXPECT_LE(freqs.size(), 8u);
    const double step = freqs[1] - freqs[0];
    EXPECT_DOUBLE_EQ(step, 20e6);
    for (double f : freqs) {
        EXPECT_GE(f, 2.4e9);
        EXPECT_LE(f, 2.5e9);
        EXPECT_NEAR(std::remainder(f, step), 0.0, 1e-3);
    }
    // A narrow range far from zero still gets a tick, and no more than asked.
    const std::vector<double> narrow = NiceTicks(1.4e9 + 3.3e3, 1.4e9 + 7.1e3, 2);
    EXPECT_GE(narrow.size(), 1u);
    EXPECT_LE(narrow.size(), 2u);
    EXPECT_TRUE(NiceTicks(5.0, 5.0, 10).empty());
}

TEST(TracePlot, LevelAxisHoldsEveryFiniteLevel) {
    Trace t = ToneTrace(100, 40, -20.0);
    t.minDbm[3] = -HUGE_VAL;  // a log of zero must not stretch the axis
    t.maxDbm[5] = NAN;
    const PlotFrame f = LayoutPlot(t, kWidth, kHeight);
    EXPECT_EQ(std::fmod(f.highDbm, 10.0), 0.0);
    EXPECT_EQ(std::fmod(f.lowDbm, 10.0), 0.0);
    EXPECT_GT(f.highDbm, -20.0);
    EXPECT_LE(f.lowDbm, -100.0);
    EXPECT_GE(f.lowDbm, -110.0);
    EXPECT_DOUBLE_EQ(f.lowHz, 1.4e9);
    EXPECT_DOUBLE_EQ(f.highHz, 1.6e9);
    EXPECT_NEAR(f.X(1.5e9), f.left + f.width / 2.0, 1e-9);
    EXPECT_DOUBLE_EQ(f.Y(f.highDbm), f.top);  // higher levels higher up
    EXPECT_DOUBLE_EQ(f.Y(f.lowDbm), f.top + f.height);

    Trace flat = ToneTrace(10, 0, -95.0);
    for (double& v : flat.minDbm) v = -50.0;
    for (double& v : flat.maxDbm) v = -50.0;
    const PlotFrame g = LayoutPlot(flat, kWidth, kHeight);
    EXPECT_GE(g.highDbm - g.lowDbm, 20.0);
}

TEST(TracePlot, PeakSitsWhereTheAxesSay) {
    EXPECT_TRUE(PeakIsDrawnWhereTheAxesPutIt(ToneTrace(201, 100, -40.0), 100));
    // Fifty points a pixel column: the one-bin peak must survive the reduction.
    EXPECT_TRUE(PeakIsDrawnWhereTheAxesPutIt(ToneTrace(40001, 12345, -35.0), 12345));
}
