// qs sweep: configure, start, fetch traces, write them; a progress line on
// a terminal; the first Ctrl-C ends the run after the sweep in progress.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <mutex>
#include <thread>

#include "commands.h"
#include "core/si_units.h"
#include "core/trace_plot.h"
#include "core/trace_writers.h"

namespace qstool {

namespace {

// Ctrl-C, taken on a thread of its own. SIGINT is blocked before the
// analyser opens, so no thread of the library, which inherits the mask, is
// interrupted in a USB wait; the first one asks for a stop after the sweep
// in progress, the second ends the program at once.
class InterruptWatch {
public:
    explicit InterruptWatch(bool tell) : m_tell(tell) {
        sigemptyset(&m_set);
        sigaddset(&m_set, SIGINT);
        pthread_sigmask(SIG_BLOCK, &m_set, nullptr);
        m_thread = std::thread([this] { Run(); });
    }
    ~InterruptWatch() {
        m_stop = true;
        m_thread.join();
    }
    bool Interrupted() const { return m_interrupted.load(); }

private:
    void Run() {
        const timespec poll{0, 100 * 1000 * 1000};
        while (!m_stop.load()) {
            if (sigtimedwait(&m_set, nullptr, &poll) != SIGINT) continue;
            if (m_interrupted.exchange(true)) {
                std::fputs("\nqs: aborted\n", stderr);
                _exit(kExitAborted);
            }
            if (m_tell)
                std::fputs("\r\033[Kqs: stopping after this sweep (Ctrl-C again aborts)\n",
                           stderr);
        }
    }

    const bool m_tell;
    sigset_t m_set;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_interrupted{false};
    std::thread m_thread;
};

// Once a second, after the first second: which sweep runs and for how long.
class ProgressLine {
public:
    ProgressLine(bool enabled, int total) : m_total(total) {
        if (enabled) m_thread = std::thread([this] { Run(); });
    }
    ~ProgressLine() {
        if (!m_thread.joinable()) return;
        {
            std::lock_guard<std::mutex> hold(m_lock);
            m_stop = true;
        }
        m_wake.notify_all();
        m_thread.join();
        if (m_shown) std::fputs("\r\033[K", stderr);
    }
    void SweepDone() { ++m_done; }

private:
    void Run() {
        const auto start = std::chrono::steady_clock::now();
        std::unique_lock<std::mutex> hold(m_lock);
        while (!m_wake.wait_for(hold, std::chrono::seconds(1), [this] { return m_stop; })) {
            const double seconds =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            const int done = m_done.load();
            if (m_total > 0)
                std::fprintf(stderr, "\r\033[Kqs: sweep %d of %d, %.0f s", done + 1, m_total,
                             seconds);
            else
                std::fprintf(stderr, "\r\033[Kqs: sweep %d, %.0f s (Ctrl-C stops)", done + 1,
                             seconds);
            std::fflush(stderr);
            m_shown = true;
        }
    }

    const int m_total;  // 0: until stopped
    std::atomic<int> m_done{0};
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_stop = false;
    bool m_shown = false;
    std::thread m_thread;
};

struct Step {
    std::string what;
    qsStatus status;
};

// The settings into the staging record; the first refusal is reported,
// with the values it refused.
bool Configure(int h, const SweepOptions& o, double rbwHz, double vbwHz) {
    char level[32];
    std::snprintf(level, sizeof level, "%g dBm", o.refDbm);
    const Step steps[] = {
        {"setting the span " + FormatHz(o.startHz) + " to " + FormatHz(o.stopHz),
         qsConfigureCenterSpan(h, (o.startHz + o.stopHz) / 2.0, o.stopHz - o.startHz)},
        {std::string("setting the reference level ") + level,
         qsConfigureLevel(h, o.refDbm, QS_ATTEN_AUTO)},
        {"setting the gain", qsConfigureGain(h, QS_GAIN_AUTO)},
        {"setting RBW " + FormatHz(rbwHz) + " and VBW " + FormatHz(vbwHz),
         qsConfigureSweepCoupling(h, rbwHz, vbwHz, o.sweepTimeS, o.shape, QS_REJECTION_NONE)},
        {"setting the window", qsConfigureWindow(h, o.window)},
        {"setting the detector", qsConfigureAcquisition(h, o.detector, QS_SCALE_LOG)},
    };
    for (const Step& step : steps) {
        if (step.status < 0) {
            ReportError(step.what, step.status);
            return false;
        }
        ReportWarning(step.what, step.status);
    }
    return true;
}

timespec UtcNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

}  // namespace

int RunSweep(const Options& options) {
    const SweepOptions& o = options.sweep;
    SweepDescription description;
    description.options = o;
    description.rbwHz = o.rbwHz > 0.0 ? o.rbwHz : DefaultRbw(o.stopHz - o.startHz);
    description.vbwHz = o.vbwHz > 0.0 ? o.vbwHz : description.rbwHz;

    // Before the open: the library's threads start there.
    InterruptWatch interrupts(isatty(STDERR_FILENO));
    OpenAnalyser analyser;
    if (!analyser.Open(options.serial)) return kExitFailure;
    description.device = analyser.Name();
    const int h = analyser.Handle();
    if (!Configure(h, o, description.rbwHz, description.vbwHz)) return kExitFailure;

    qsStatus status = qsInitiate(h, QS_MODE_SWEEP, 0);
    if (status == qsNotSupportedErr) {
        ReportError("starting the sweep", status);
        std::fprintf(stderr, "qs: this library makes no swept measurement with these settings\n");
        return kExitFailure;
    }
    if (status < 0) return ReportError("starting the sweep", status);
    ReportWarning("starting the sweep", status);
    unsigned points = 0;
    Trace trace;
    status = qsQueryTraceInfo(h, &points, &trace.binHz, &trace.startHz);
    if (status < 0) return ReportError("asking for the trace size", status);
    trace.minDbm.assign(points, 0.0);
    trace.maxDbm.assign(points, 0.0);

    std::ofstream file;
    if (!o.outputPath.empty()) {
        file.open(o.outputPath, std::ios::out | std::ios::trunc);
        if (!file) {
            std::fprintf(stderr, "qs: -o %s: %s\n", o.outputPath.c_str(), std::strerror(errno));
            return kExitFailure;
        }
    }
    std::ostream& out = o.outputPath.empty() ? std::cout : file;

    const bool terminal = isatty(STDERR_FILENO) &&
                          !(o.outputPath.empty() && isatty(STDOUT_FILENO));
    int done = 0;
    qsStatus lastWarning = qsNoError;
    {
        ProgressLine progress(terminal, o.continuous ? 0 : o.count);
        // The measurement runs from qsInitiate on: an interrupt before the
        // first fetch still gets that sweep.
        do {
            trace.utc = UtcNow();
            status = qsFetchTrace(h, static_cast<int>(points), trace.minDbm.data(),
                                  trace.maxDbm.data());
            if (status < 0) break;
            // A warning that repeats every sweep is told once.
            if (status > 0 && status != lastWarning)
                ReportWarning("sweep " + std::to_string(done + 1), status);
            lastWarning = status;
            if (o.format == OutputFormat::kPower)
                WritePowerSweep(out, trace);
            else
                WriteCsvSweep(out, description, trace);
            out.flush();
            ++done;
            progress.SweepDone();
        } while ((o.continuous || done < o.count) && !interrupts.Interrupted());
    }
    if (status < 0) return ReportError("sweep " + std::to_string(done + 1), status);
    if (!out) {
        std::fprintf(stderr, "qs: writing %s failed\n",
                     o.outputPath.empty() ? "standard output" : o.outputPath.c_str());
        return kExitFailure;
    }
    qsAbort(h);
    if (!o.pngPath.empty() && done > 0) {
        std::string error;
        const std::string title = "qs sweep, " + description.device + ", " +
                                  DescribeSettings(description) + ", " + FormatUtc(trace.utc);
        if (!WritePlotPng(o.pngPath, trace, title, o.pngWidth, o.pngHeight, &error)) {
            std::fprintf(stderr, "qs: --png %s: %s\n", o.pngPath.c_str(), error.c_str());
            return kExitFailure;
        }
    }
    return 0;
}

}  // namespace qstool
