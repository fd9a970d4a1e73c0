// The CSV and power-sweep text forms, read back as a script would read them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "core/trace_writers.h"

using qstool::FormatUtc;
using qstool::SweepDescription;
using qstool::Trace;

namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::stringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> Fields(const std::string& line) {
    std::vector<std::string> fields;
    std::stringstream in(line);
    for (std::string field; std::getline(in, field, ',');) {
        const size_t first = field.find_first_not_of(' ');
        fields.push_back(first == std::string::npos ? "" : field.substr(first));
    }
    return fields;
}

// Ten points from 2.4 GHz, 4882.8125 Hz apart, a peak at point 6.
Trace SampleTrace() {
    Trace t;
    t.startHz = 2.4e9;
    t.binHz = 4882.8125;
    for (int i = 0; i < 10; ++i) {
        t.minDbm.push_back(-100.0 - i);
        t.maxDbm.push_back(i == 6 ? -40.25 : -90.0 + 0.5 * i);
    }
    t.utc.tv_sec = 1700000000;  // 2023-11-14 22:13:20 UTC
    t.utc.tv_nsec = 500000000;
    return t;
}

SweepDescription SampleDescription() {
    SweepDescription d;
    d.options.startHz = 2.4e9;
    d.options.stopHz = 2.5e9;
    d.options.refDbm = -20.0;
    d.rbwHz = 1e5;
    d.vbwHz = 3e4;
    d.device = "Maple 12345678";
    return d;
}

}  // namespace

TEST(TraceWriters, UtcTimeHasMillisecondsAndZone) {
    EXPECT_EQ(FormatUtc(SampleTrace().utc), "2023-11-14T22:13:20.500Z");
    EXPECT_EQ(FormatUtc(timespec{0, 999999999}), "1970-01-01T00:00:00.999Z");
}

TEST(TraceWriters, CsvHasCommentHeaderAndOneRowAPoint) {
    std::ostringstream out;
    const Trace trace = SampleTrace();
    qstool::WriteCsvSweep(out, SampleDescription(), trace);
    const std::vector<std::string> lines = Lines(out.str());
    ASSERT_EQ(lines.size(), 2u + trace.maxDbm.size());
    EXPECT_EQ(lines[0].rfind("# ", 0), 0u);
    for (const char* part : {"Maple 12345678", "2.4 GHz to 2.5 GHz", "RBW 100 kHz", "VBW 30 kHz",
                             "ref -20 dBm", "native/nuttall", "minmax",
                             "2023-11-14T22:13:20.500Z"})
        EXPECT_NE(lines[0].find(part), std::string::npos) << part << " in " << lines[0];
    EXPECT_EQ(lines[1], "frequency_hz,min_dbm,max_dbm");
    for (size_t i = 0; i < trace.maxDbm.size(); ++i) {
        const std::vector<std::string> f = Fields(lines[2 + i]);
        ASSERT_EQ(f.size(), 3u) << lines[2 + i];
        EXPECT_NEAR(std::atof(f[0].c_str()), trace.startHz + i * trace.binHz, 1e-3);
        EXPECT_NEAR(std::atof(f[1].c_str()), trace.minDbm[i], 0.005);
        EXPECT_NEAR(std::atof(f[2].c_str()), trace.maxDbm[i], 0.005);
    }
}

TEST(TraceWriters, SettingsNameTheWindowOnlyForTheNativeShape) {
    SweepDescription d = SampleDescription();
    d.options.shape = 2;  // gaussian
    d.options.window = 3;
    d.options.detector = 1;
    const std::string text = qstool::DescribeSettings(d);
    EXPECT_NE(text.find("gaussian"), std::string::npos) << text;
    EXPECT_EQ(text.find("flattop"), std::string::npos) << text;
    EXPECT_NE(text.find("average"), std::string::npos) << text;
}

// Rows as the heat-map scripts read them: each row's low edge the previous
// row's high edge, and low + i * bin width every point's exact frequency.
TEST(TraceWriters, PowerRowsJoinUpAndGiveEveryBinItsExactFrequency) {
    std::ostringstream out;
    Trace trace = SampleTrace();
    trace.startHz = 87998046.875;
    trace.binHz = 9765.625;
    trace.sweeps = 7;
    trace.utc.tv_nsec = 999999999;  // must not round into the next second
    qstool::WritePowerSweep(out, trace, 4);
    const std::vector<std::string> lines = Lines(out.str());
    ASSERT_EQ(lines.size(), 3u);  // 4 + 4 + 2 levels
    size_t point = 0;
    std::string previousHigh = "87998046.875";
    for (const std::string& line : lines) {
        const std::vector<std::string> f = Fields(line);
        ASSERT_GE(f.size(), 7u) << line;
        EXPECT_EQ(f[0] + " " + f[1], "2023-11-14 22:13:20");
        EXPECT_EQ(f[2], previousHigh);
        EXPECT_EQ(f[4], "9765.625");
        EXPECT_EQ(f[5], "7") << "samples: the sweeps in each level";
        const size_t levels = f.size() - 6;
        const double low = std::atof(f[2].c_str()), high = std::atof(f[3].c_str()), bin = std::atof(f[4].c_str());
        EXPECT_EQ(low + levels * bin, high);
        EXPECT_EQ(low, trace.startHz + point * trace.binHz);
        for (size_t i = 0; i < levels; ++i) EXPECT_NEAR(std::atof(f[6 + i].c_str()), trace.maxDbm[point + i], 0.005);
        point += levels;
        previousHigh = f[3];
    }
    EXPECT_EQ(point, trace.maxDbm.size());
}

TEST(TraceWriters, CropKeepsThePointsAskedForWithHalfABinOfSlack) {
    Trace t = SampleTrace();  // 2.4 GHz + i * 4882.8125 Hz, i < 10
    const auto [first, count] = qstool::CropRange(t, 2.4e9 + 2 * 4882.8125 - 2000.0, 2.4e9 + 7 * 4882.8125 + 2000.0);
    EXPECT_EQ(first, 2u);
    EXPECT_EQ(count, 6u);
    EXPECT_EQ(qstool::CropRange(t, 2.4e9 + 2 * 4882.8125 + 2500.0, 2.5e9).first, 3u);
    EXPECT_EQ(qstool::CropRange(t, 0.0, 1e10), (std::pair<size_t, size_t>{0, 10}));
    EXPECT_EQ(qstool::CropRange(t, 3e9, 4e9).second, 0u);
    // A full span's point at 0 Hz lies within half a bin of 9 kHz, but below
    // what the instrument measures.
    Trace full = SampleTrace();
    full.startHz = 0.0;
    full.binHz = 78125.0;
    EXPECT_EQ(qstool::CropRange(full, 9e3, 1e6, 9e3).first, 1u);
    EXPECT_EQ(qstool::CropRange(full, 9e3, 1e6).first, 0u);
    const Trace cropped = qstool::Crop(t, 2.4e9 + 6 * 4882.8125, 2.5e9);
    EXPECT_EQ(cropped.startHz, 2.4e9 + 6 * 4882.8125);
    ASSERT_EQ(cropped.maxDbm.size(), 4u);
    EXPECT_EQ(cropped.maxDbm[0], -40.25);
}

// Levels average as powers: -30 and -40 dBm give 10 log10((1e-3 + 1e-4) / 2).
TEST(TraceWriters, PowerAverageAddsMilliwatts) {
    Trace a = SampleTrace(), b = SampleTrace();
    a.maxDbm.assign(10, -30.0);
    b.maxDbm.assign(10, -40.0);
    b.utc.tv_sec += 1;
    qstool::PowerAverage avg;
    avg.Add(a);
    avg.Add(b);
    const Trace r = avg.Result();
    EXPECT_EQ(r.sweeps, 2);
    EXPECT_EQ(r.utc.tv_sec, a.utc.tv_sec) << "a record is dated by its first sweep";
    EXPECT_NEAR(r.maxDbm[3], 10.0 * std::log10((1e-3 + 1e-4) / 2.0), 1e-9);
    EXPECT_NEAR(r.minDbm[3], a.minDbm[3], 1e-9);
    avg.Clear();
    avg.Add(b);
    EXPECT_NEAR(avg.Result().maxDbm[0], -40.0, 1e-9);
}
