// qs tg: a scalar network sweep with the tracking generator. A run with
// --thru measures a through in place of the device under test and keeps its
// levels in a file; a run without it reads the device under test against
// that through and writes S21 in dB.
//
// The through is kept by the tool, not the library, so that it outlives
// the process: a user measures it once and then as many devices as needed.
// Both are levels relative to the generator's nominal output, so their
// difference is the device's gain.
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <vector>

#include "commands.h"
#include "core/si_units.h"
#include "core/trace_plot.h"
#include "run_control.h"

namespace qstool {

namespace {

std::string DefaultThruPath() {
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : ".") + "/.corvane/tg_thru.csv";
}

// The first line names the sweep the levels belong to.
std::string ThruHeader(double startHz, double binHz, size_t points, bool highRange) {
    std::ostringstream line;
    line.precision(17);
    line << "# qs tg through: start " << startHz << " step " << binHz << " points " << points << " hdr "
         << (highRange ? 1 : 0);
    return line.str();
}

bool SaveThru(const std::string& path, const std::string& header, const std::vector<double>& levels) {
    std::ofstream out(path);
    out.precision(10);
    out << header << "\n";
    for (double v : levels) out << v << "\n";
    return static_cast<bool>(out);
}

// The kept levels, if the file belongs to this very sweep.
bool LoadThru(const std::string& path, const std::string& header, size_t points, std::vector<double>* levels) {
    std::ifstream in(path);
    std::string line;
    if (!std::getline(in, line) || line != header) return false;
    levels->clear();
    double v = 0.0;
    while (levels->size() < points && in >> v) levels->push_back(v);
    return levels->size() == points;
}

}  // namespace

int RunTg(const Options& options) {
    const TgOptions& o = options.tg;
    const std::string thruPath = o.thruPath.empty() ? DefaultThruPath() : o.thruPath;
    if (!o.pngPath.empty() && !CanCreate(o.pngPath, "--png")) return kExitFailure;
    if (o.thru && o.thruPath.empty()) {
        // The default file's folder, made as the library makes it.
        const std::string dir = thruPath.substr(0, thruPath.rfind('/'));
        mkdir(dir.c_str(), 0777);
    }
    if (o.thru && !CanCreate(thruPath, "--thru-file")) return kExitFailure;
    OpenAnalyser analyser;
    if (!analyser.Open(options.serial)) return kExitFailure;
    const int h = analyser.Handle();
    const qsStatus attach = qsAttachTg(h);
    if (attach < 0) {
        std::fprintf(stderr, "qs: no tracking generator found: connect one to this computer by its USB cable\n");
        return kExitFailure;
    }
    // The high-range pass is for passive devices under test, which these
    // sweeps take throughout.
    const Step steps[] = {
        {"setting the range", qsConfigureCenterSpan(h, (o.startHz + o.stopHz) / 2, o.stopHz - o.startHz)},
        {"setting the sweep", qsConfigTgSweep(h, o.points, o.highRange, true)},
        {"starting the generator sweep", qsInitiate(h, QS_MODE_TG_SWEEP, 0)},
    };
    if (!RunSteps(steps)) return kExitFailure;
    unsigned n = 0;
    double binHz = 0.0, startHz = 0.0;
    qsStatus status = qsQueryTraceInfo(h, &n, &binHz, &startHz);
    if (status < 0) return ReportError("asking for the trace size", status);
    const std::string header = ThruHeader(startHz, binHz, n, o.highRange);

    if (o.thru && isatty(STDIN_FILENO) && !std::getenv("QS_SIM_ACTIVE")) {
        std::fprintf(stderr, "Connect a through in place of the device under test, then press Enter.\n");
        std::string line;
        std::getline(std::cin, line);
    }
    std::vector<double> min(n), max(n);
    status = qsFetchTrace(h, static_cast<int>(n), min.data(), max.data());
    qsAbort(h);
    if (status < 0) return ReportError("the generator sweep", status);
    ReportWarning("the generator sweep", status);

    if (o.thru) {
        if (!SaveThru(thruPath, header, max)) {
            std::fprintf(stderr, "qs: --thru-file %s: cannot be written\n", thruPath.c_str());
            return kExitFailure;
        }
        std::fprintf(stderr, "qs: through kept in %s; now connect the device under test and run without --thru\n",
                     thruPath.c_str());
        return 0;
    }
    std::vector<double> thru;
    if (LoadThru(thruPath, header, n, &thru)) {
        for (unsigned i = 0; i < n; ++i) max[i] -= thru[i];
    } else {
        std::fprintf(stderr,
                     "qs: warning: no through for this sweep in %s (run once with --thru): levels are against "
                     "the generator's nominal output\n",
                     thruPath.c_str());
    }

    FILE* out = OpenOutput("--output", o.outputPath, "w");
    if (!out) return kExitFailure;
    std::fprintf(out, "frequency_hz,s21_db\n");
    for (unsigned i = 0; i < n; ++i) std::fprintf(out, "%.17g,%.3f\n", startHz + i * binHz, max[i]);
    CloseOutput(out);
    if (!o.pngPath.empty()) {
        Trace trace;
        trace.startHz = startHz;
        trace.binHz = binHz;
        trace.minDbm = max;
        trace.maxDbm = max;
        const std::string title = "qs tg, " + analyser.Name() + ", S21 in dB, " + FormatHz(startHz) + " to " +
                                  FormatHz(startHz + binHz * (n - 1)) + (o.highRange ? ", high range" : "");
        std::string error;
        if (!WritePlotPng(o.pngPath, trace, title, 1200, 600, &error)) {
            std::fprintf(stderr, "qs: --png %s: %s\n", o.pngPath.c_str(), error.c_str());
            return kExitFailure;
        }
    }
    return 0;
}

}  // namespace qstool
