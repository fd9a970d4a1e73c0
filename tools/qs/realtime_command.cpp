// qs realtime: real-time frames; the last frame's persistence image with its
// min and max traces, and a waterfall of the max traces of every frame.
#include <cstdio>
#include <vector>

#include "commands.h"
#include "core/realtime_picture.h"
#include "core/si_units.h"
#include "run_control.h"

namespace qstool {

namespace {

constexpr double kFrameRangeDb = 100.0;
constexpr int kFrameRate = 30;

}  // namespace

int RunRealtime(const Options& options) {
    const RealtimeOptions& o = options.realtime;
    if (!CanCreate(o.pngPath, "--png") || (!o.waterfallPath.empty() && !CanCreate(o.waterfallPath, "--waterfall")))
        return kExitFailure;
    InterruptWatch interrupts(ShowProgress(false) ? "stopping after this frame" : "");
    OpenAnalyser analyser;
    if (!analyser.Open(options.serial)) return kExitFailure;
    const int h = analyser.Handle();
    const double rbw = o.rbwHz > 0.0 ? o.rbwHz : o.spanHz / 200.0;
    const Step steps[] = {
        {"setting the span", qsConfigureCenterSpan(h, o.centerHz, o.spanHz)},
        {"setting the reference level", qsConfigureLevel(h, o.refDbm, QS_ATTEN_AUTO)},
        {"setting RBW " + FormatHz(rbw),
         qsConfigureSweepCoupling(h, rbw, rbw, QS_MIN_SWEEP_TIME, QS_RBW_SHAPE_NATIVE, QS_REJECTION_NONE)},
        {"setting the frame", qsConfigureRealTime(h, kFrameRangeDb, kFrameRate)},
        {"starting real-time frames", qsInitiate(h, QS_MODE_REAL_TIME, 0)},
    };
    if (!RunSteps(steps)) return kExitFailure;
    RealtimeFrame frame;
    unsigned traceLen = 0;
    double binHz = 0.0, startHz = 0.0;
    qsStatus status = qsQueryRealTimeInfo(h, &frame.width, &frame.levels);
    if (status >= 0) status = qsQueryTraceInfo(h, &traceLen, &binHz, &startHz);
    if (status < 0) return ReportError("asking for the frame size", status);
    frame.refDbm = o.refDbm;
    frame.rangeDb = kFrameRangeDb;
    frame.density.assign(static_cast<size_t>(frame.width) * frame.levels, 0.0f);
    frame.minDbm.assign(traceLen, 0.0f);
    frame.maxDbm.assign(traceLen, 0.0f);
    std::vector<std::vector<float>> waterfall;
    int taken = 0, spoilt = 0;
    while (taken < o.frames && !interrupts.Interrupted()) {
        status = qsFetchRealTimeFrame(h, frame.minDbm.data(), frame.maxDbm.data(), frame.density.data(), nullptr);
        if (status < 0) break;
        // A frame missing data it should hold is kept but counted.
        if (status == qsUncalSweep) ++spoilt;
        if (!o.waterfallPath.empty()) waterfall.push_back(frame.maxDbm);
        ++taken;
    }
    qsAbort(h);
    if (status < 0) return ReportError("frame " + std::to_string(taken + 1), status);
    if (spoilt > 0) std::fprintf(stderr, "qs: warning: %d of %d frames lost data\n", spoilt, taken);
    if (taken == 0) return 0;
    const std::string title = "qs realtime, " + analyser.Name() + ", " + FormatHz(startHz) + " to " +
                              FormatHz(startHz + binHz * traceLen) + ", RBW " + FormatHz(rbw) + ", " +
                              std::to_string(taken) + " frames";
    std::string error;
    if (!WritePersistencePng(o.pngPath, frame, title, &error)) {
        std::fprintf(stderr, "qs: --png %s: %s\n", o.pngPath.c_str(), error.c_str());
        return kExitFailure;
    }
    if (!o.waterfallPath.empty() &&
        !WriteWaterfallPng(o.waterfallPath, waterfall, o.refDbm - kFrameRangeDb, o.refDbm, title, &error)) {
        std::fprintf(stderr, "qs: --waterfall %s: %s\n", o.waterfallPath.c_str(), error.c_str());
        return kExitFailure;
    }
    return 0;
}

}  // namespace qstool
