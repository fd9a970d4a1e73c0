// qs sweep: configure, start, fetch traces, average them into records and
// write those; a progress line on a terminal; the first Ctrl-C ends the run
// after the sweep in progress, and what it holds is written.
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include "commands.h"
#include "core/si_units.h"
#include "core/trace_plot.h"
#include "core/trace_writers.h"
#include "run_control.h"

namespace qstool {

namespace {

// The settings into the staging record; the first refusal is reported,
// with the values it refused. Adjusted values come back as warnings.
bool Configure(int h, const SweepOptions& o, double rbwHz, double vbwHz) {
    char level[64];
    std::snprintf(level, sizeof level, "%g dBm", o.refDbm);
    double ratio = 1.0;
    qsGetTimebaseCorrection(h, &ratio);
    const Step steps[] = {
        {"setting the span " + FormatHz(o.startHz) + " to " + FormatHz(o.stopHz),
         qsConfigureCenterSpan(h, (o.startHz + o.stopHz) / 2.0, o.stopHz - o.startHz)},
        {std::string("setting the reference level ") + level, qsConfigureLevel(h, o.refDbm, o.attenDb)},
        {"setting the gain", qsConfigureGain(h, o.gain)},
        {"setting RBW " + FormatHz(rbwHz) + " and VBW " + FormatHz(vbwHz),
         qsConfigureSweepCoupling(h, rbwHz, vbwHz, o.sweepTimeS, o.shape, QS_REJECTION_NONE)},
        {"setting the window", qsConfigureWindow(h, o.window)},
        {"setting the detector", qsConfigureAcquisition(h, o.detector, QS_SCALE_LOG)},
        // On top of the device's own correction, for this run only.
        {"correcting the time base by " + FormatExact(o.ppm) + " ppm",
         o.ppm != 0.0 ? qsSetTimebaseCorrection(h, ratio * (1.0 + o.ppm * 1e-6)) : qsNoError},
    };
    return RunSteps(steps);
}

// When records are complete: after `average` sweeps, or once a record has
// integrated its interval.
class RecordClock {
public:
    explicit RecordClock(const SweepOptions& o) : m_interval(o.RecordInterval()), m_average(o.average) {}
    void Started(double now) { m_start = now; }
    bool Complete(int sweeps, double now) const {
        return m_interval > 0.0 ? now - m_start >= m_interval : sweeps >= m_average;
    }

private:
    const double m_interval;
    const int m_average;
    double m_start = 0.0;
};

}  // namespace

int RunSweep(const Options& options) {
    const SweepOptions& o = options.sweep;
    SweepDescription description;
    description.options = o;
    description.rbwHz = o.rbwHz > 0.0 ? o.rbwHz : DefaultRbw(o.stopHz - o.startHz);
    description.vbwHz = o.vbwHz > 0.0 ? o.vbwHz : description.rbwHz;

    // Files first: a folder that does not exist is told before any sweep.
    const bool toStdout = o.outputPath.empty() || o.outputPath == "-";
    std::ofstream file;
    if (!toStdout) {
        file.open(o.outputPath, std::ios::out | std::ios::trunc);
        if (!file) {
            std::fprintf(stderr, "qs: -o %s: %s\n", o.outputPath.c_str(), std::strerror(errno));
            return kExitFailure;
        }
    }
    if (!o.pngPath.empty() && !CanCreate(o.pngPath, "--png")) return kExitFailure;
    std::ostream& out = toStdout ? std::cout : file;

    // Before the open: the library's threads start there.
    InterruptWatch interrupts(ShowProgress(toStdout) ? "stopping after this sweep" : "");
    OpenAnalyser analyser;
    if (!analyser.Open(options.serial)) return kExitFailure;
    description.device = analyser.Name();
    const int h = analyser.Handle();
    if (!Configure(h, o, description.rbwHz, description.vbwHz)) return kExitFailure;

    qsStatus status = qsInitiate(h, QS_MODE_SWEEP, 0);
    if (status == qsAllocationLimitErr) {
        ReportError("starting the sweep", status);
        std::fprintf(stderr, "qs: %s at RBW %s holds more points than fit in memory: raise --rbw or narrow the span\n",
                     FormatHz(o.stopHz - o.startHz).c_str(), FormatHz(description.rbwHz).c_str());
        return kExitFailure;
    }
    if (status < 0) return ReportError("starting the sweep", status);
    ReportWarning("starting the sweep", status);
    unsigned points = 0;
    Trace sweep;
    status = qsQueryTraceInfo(h, &points, &sweep.binHz, &sweep.startHz);
    if (status < 0) return ReportError("asking for the trace size", status);
    sweep.minDbm.assign(points, 0.0);
    sweep.maxDbm.assign(points, 0.0);

    const int wanted = o.count > 0 ? o.count : (o.Unbounded() ? 0 : 1);
    const double begun = MonotonicSeconds();
    RecordClock clock(o);
    PowerAverage record;
    Trace last;
    std::atomic<int> sweeps{0}, written{0};  // also read by the progress line
    qsStatus lastWarning = qsNoError;
    const auto write = [&] {
        last = record.Result();
        record.Clear();
        if (o.format == OutputFormat::kPower)
            WritePowerSweep(out, last);
        else
            WriteCsvSweep(out, description, last);
        out.flush();
        ++written;
    };
    {
        ProgressLine progress(ShowProgress(toStdout), [&](double seconds) {
            char text[96];
            std::snprintf(text, sizeof text, "sweep %d, record %d%s, %.0f s%s", sweeps + 1, written + 1,
                          wanted > 0 ? (" of " + std::to_string(wanted)).c_str() : "", seconds,
                          wanted > 0 ? "" : " (Ctrl-C stops)");
            return std::string(text);
        });
        // The measurement runs from qsInitiate on: an interrupt before the
        // first fetch still gets that sweep.
        for (;;) {
            sweep.utc = UtcNow();
            if (record.Count() == 0) clock.Started(MonotonicSeconds());
            status = qsFetchTrace(h, static_cast<int>(points), sweep.minDbm.data(), sweep.maxDbm.data());
            if (status < 0) break;
            // A warning that repeats every sweep is told once.
            if (status > 0 && status != lastWarning) ReportWarning("sweep " + std::to_string(sweeps + 1), status);
            lastWarning = status;
            ++sweeps;
            record.Add(Crop(sweep, o.startHz, o.stopHz, QS_MIN_FREQ));
            const double now = MonotonicSeconds();
            if (clock.Complete(record.Count(), now)) write();
            const bool timeUp = o.exitAfterS > 0.0 && now - begun >= o.exitAfterS;
            if ((wanted > 0 && written >= wanted) || timeUp || interrupts.Interrupted()) break;
        }
        // What was measured is written, also when a stop cut a record short.
        if (record.Count() > 0 && status >= 0) write();
    }
    if (status < 0) return ReportError("sweep " + std::to_string(sweeps + 1), status);
    if (!out) {
        std::fprintf(stderr, "qs: writing %s failed\n", toStdout ? "standard output" : o.outputPath.c_str());
        return kExitFailure;
    }
    qsAbort(h);
    if (!o.pngPath.empty() && written > 0) {
        std::string error;
        const std::string title = "qs sweep, " + description.device + ", " + DescribeSettings(description) + ", " +
                                  FormatUtc(last.utc);
        if (!WritePlotPng(o.pngPath, last, title, o.pngWidth, o.pngHeight, &error)) {
            std::fprintf(stderr, "qs: --png %s: %s\n", o.pngPath.c_str(), error.c_str());
            return kExitFailure;
        }
    }
    return 0;
}

}  // namespace qstool
